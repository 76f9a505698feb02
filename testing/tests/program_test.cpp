#include <gtest/gtest.h>
#include <kavrel/testing.h>

#include <csignal>
#include <cstdlib>
#include <system_error>

namespace kavrel::testing {
namespace {

TEST(Program, IsFoundOnPath) {
  Program shell({"sh", "-c", "echo out; echo err >&2; exit 7"});
  EXPECT_EQ(shell.WaitForExit(), 7);
  EXPECT_EQ(shell.output(), "out\n");
  EXPECT_EQ(shell.errors(), "err\n");
}

TEST(Program, IsMissed) {
  EXPECT_THROW(Program({"no-such-program"}), std::system_error);
  EXPECT_THROW(Program({"/no/such/program"}), std::system_error);
  EXPECT_THROW(Program({}), std::system_error);
}

TEST(Program, GetsVariablesAndInput) {
  ::setenv("KAVREL_TESTING_PROBE", "inherited", 1);
  Program shell({"sh", "-c", "echo \"$A ${KAVREL_TESTING_PROBE-none}\"; read line; echo \"$line\""},
                {{"A", "a"}, {"KAVREL_TESTING_PROBE", std::nullopt}});
  EXPECT_EQ(shell.WaitForLine("a"), "a none");
  shell.Write("hello\n");
  EXPECT_EQ(shell.WaitForLine("hel"), "hello");
  EXPECT_EQ(shell.WaitForExit(), 0);
}

TEST(Program, IsWaitedForNoLongerThanTheLimit) {
  Program cat({"cat"});
  EXPECT_EQ(cat.WaitForLine("never", Milliseconds(1)), std::nullopt);
  EXPECT_EQ(cat.WaitForExit(Milliseconds(1)), std::nullopt);
  cat.Signal(SIGTERM);
  EXPECT_EQ(cat.WaitForExit(), -SIGTERM);
}

TEST(Program, EndsWithItsInput) {
  Program cat({"cat"});
  cat.CloseInput();
  EXPECT_EQ(cat.WaitForExit(), 0);
}

TEST(Program, DiesWithItsObject) {
  auto cat = std::make_unique<Program>(std::vector<std::string>{"cat"});
  const int pid = cat->pid();
  EXPECT_EQ(::kill(pid, 0), 0);
  cat.reset();
  EXPECT_EQ(::kill(pid, 0), -1);
}

}  // namespace
}  // namespace kavrel::testing
