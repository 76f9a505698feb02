// What people see when something is wrong: exit code, one clear line, never past the deadline.
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "null_service.h"
#include "programs.h"
#include "viewer_process.h"

namespace kavrel_test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

bool IsOneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

class ToolFailures : public Programs {};

TEST_F(ToolFailures, NobodyListens) {
  for (const char* method : {"get-window-size", "check-state-for-vistane"}) {
    const Outcome outcome = Tool({"call", method});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
    EXPECT_THAT(outcome.errors,
                StartsWith("kavrelctl: cannot reach the viewer \"org.zarnet.kavrel\": nobody "
                           "listens; start one with kavrel-viewer, or name another with --app-id "
                           "(log: "));
  }
  EXPECT_EQ(Tool({"call", "exit-ttx", "x"}).exit_code, 1);
}

TEST_F(ToolFailures, JsonTellsTheFailureToo) {
  const Outcome outcome = Tool({"call", "get-window-size", "--app-id", "org.other", "--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  const auto answer = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(answer["ok"], false);
  EXPECT_EQ("kavrelctl: " + answer["error"].get<std::string>() + '\n', outcome.errors);
  EXPECT_THAT(outcome.errors, HasSubstr("\"org.other\""));
}

TEST_F(ToolFailures, ADirectoryThatOthersMayWriteTo) {
  ASSERT_EQ(::chmod(directory_.path().c_str(), 0777), 0);
  const Outcome outcome = Tool({"call", "get-window-size"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
  EXPECT_THAT(outcome.errors, HasSubstr("its runtime directory is not to be trusted (log: "));
}

TEST_F(ToolFailures, AStoppedViewer) {
  const auto viewer = StartViewer();
  viewer->Signal(SIGSTOP);
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"call", "get-window-size", "--timeout", "0.3"},
        {"--timeout", "0.3", "call", "exit-ttx", "x"},
        {"call", "--timeout", "0.3", "exit-ttx", "x"}}) {
    const Outcome outcome = Tool(command);
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("it does not answer (limit 0.3 s)"));
  }
  viewer->Signal(SIGCONT);
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
}

// Says on a pipe that it was asked, and never answers.
class SilentService final : public NullService {
 public:
  SilentService(std::string sender, std::string instance, int asked)
      : NullService(std::move(sender), std::move(instance)), asked_(asked) {}
  bool GetWindowSize(int& /*size*/) override {
    if (::write(asked_, "\n", 1) != 1) return false;
    while (true) ::pause();
  }

 private:
  int asked_;
};

class CallUnderWay : public ToolFailures {
 protected:
  CallUnderWay()
      : runtime_("KAVREL_RUNTIME_DIR", directory_.path()),
        asked_(MakePipe()),
        viewer_("org.zarnet.silent", [fd = asked_.write.get()](std::string sender,
                                                               std::string instance) {
          return std::make_unique<SilentService>(std::move(sender), std::move(instance), fd);
        }) {}

  std::unique_ptr<ChildProcess> Ask(const char* timeout) {
    auto tool = StartTool(
        {"call", "get-window-size", "--app-id", "org.zarnet.silent", "--timeout", timeout});
    pollfd asked{asked_.read.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&asked, 1, static_cast<int>(kGenerous.count())), 1);
    return tool;
  }

  ScopedEnvironment runtime_;
  Pipe asked_;
  ViewerProcess viewer_;
};

TEST_F(CallUnderWay, TheViewerIsKilled) {
  const auto tool = Ask("0");
  viewer_.Kill();
  const Outcome outcome = OutcomeOf(*tool);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
  EXPECT_THAT(outcome.errors,
              HasSubstr("\"org.zarnet.silent\" ended the connection without an answer to "
                        "get-window-size"));
}

TEST_F(CallUnderWay, TheViewerDoesNotAnswer) {
  // Long enough for the connection on a loaded machine.
  const Outcome outcome = OutcomeOf(*Ask("3"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
  EXPECT_THAT(outcome.errors,
              HasSubstr("\"org.zarnet.silent\" does not answer get-window-size within 3 s"));
}

TEST_F(CallUnderWay, ThePersonInterrupts) {
  const auto tool = Ask("0");
  tool->Signal(SIGINT);
  EXPECT_EQ(OutcomeOf(*tool).exit_code, -SIGINT);
}

TEST_F(ToolFailures, ARequestThatIsTooLarge) {
  const auto viewer = StartViewer();
  std::vector<std::string> command = {"call", "send-mbr-key", "1", "2", "3", "KEY"};
  for (int i = 0; i < 12; ++i) {
    command.emplace_back("--list");
    command.emplace_back(100000, 'x');
  }
  const Outcome outcome = Tool(command);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors.substr(0, 500);
  EXPECT_THAT(outcome.errors, HasSubstr("cannot send send-mbr-key"));
}

TEST_F(ToolFailures, NobodyReadsTheOutput) {
  const auto viewer = StartViewer();
  for (const std::vector<std::string>& command : {std::vector<std::string>{"methods"},
                                                  {"--help"},
                                                  {"--version"},
                                                  {"call", "--help"},
                                                  {"call", "get-window-size"},
                                                  {"call", "exit-ttx", "x", "--json"},
                                                  {"get", "--all"},
                                                  {"get", "kavrel_state"},
                                                  {"watch"},
                                                  {"man"},
                                                  {"completion", "bash"}}) {
    const Outcome outcome = ToolWithoutReader(command);
    EXPECT_EQ(outcome.exit_code, 1) << command.front();
    EXPECT_THAT(outcome.errors, Not(HasSubstr("cannot write"))) << command.front();
  }
}

TEST_F(ToolFailures, TheOutputCannotBeWritten) {
  const auto viewer = StartViewer();
  for (const char* redirection : {">&-", ">/dev/full"}) {
    const Outcome outcome =
        Script(std::string("\"$KAVRELCTL\" call get-window-size ") + redirection);
    EXPECT_EQ(outcome.exit_code, 1) << redirection;
    EXPECT_THAT(outcome.errors, StartsWith("kavrelctl: cannot write the output: "));
  }
}

TEST_F(ToolFailures, ClosedStreamsDoNotEndUpInTheConnection) {
  const auto viewer = StartViewer();
  EXPECT_EQ(Script("\"$KAVRELCTL\" call get-window-size <&- 2>&-").output,
            "size    0\nresult  true\n");
  EXPECT_EQ(Script("\"$KAVRELCTL\" call exit-ttx x --verbose <&- >&- 2>&-").exit_code, 1);
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
}

TEST_F(ToolFailures, LogLinesAreShownWhenAskedFor) {
  const auto viewer = StartViewer();
  const Outcome quiet = Tool({"call", "get-window-size"});
  EXPECT_EQ(quiet.errors, "");
  const Outcome verbose = Tool({"call", "get-window-size", "--verbose"});
  EXPECT_EQ(verbose.exit_code, 0);
  EXPECT_EQ(verbose.output, quiet.output);
  EXPECT_THAT(verbose.errors, HasSubstr("I kavrel-api: kavrel_app_api.cpp: kavrel_api_create("));
  EXPECT_THAT(verbose.errors, HasSubstr("W RPC_PORT_PROXY: KavrelAppApiProxy.cpp: GetWindowSize("));
  // What the platform's services log goes the same way.
  ASSERT_EQ(::chmod(directory_.path().c_str(), 0777), 0);
  EXPECT_THAT(Tool({"call", "get-window-size", "--verbose"}).errors, HasSubstr("E RPC_PORT: "));
}

}  // namespace
}  // namespace kavrel_test
