// The command line of kavrel-viewer.
#pragma once

#include <optional>
#include <string>
#include <variant>

namespace viewer {

enum ExitCode { kStopped = 0, kCannotListen = 1, kUsage = 2 };

struct Options {
  std::string app_id;
  bool json = false;
  std::optional<int> ready_fd;
  bool headless = false;
  std::optional<bool> remote;  ///< a remote control on the screen; nothing: on a display only
  double banner_seconds = 10;  ///< how long banners stay; 0: until they are hidden
  std::string screenshot;      ///< file for a picture of the screen at the end; empty: none
};

/// The options, or the code to exit with: help was asked for, or a mistake has been explained on
/// standard error.
std::variant<Options, int> ParseOptions(int argc, char** argv);

}  // namespace viewer
