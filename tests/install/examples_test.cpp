// Runs the examples, which are found on PATH like the viewer and kavrelctl: whatever was built
// there, and however it was. check_install.sh starts it.
#include <gtest/gtest.h>
#include <kavrel/testing.h>

#include <csignal>

namespace {

using kavrel::testing::Program;
using kavrel::testing::Television;

class Examples : public testing::Test {
 protected:
  Television television_;
};

void ExpectLine(Program& program, const std::string& text) {
  EXPECT_TRUE(program.WaitForLine(text)) << "no \"" << text << "\" in\n"
                                         << program.output() << program.errors();
}

TEST_F(Examples, FirstClient) {
  Program client({"first_client"});
  EXPECT_EQ(client.WaitForExit(), 0) << client.errors();
  EXPECT_EQ(client.output(), "window size 0\n");
  EXPECT_TRUE(television_.WaitForLine("TuneChannel(\"7\", \"News\", \"DVB-T\""));
}

TEST_F(Examples, Watcher) {
  Program watcher({"watcher"});
  ExpectLine(watcher, "watching");
  television_.Tool({"set", "pip_focus", "1"});
  ExpectLine(watcher, "pip focus: 1");
  watcher.Signal(SIGTERM);
  EXPECT_EQ(watcher.WaitForExit(), 0);
}

TEST_F(Examples, FirstPlugin) {
  Program plugin({"first_plugin"});
  ASSERT_TRUE(television_.WaitForLine("plug-in keys: shown")) << plugin.errors();
  EXPECT_EQ(television_.SendKey("XF86Green"), "plug-in keys");
  ExpectLine(plugin, "XF86Green");
  plugin.Signal(SIGTERM);
  EXPECT_EQ(plugin.WaitForExit(), 0);
}

TEST_F(Examples, KeyListener) {
  Program plugin({"key_listener"});
  ExpectLine(plugin, "connected");
  // Its keys come with a message of their own.
  while (television_.SendKey("XF86Red") != "plug-in red") {
    ASSERT_TRUE(plugin.WaitForExit(kavrel::testing::Milliseconds(0)) == std::nullopt);
  }
  ExpectLine(plugin, "XF86Red released");
  plugin.Signal(SIGTERM);
  EXPECT_EQ(plugin.WaitForExit(), 0);
}

TEST_F(Examples, ViewerSkeleton) {
  television_.StopViewer();
  Program viewer({"viewer_skeleton"});
  ExpectLine(viewer, "serving");
  Program client({"first_client"});
  EXPECT_EQ(client.WaitForExit(), 0) << client.errors();
  EXPECT_EQ(client.output(), "window size 0\n");
  ExpectLine(viewer, "tunes to 7 News");
  EXPECT_NE(television_.Tool({"call", "set-window-size", "1"}).output.find("true"),
            std::string::npos);
  EXPECT_NE(television_.Tool({"call", "set-window-size", "9"}).output.find("false"),
            std::string::npos);
  EXPECT_TRUE(television_.WaitForState("bg_executable", "1"));
  Program second({"viewer_skeleton"});
  EXPECT_EQ(second.WaitForExit(), 1) << "two viewers serve at once";
  viewer.Signal(SIGTERM);
  EXPECT_EQ(viewer.WaitForExit(), 0);
}

TEST(ExampleTests, ClientTest) {
  Program tests({"client_test"});
  EXPECT_EQ(tests.WaitForExit(), 0) << tests.output() << tests.errors();
}

}  // namespace
