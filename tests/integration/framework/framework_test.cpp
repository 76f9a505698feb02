// Viewer and plug-ins as processes of their own, on a bus and with a compositor of their own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "child_process.h"
#include "private_bus.h"
#include "temporary_directory.h"

namespace framework_test {
namespace {

using kavrel_test::ChildOptions;
using kavrel_test::ChildProcess;

class FrameworkTest : public testing::Test {
 protected:
  FrameworkTest() { ::chmod(directory_.path().c_str(), 0700); }

  ChildOptions Options(const std::vector<std::string>& arguments) {
    ChildOptions options;
    options.arguments = arguments;
    options.environment = {{"XDG_RUNTIME_DIR", directory_.path()},
                           {"KAVREL_RUNTIME_DIR", directory_.path()},
                           {"HOME", directory_.path()},
                           {"DISPLAY", std::nullopt},
                           {"EINA_LOG_BACKTRACE", "0"},
                           {"ELM_ENGINE", "buffer"}};
    return options;
  }

  std::unique_ptr<ChildProcess> Host() {
    auto host = std::make_unique<ChildProcess>(Options({FRAMEWORK_HOST}));
    EXPECT_TRUE(host->WaitForLine("created")) << host->errors();
    return host;
  }

  // A plug-in that inherits the viewer's engine: its window has to be a Wayland one all the same.
  std::unique_ptr<ChildProcess> Plugin(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), FRAMEWORK_PLUGIN);
    return std::make_unique<ChildProcess>(Options(arguments));
  }

  static void Expect(ChildProcess& process, const std::string& line) {
    EXPECT_TRUE(process.WaitForLine(line)) << "no \"" << line << "\" in\n"
                                           << process.output() << process.errors();
  }

  static void Tell(ChildProcess& process, const std::string& command) {
    process.WriteInput(command + '\n');
  }

  kavrel_test::TemporaryDirectory directory_;
  kavrel_test::PrivateBus bus_;
};

TEST_F(FrameworkTest, CarriesKeysAndStates) {
  const auto host = Host();
  const auto plugin = Plugin({"clock", "5", "Red"});
  Expect(*plugin, "connected");
  Expect(*host, "told: show=clock name=clock");
  Tell(*host, "key Red");
  Expect(*host, "key Red taken clock");
  Expect(*plugin, "pressed Red 1");
  Tell(*host, "key Blue");
  Expect(*host, "key Blue left -");
  Tell(*host, "state RESUME_FOCUS");
  Expect(*plugin, "state 2");
}

TEST_F(FrameworkTest, ServesAPluginOnGlibsLoop) {
  const auto host = Host();
  const auto plugin = Plugin({"clock", "5", "glib", "Red"});
  Expect(*plugin, "connected");
  Expect(*host, "told: show=clock");
  Tell(*host, "key Red");
  Expect(*plugin, "pressed Red 1");
}

TEST_F(FrameworkTest, WaitsForAHostThatStartsLater) {
  const auto plugin = Plugin({"clock", "5", "Red"});
  const auto host = Host();
  Expect(*plugin, "connected");
  Expect(*host, "told: show=clock");
  Tell(*host, "key Red");
  Expect(*plugin, "pressed Red 1");
}

TEST_F(FrameworkTest, OpensAWaylandWindowWhateverTheEnvironmentSays) {
  const auto host = Host();
  const auto plugin = Plugin({"hbbtv", "5", "window", "Red"});
  Expect(*plugin, "engine wayland");
  Expect(*host, "told: plugin_add=hbbtv");
  Tell(*host, "window hbbtv");
  Expect(*host, "window hbbtv 7");
  plugin->Kill();
  Expect(*host, "told: plugin_remove=hbbtv");
  Tell(*host, "window hbbtv");
  Expect(*host, "window hbbtv none");
}

TEST_F(FrameworkTest, GivesExclusiveKeysToTheLatest) {
  const auto host = Host();
  const auto first = Plugin({"first", "4", "exclusive", "Red"});
  Expect(*host, "told: show=first");
  const auto second = Plugin({"second", "4", "exclusive", "Red"});
  Expect(*host, "told: show=second");
  Tell(*host, "key Red");
  Expect(*second, "pressed Red 1");
  Tell(*host, "grab Red");
  Tell(*host, "key Red");
  Expect(*host, "key Red taken -");
  Expect(*host, "key Red left -");
  Tell(*host, "release Red");
  Tell(*host, "key Red");
  Expect(*second, "pressed Red 1");
}

TEST_F(FrameworkTest, ConnectsAgainToARestartedHost) {
  auto host = Host();
  const auto plugin = Plugin({"clock", "5", "Red"});
  Expect(*plugin, "connected");
  host->Kill();
  Expect(*plugin, "disconnected");
  host = Host();
  Expect(*plugin, "connected");
  Expect(*host, "told: show=clock");
  Tell(*host, "key Red");
  Expect(*plugin, "pressed Red 1");
}

TEST_F(FrameworkTest, ForgetsAPluginThatLeaves) {
  const auto host = Host();
  const auto plugin = Plugin({"clock", "5", "Red"});
  Expect(*host, "told: show=clock");
  Tell(*plugin, "leave");
  Expect(*plugin, "left");
  const auto next = Plugin({"clock", "5", "Blue"});
  Expect(*host, "told: show=clock");
  Tell(*host, "key Red");
  Expect(*host, "key Red left -");
  Tell(*host, "key Blue");
  Expect(*next, "pressed Blue 1");
}

TEST_F(FrameworkTest, MakesTheHostAgainInOneProcess) {
  const auto host = Host();
  const auto plugin = Plugin({"clock", "6", "window", "Red"});
  Expect(*host, "told: plugin_add=clock");
  Tell(*host, "destroy");
  Expect(*host, "destroyed");
  Tell(*host, "create");
  Expect(*host, "created");
  const auto next = Plugin({"weather", "6", "window", "Blue"});
  Expect(*host, "told: plugin_add=weather");
}

}  // namespace
}  // namespace framework_test
