#include "options.h"

#include <app_id.h>
#include <kavrel/app_api.h>
#include <ready_fd.h>

#include <CLI/CLI.hpp>
#include <cstdio>

namespace viewer {
namespace {

constexpr const char* kFooter =
    R"(Serves the remote interface KavrelAppApi under its application id, is host of plug-ins
and writes one line for each operation that a client asks for, and for what keys and
plug-ins do. Opens a window where there is a display. SIGINT and SIGTERM stop it.

Example:
  kavrel-viewer &
  kavrelctl call tune-channel 7 News DVB-T me
  kavrel-plugin-panel --key XF86Red &
  kavrelctl keys send XF86Red
  kavrelctl screenshot picture.png

Environment:
  KAVREL_APP_ID       application id when --app-id is not given
  KAVREL_BANNER_SECONDS  how long banners stay when --banner-seconds is not given
  KAVREL_RUNTIME_DIR  where clients find this viewer and its volatile state is kept
  KAVREL_STATE_DIR    where its durable state is kept
  XDG_RUNTIME_DIR     where plug-ins' windows find it; private to its user
  DBUS_SYSTEM_BUS_ADDRESS  the bus on which it meets plug-ins

Exit codes: 0 stopped, 1 cannot listen, 2 wrong usage.)";

constexpr double kLongestBanner = 86400;

}  // namespace

std::variant<Options, int> ParseOptions(int argc, char** argv) {
  Options options;
  options.app_id = KAVREL_VIEWER_APP_ID;
  CLI::App app("The reference viewer: a television commanded over KavrelAppApi, host of plug-ins.",
               "kavrel-viewer");
  app.footer(kFooter);
  app.get_formatter()->column_width(40);
  app.set_version_flag("--version", "kavrel-viewer " KAVREL_VERSION);
  app.add_option("--app-id", options.app_id, "Application id under which clients find this viewer")
      ->type_name("ID")
      ->envname("KAVREL_APP_ID")
      ->check(CLI::Validator(&kavrel_programs::AppIdMistake, ""))
      ->capture_default_str();
  app.add_flag("--json", options.json, "Write operations as JSON, one object a line");
  app.add_option("--ready-fd", options.ready_fd,
                 "Write a newline to this descriptor and close it as soon as clients are served")
      ->type_name("FD")
      ->check(CLI::Validator(&kavrel_programs::ReadyFdMistake, ""));
  app.add_flag("--headless", options.headless, "Open no window; also what happens without display");
  app.add_flag_callback(
      "--remote", [&options] { options.remote = true; },
      "Show a remote control beside the picture, also without a display");
  app.add_flag_callback(
         "--no-remote", [&options] { options.remote = false; }, "Show none on a display either")
      ->excludes("--remote");
  app.add_option("--banner-seconds", options.banner_seconds,
                 "How long banners stay; 0: until they are hidden")
      ->type_name("SECONDS")
      ->envname("KAVREL_BANNER_SECONDS")
      ->check(CLI::Range(0.0, kLongestBanner))
      ->capture_default_str();
  app.add_option("--screenshot", options.screenshot, "Write a picture of the screen when it stops")
      ->type_name("FILE");
  try {
    app.parse(argc, argv);
    return options;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    (void)std::fprintf(stderr, "kavrel-viewer: %s\nTry kavrel-viewer --help.\n", error.what());
    return kUsage;
  }
}

}  // namespace viewer
