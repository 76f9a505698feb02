// A reference of start_client: a program that could open an EFL window, and calls nothing.
#include <Elementary.h>

#include <string>

#include "start_report.h"

int main(int argc, char** argv) {
  if (argc > 1) elm_init(argc, argv);
  if (std::string(argv[0]).empty()) return 1;
  return kavrel_bench::ReportStart();
}
