// The command line that the example plug-ins share. A plug-in of your own needs none of this.
#pragma once

#include <kavrel/KeyRepository.h>
#include <kavrel/ViewerPluginType.h>

#include <string>
#include <variant>

namespace plugins {

struct Options {
  std::string host = "kavrel";
  std::string name;
  VIEWER_PLUGIN_TYPE type;
  CKeyRepository keys;
  CKeyRepository exclusive_keys;
  int colour = 0x2f5d8a;  ///< of the window: 0xRRGGBB
};

/// What tells one example from another.
struct Program {
  const char* name;     ///< "kavrel-plugin-panel"
  const char* purpose;  ///< the first line of its help
  const char* plugin;   ///< the plug-in's name when none is given
  VIEWER_PLUGIN_TYPE type;
  bool has_window;
};

/// The options, or the code to exit with: 0 after help, 2 after a mistake, which has been explained
/// on standard error.
std::variant<Options, int> ParseOptions(const Program& program, int argc, char** argv);

/// Writes a line to standard output at once, for whoever reads along. Control characters, which
/// came from the viewer, are escaped.
void Say(const std::string& line);

/// "BACKGROUND" and the like, as IViewerStateChangeListener numbers them.
const char* StateName(int state);

}  // namespace plugins
