// A reference of start_client: a C++ program that links nothing but its own library.
#include <string>

#include "start_report.h"

int main(int argc, char** argv) {
  if (std::string(argv[argc - 1]).empty()) return 1;
  return kavrel_bench::ReportStart();
}
