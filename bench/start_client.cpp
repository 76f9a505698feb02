// What a client costs before it does anything: linked with the library, calling nothing.
#include <kavrel/app_api.h>

#include "start_report.h"

int main(int argc, char** /*argv*/) {
  if (argc > 1) kavrel_api_destroy(kavrel_api_create(KAVREL_VIEWER_APP_ID));
  return kavrel_bench::ReportStart();
}
