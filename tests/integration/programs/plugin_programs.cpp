#include "plugin_programs.h"

namespace kavrel_test {

void Expect(ChildProcess& process, const std::string& line) {
  EXPECT_TRUE(process.WaitForLine(line)) << "no \"" << line << "\" in\n"
                                         << process.output() << process.errors();
}

std::unique_ptr<ChildProcess> PluginPrograms::StartPanel(
    ChildProcess& viewer, const std::string& name, const std::string& type,
    const std::string& colour, const std::vector<std::string>& more) const {
  std::vector<std::string> arguments = {"--name", name, "--type", type, "--colour", colour};
  arguments.insert(arguments.end(), more.begin(), more.end());
  auto plugin = std::make_unique<ChildProcess>(Options(KAVREL_PANEL_PROGRAM, arguments));
  AwaitPanel(viewer, *plugin, name);
  return plugin;
}

// Channel and window come up each in its own time. What is asked for after the keys comes after
// them.
void PluginPrograms::AwaitPanel(ChildProcess& viewer, ChildProcess& panel,
                                const std::string& name) {
  const std::string prefix = "plug-in " + name + ": ";
  const auto has_said = [&](const char* what) {
    return viewer.output().find(prefix + what) != std::string::npos;
  };
  while (!has_said("shown\n") || !has_said("window on layer")) {
    if (viewer.WaitForLine(prefix)) continue;
    ADD_FAILURE() << viewer.output() << viewer.errors() << panel.errors();
    break;
  }
}

std::unique_ptr<ChildProcess> PluginPrograms::StartListener(
    ChildProcess& viewer, const std::string& name, const std::vector<std::string>& more) const {
  std::vector<std::string> arguments = {"--name", name};
  arguments.insert(arguments.end(), more.begin(), more.end());
  auto plugin = std::make_unique<ChildProcess>(Options(KAVREL_LISTENER_PROGRAM, arguments));
  Expect(viewer, "plug-in " + name + ": says listening=" + name);
  return plugin;
}

nlohmann::json PluginPrograms::SendKey(const std::string& key,
                                       const std::vector<std::string>& more) const {
  std::vector<std::string> arguments = {"keys", "send", key, "--json"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Outcome outcome = Tool(arguments);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  return nlohmann::json::parse(outcome.output, nullptr, false);
}

nlohmann::json PluginPrograms::ListPlugins() const {
  const Outcome outcome = Tool({"plugins", "--json"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  return nlohmann::json::parse(outcome.output, nullptr, false);
}

Pixels PluginPrograms::Screenshot() const {
  const std::string file = directory_.Path("screen.png");
  const Outcome outcome = Tool({"screenshot", file});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  return Pixels(file);
}

}  // namespace kavrel_test
