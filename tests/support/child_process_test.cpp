#include "child_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "temporary_directory.h"

namespace kavrel_test {
namespace {

ChildOptions Shell(const std::string& script) {
  return {.arguments = {"/bin/sh", "-c", script}};
}

TEST(ChildProcess, CapturesBothOutputsAndTheExitCode) {
  ChildProcess child(Shell("echo out; echo err >&2; exit 7"));
  EXPECT_EQ(child.WaitForExit(), 7);
  EXPECT_EQ(child.output(), "out\n");
  EXPECT_EQ(child.errors(), "err\n");
}

TEST(ChildProcess, WaitsForALineAndHandsEachOutOnce) {
  ChildProcess child(Shell("echo one; echo two; read line; echo \"got $line\"; exec cat"));
  EXPECT_EQ(child.WaitForLine("two"), "two");
  child.WriteInput("three\n");
  EXPECT_EQ(child.WaitForLine("got"), "got three");
  EXPECT_EQ(child.WaitForLine("got", std::chrono::milliseconds(1)), std::nullopt);
  child.CloseInput();
  EXPECT_EQ(child.WaitForExit(), 0);
}

TEST(ChildProcess, EndsTheWaitForALineWhenTheOutputEnds) {
  ChildProcess child(Shell("echo nothing"));
  EXPECT_EQ(child.WaitForLine("something"), std::nullopt);
}

TEST(ChildProcess, ReportsTheSignalThatEndedTheProgram) {
  ChildProcess child(Shell("echo ready; exec cat"));
  ASSERT_TRUE(child.WaitForLine("ready"));
  EXPECT_EQ(child.WaitForExit(std::chrono::milliseconds(1)), std::nullopt);
  child.Signal(SIGTERM);
  EXPECT_EQ(child.WaitForExit(), -SIGTERM);
}

TEST(ChildProcess, IsGoneWithItsOwner) {
  pid_t pid = 0;
  {
    ChildProcess child(Shell("exec cat"));
    pid = child.pid();
  }
  EXPECT_EQ(::kill(pid, 0), -1);
}

TEST(ChildProcess, ChangesTheEnvironment) {
  const ScopedEnvironment kept("KAVREL_TEST_KEPT", "kept");
  const ScopedEnvironment dropped("KAVREL_TEST_DROPPED", "dropped");
  ChildOptions options = Shell("echo \"$KAVREL_TEST_KEPT-$KAVREL_TEST_DROPPED-$KAVREL_TEST_NEW\"");
  options.environment = {{"KAVREL_TEST_DROPPED", std::nullopt}, {"KAVREL_TEST_NEW", "a=b"}};
  ChildProcess child(options);
  EXPECT_EQ(child.WaitForExit(), 0);
  EXPECT_EQ(child.output(), "kept--a=b\n");
}

TEST(ChildProcess, RefusesAMissingProgram) {
  EXPECT_THROW(ChildProcess({.arguments = {"/no/such/program"}}), std::system_error);
}

TEST(TemporaryDirectory, IsPrivateAndRemovedWithItsContent) {
  std::string path;
  {
    const TemporaryDirectory directory;
    path = directory.path();
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
    std::ofstream(directory.Path("file")) << "content";
    EXPECT_EQ(ReadFile(directory.Path("file")), "content");
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(ScopedEnvironment, RestoresWhatWasThere) {
  const ScopedEnvironment outer("KAVREL_TEST_VALUE", "outer");
  {
    const ScopedEnvironment inner("KAVREL_TEST_VALUE", std::nullopt);
    EXPECT_EQ(std::getenv("KAVREL_TEST_VALUE"), nullptr);
  }
  EXPECT_STREQ(std::getenv("KAVREL_TEST_VALUE"), "outer");
}

}  // namespace
}  // namespace kavrel_test
