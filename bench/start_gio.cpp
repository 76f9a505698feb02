// A reference of start_client: a program that could use the bus by GIO, and calls nothing.
#include <gio/gio.h>

#include <string>

#include "start_report.h"

int main(int argc, char** argv) {
  if (argc > 1) g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
  if (std::string(argv[0]).empty()) return 1;
  return kavrel_bench::ReportStart();
}
