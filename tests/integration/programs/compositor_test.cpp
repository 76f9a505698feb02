// The viewer whose compositor cannot be made: what it says, and what works without.
#include <sys/stat.h>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using ::testing::HasSubstr;

class Compositor : public PluginPrograms {
 protected:
  /// The viewer says that line, serves, and has plug-ins without windows.
  void ExpectNoWindows(const std::string& reason, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"--headless"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const auto viewer = StartViewer(arguments);
    EXPECT_THAT(viewer->errors(),
                HasSubstr("kavrel-viewer: plug-ins have no windows: " + reason + '\n'));
    const auto listener = StartListener(*viewer, "listener", {"--key", "XF86Green"});
    std::vector<std::string> send = {"keys", "send", "XF86Green", "--release"};
    send.insert(send.end(), more.begin(), more.end());
    EXPECT_EQ(Tool(send).output, "taken by plug-in listener\n");
    Expect(*listener, "released XF86Green");
  }
};

constexpr const char* kAdvice = "set it to a directory of your own with mode 0700";

TEST_F(Compositor, NeedsARuntimeDirectory) {
  environment_["XDG_RUNTIME_DIR"] = std::nullopt;
  ExpectNoWindows(std::string("XDG_RUNTIME_DIR is not set; ") + kAdvice);
}

TEST_F(Compositor, NeedsADirectoryThatIsThere) {
  const std::string nowhere = directory_.Path("nowhere");
  environment_["XDG_RUNTIME_DIR"] = nowhere;
  ExpectNoWindows("XDG_RUNTIME_DIR names \"" + nowhere + "\", which is no directory; " + kAdvice);
}

TEST_F(Compositor, NeedsAPrivateDirectory) {
  const std::string open = directory_.Path("open");
  ASSERT_EQ(::mkdir(open.c_str(), 0700), 0);
  ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
  environment_["XDG_RUNTIME_DIR"] = open;
  ExpectNoWindows("XDG_RUNTIME_DIR names \"" + open +
                  "\", which others may write; chmod it to 0700, or " + kAdvice);
}

// Two systems on buses of their own that share the directory of the socket.
TEST_F(Compositor, NeedsASocketThatNobodyServes) {
  const auto first = StartViewer({"--headless"});
  EXPECT_THAT(first->errors(), ::testing::Not(HasSubstr("plug-ins have no windows")));
  const PrivateBus another;
  bus_address_ = another.address();
  ExpectNoWindows("another viewer serves \"" + directory_.Path("kavrel-compositor") +
                      "\"; stop it, or give this one an XDG_RUNTIME_DIR of its own",
                  {"--app-id", "org.zarnet.second"});
}

}  // namespace
}  // namespace kavrel_test
