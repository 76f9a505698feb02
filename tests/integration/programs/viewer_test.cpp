// kavrel-viewer as a program: start, readiness, a rival, its output, its end.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "programs.h"

namespace kavrel_test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class Viewer : public Programs {
 protected:
  Outcome RunViewer(const std::vector<std::string>& arguments) const {
    ChildProcess viewer(Options(KAVREL_VIEWER_PROGRAM, arguments));
    return OutcomeOf(viewer);
  }
};

TEST_F(Viewer, TellsWhenItServes) {
  ChildProcess viewer(Options("/bin/sh", {"-c", "exec \"$VIEWER\" --json --ready-fd 3 3>&1 2>&-"}));
  ASSERT_EQ(viewer.WaitForLine(""), "");
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  ASSERT_TRUE(viewer.WaitForLine("GetWindowSize"));
  viewer.Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(viewer).exit_code, 0);
}

TEST_F(Viewer, ListsOperationsInOrder) {
  const auto viewer = StartViewer();
  Tool({"call", "tune-channel", "7", "News", "DVB-T", "me"});
  Tool({"call", "set-window-size", "9"});
  ASSERT_TRUE(viewer->WaitForLine("SetWindowSize"));
  EXPECT_EQ(
      viewer->output(),
      "#1 kavrelctl TuneChannel(\"7\", \"News\", \"DVB-T\", \"me\"): channel 7 News on DVB-T\n"
      "#2 kavrelctl SetWindowSize(9) = false: refused: window sizes are 0 to 3\n");
}

TEST_F(Viewer, TellsClientsApart) {
  const auto viewer = StartViewer({"--json"});
  Tool({"call", "exit-ttx", "a"});
  Tool({"call", "exit-ttx", "b"});
  const auto first = nlohmann::json::parse(viewer->WaitForLine("\"a\"").value_or("{}"));
  const auto second = nlohmann::json::parse(viewer->WaitForLine("\"b\"").value_or("{}"));
  EXPECT_EQ(first["client"]["sender"], second["client"]["sender"]);
  EXPECT_NE(first["client"]["instance"], second["client"]["instance"]);
}

class StoppedBy : public Viewer, public ::testing::WithParamInterface<int> {};

TEST_P(StoppedBy, EndsCleanlyAndLeavesNobodyListening) {
  const auto viewer = StartViewer();
  // What has been published then is taken back at the end.
  EXPECT_EQ(Tool({"call", "tune-channel", "7", "News", "DVB-T", "me"}).exit_code, 0);
  EXPECT_EQ(Tool({"call", "show-channel-banner", "1"}).exit_code, 0);
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  viewer->Signal(GetParam());
  const Outcome outcome = OutcomeOf(*viewer);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.errors, StartsWith("kavrel-viewer: plug-ins are off: no system bus: "));
  EXPECT_THAT(outcome.errors, HasSubstr("kavrel-viewer: serving as org.zarnet.kavrel\n"));
  EXPECT_THAT(Tool({"call", "get-window-size"}).errors, HasSubstr("nobody listens"));
  EXPECT_EQ(Tool({"get", "kavrel_state"}).output, "stopped\n");
}

INSTANTIATE_TEST_SUITE_P(Viewer, StoppedBy, ::testing::Values(SIGINT, SIGTERM));

TEST_F(Viewer, ASecondOneSaysThatThereIsAFirst) {
  const auto first = StartViewer();
  Tool({"call", "show-channel-banner", "1"});
  const Outcome second = RunViewer({});
  EXPECT_EQ(second.exit_code, 1);
  EXPECT_EQ(second.output, "");
  EXPECT_THAT(second.errors,
              HasSubstr("kavrel-viewer: cannot listen as \"org.zarnet.kavrel\": another viewer "
                        "serves under this id in the same runtime directory; stop it, or choose "
                        "another --app-id\n"));
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  // The state is still the first one's.
  EXPECT_EQ(Tool({"get", "visible_banners"}).output, "channel\n");
}

TEST_F(Viewer, ServesBesideAnotherUnderAnotherId) {
  const auto first = StartViewer();
  const auto second = StartViewer({"--app-id", "org.zarnet.second"});
  Tool({"call", "set-window-size", "2", "--app-id", "org.zarnet.second"});
  EXPECT_EQ(Tool({"call", "get-window-size"}).output, "size    0\nresult  true\n");
  EXPECT_EQ(Tool({"--app-id", "org.zarnet.second", "call", "get-window-size"}).output,
            "size    2\nresult  true\n");
}

