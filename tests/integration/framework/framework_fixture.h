// Viewer and plug-ins as processes of their own, on a bus and with a compositor of their own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "private_bus.h"
#include "temporary_directory.h"

namespace framework_test {

/// A program whose lines are taken one by one, whatever their order: two that have nothing to do
/// with each other may come either way.
class Program {
 public:
  explicit Program(const kavrel_test::ChildOptions& options) : process_(options) {}

  /// Takes the first line that has not been taken yet and begins with `text`; waits for it.
  std::optional<std::string> Take(const std::string& text) {
    return TakeIf([&](const std::string& line) { return line.starts_with(text); });
  }

  /// The same for one that holds `text`, as a line of the log does.
  std::optional<std::string> TakeHolding(const std::string& text) {
    return TakeIf([&](const std::string& line) { return line.find(text) != std::string::npos; });
  }

  /// Whether such a line has come and has not been taken; does not wait.
  bool Has(const std::string& text) const {
    return std::any_of(lines_.begin(), lines_.end(),
                       [&](const std::string& line) { return line.starts_with(text); });
  }

  void Tell(const std::string& command) const { process_.WriteInput(command + '\n'); }
  std::string Everything() const { return process_.output() + process_.errors(); }
  kavrel_test::ChildProcess& process() { return process_; }

 private:
  template <class Matches>
  std::optional<std::string> TakeIf(const Matches& matches) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + kavrel_test::kGenerous;
    while (Clock::now() < deadline) {
      const auto found = std::find_if(lines_.begin(), lines_.end(), matches);
      if (found != lines_.end()) {
        std::string line = *found;
        lines_.erase(found);
        return line;
      }
      auto line = process_.WaitForLine("");
      if (!line) return std::nullopt;
      lines_.push_back(std::move(*line));
    }
    return std::nullopt;
  }

  kavrel_test::ChildProcess process_;
  std::vector<std::string> lines_;
};

using ProgramPointer = std::unique_ptr<Program>;
using Environment = std::map<std::string, std::optional<std::string>>;

/// Whether the program says a line that begins with `text`; waits for it.
inline testing::AssertionResult Says(Program& program, const std::string& text) {
  if (program.Take(text)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "no \"" << text << "\" in\n" << program.Everything();
}
/// Whether it logs a line with that text at its end.
inline testing::AssertionResult Logs(Program& program, const std::string& text) {
  if (program.TakeHolding(") > " + text)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "no \"" << text << "\" in\n" << program.Everything();
}
#define EXPECT_SAYS(program, text) EXPECT_TRUE(Says(program, text))
#define ASSERT_SAYS(program, text) ASSERT_TRUE(Says(program, text))

class FrameworkTest : public testing::Test {
 protected:
  Environment CommonEnvironment() const {
    return {{"XDG_RUNTIME_DIR", directory_.path()},
            {"KAVREL_RUNTIME_DIR", directory_.path()},
            {"HOME", directory_.path()},
            {"KAVREL_LOG", "stderr"},
            {"KAVREL_LOG_LEVEL", "error"},
            {"DISPLAY", std::nullopt},
            {"WAYLAND_DISPLAY", std::nullopt},
            {"EINA_LOG_BACKTRACE", "-1"},
            {"EINA_LOG_LEVEL", "1"},
            {"ELM_ENGINE", "buffer"}};
  }

  ProgramPointer Start(std::vector<std::string> arguments, const Environment& changes = {}) const {
    kavrel_test::ChildOptions options;
    options.arguments = std::move(arguments);
    options.environment = CommonEnvironment();
    for (const auto& [name, value] : changes) options.environment[name] = value;
    return std::make_unique<Program>(options);
  }

  /// A viewer whose host is there.
  ProgramPointer MakeHost(std::vector<std::string> arguments = {},
                          const Environment& changes = {}) const {
    arguments.insert(arguments.begin(), FRAMEWORK_HOST);
    auto host = Start(arguments, changes);
    EXPECT_SAYS(*host, "created");
    return host;
  }

  /// A plug-in that inherits the viewer's environment, its engine too.
  ProgramPointer StartPlugin(std::vector<std::string> arguments,
                             const Environment& changes = {}) const {
    arguments.insert(arguments.begin(), FRAMEWORK_PLUGIN);
    return Start(arguments, changes);
  }

  /// One whose wishes the host has taken: what it asks for arrives in the order in which it asks.
  ProgramPointer MakePlugin(Program& host, const std::vector<std::string>& arguments) const {
    auto plugin = StartPlugin(arguments);
    EXPECT_SAYS(*plugin, "connected");
    EXPECT_SAYS(host, "told: show=" + arguments.front());
    return plugin;
  }

  /// One with a window that opened it when the host knew the plug-in.
  ProgramPointer MakeWindow(Program& host, const std::string& name, const std::string& type,
                            const std::string& color) const {
    auto plugin = MakePlugin(host, {name, type});
    plugin->Tell("window " + color);
    EXPECT_SAYS(host, "told: plugin_add=" + name);
    return plugin;
  }

  /// The viewer presses the key, and the plug-in gets it.
  static void ExpectKey(Program& host, const std::string& key, Program& plugin) {
    host.Tell("key " + key);
    EXPECT_SAYS(host, "key " + key + " taken");
    EXPECT_SAYS(plugin, "pressed " + key + " 1");
  }

  static void ExpectNobodyTakes(Program& host, const std::string& key) {
    host.Tell("key " + key);
    EXPECT_SAYS(host, "key " + key + " left -");
  }

  /// Waits until the viewer's picture shows the color there.
  static void ExpectPixel(Program& host, int x, int y, const std::string& color) {
    const std::string place = std::to_string(x) + ' ' + std::to_string(y);
    host.Tell("pixel " + place + ' ' + color);
    EXPECT_SAYS(host, "pixel " + place) << " of color " << color;
  }

  struct Cost {
    long descriptors = 0;
    long bytes = 0;
  };
  static Cost TakeCost(Program& program, const std::string& word) {
    Cost cost;
    const auto line = program.Take(word);
    EXPECT_TRUE(line) << program.Everything();
    std::string said;
    std::istringstream(line.value_or("")) >> said >> cost.descriptors >> cost.bytes;
    return cost;
  }

  kavrel_test::TemporaryDirectory directory_;
  kavrel_test::PrivateBus bus_;
};

}  // namespace framework_test