TEST_F(Viewer, TakesOverFromAKilledOne) {
  for (int i = 0; i < 3; ++i) StartViewer()->Kill();
  const auto viewer = StartViewer();
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
}

TEST_F(Viewer, SaysThatItCannotListen) {
  ASSERT_EQ(::chmod(directory_.path().c_str(), 0777), 0);
  const Outcome refused = RunViewer({});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("kavrel-viewer: cannot listen as \"org.zarnet.kavrel\": "
                                        "clients cannot connect; the log tells why\n"));
  ChildOptions options = Options(KAVREL_VIEWER_PROGRAM, {});
  options.environment["KAVREL_RUNTIME_DIR"] = "/proc/no/such";
  ChildProcess nowhere(options);
  const Outcome outcome = OutcomeOf(nowhere);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("cannot listen as \"org.zarnet.kavrel\": the log tells"));
}

TEST_F(Viewer, ExplainsWrongUsage) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--bogus"},
                                                    {"extra"},
                                                    {"--app-id", "a b"},
                                                    {"--ready-fd", "2"},
                                                    {"--ready-fd", "77"},
                                                    {"--ready-fd", "x"}}) {
    const Outcome outcome = RunViewer(arguments);
    EXPECT_EQ(outcome.exit_code, 2) << arguments.front();
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, StartsWith("kavrel-viewer: "));
    EXPECT_THAT(outcome.errors, HasSubstr("Try kavrel-viewer --help.\n"));
  }
}

TEST_F(Viewer, TakesItsIdFromTheEnvironmentToo) {
  ChildOptions options = Options(KAVREL_VIEWER_PROGRAM, {});
  options.environment["KAVREL_APP_ID"] = "org.zarnet.other";
  ChildProcess viewer(options);
  EXPECT_TRUE(viewer.WaitForLine("serving as org.zarnet.other"));
}

TEST_F(Viewer, HelpsAndTellsItsVersion) {
  const Outcome help = RunViewer({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_THAT(help.output, HasSubstr("--ready-fd FD"));
  EXPECT_EQ(RunViewer({"--version"}).output, "kavrel-viewer " KAVREL_VERSION "\n");
}

TEST_F(Viewer, ServesOnWithoutAReaderOfItsOutput) {
  Pipe dead = MakePipe();
  dead.read.Reset();
  // What becomes standard error here becomes the viewer's standard output.
  ChildOptions options = Options("/bin/bash", {"-c", "exec \"$VIEWER\" 3>&2 2>&1 >&3 3>&-"});
  options.errors = dead.write.get();
  ChildProcess viewer(options);
  ASSERT_TRUE(viewer.WaitForLine("serving as"));
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  EXPECT_TRUE(viewer.WaitForLine("standard output is gone (Broken pipe)"));
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  viewer.Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(viewer).exit_code, 0);
}

TEST_F(Viewer, ServesWithoutStandardStreams) {
  ChildProcess viewer(
      Options("/bin/bash", {"-c", "exec 3>&1; exec \"$VIEWER\" --ready-fd 3 <&- >&- 2>&-"}));
  ASSERT_EQ(viewer.WaitForLine(""), "");
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  viewer.Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(viewer).exit_code, 0);
}

// Nobody takes lines out of the pipe, which is full after a few hundred of them.
TEST_F(Viewer, ServesOnWhileNobodyReadsItsOutput) {
  Pipe full = MakePipe();
  ChildOptions options = Options("/bin/bash", {"-c", "exec \"$VIEWER\" --json 3>&2 2>&1 >&3 3>&-"});
  options.errors = full.write.get();
  ChildProcess viewer(options);
  ASSERT_TRUE(viewer.WaitForLine("serving as"));
  const std::string text(30000, 'x');
  for (int i = 0; i < 8; ++i) EXPECT_EQ(Tool({"call", "set-tvs-hint", text}).exit_code, 0);
  EXPECT_EQ(Tool({"call", "get-window-size"}).output, "size    0\nresult  true\n");
}

}  // namespace
}  // namespace kavrel_test
