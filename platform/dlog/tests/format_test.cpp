// What a record looks like, and which records there are.
#include <dlog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "writer.h"

namespace dlog_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const Environment kStderr = {{"KAVREL_LOG", "stderr"}};

TEST(Format, GoldenLine) {
  const Outcome outcome = RunWriter({"print", "4", "RPC_PORT_PROXY", "KavrelAppApi_Foo"}, kStderr);
  EXPECT_TRUE(std::regex_match(
      outcome.errors,
      std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z I RPC_PORT_PROXY (\d+)/\1: )"
                 "KavrelAppApi_Foo\n")))
      << outcome.errors;
  EXPECT_EQ(outcome.output, "16\n");
}

TEST(Format, EachPriorityHasItsLetter) {
  Words words;
  for (const char* priority : {"2", "3", "4", "5", "6", "7"}) {
    words.insert(words.end(), {"print", priority, "tag", "text"});
  }
  const Outcome outcome =
      RunWriter(words, {{"KAVREL_LOG", "stderr"}, {"KAVREL_LOG_LEVEL", "verbose"}});
  std::string letters;
  for (const std::string& line : Lines(outcome.errors)) letters += line.at(28);
  EXPECT_EQ(letters, "VDIWEF");
}

TEST(Format, BufferNumberMakesNoDifference) {
  const Outcome outcome = RunWriter(
      {"buffer-print", "0", "6", "tag", "one", "buffer-print", "9", "6", "tag", "two"}, {});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("one", "two"));
  EXPECT_EQ(outcome.output, "3\n3\n");
}

TEST(Format, TheNewlineAtTheEndIsTheRecordsEnd) {
  const Outcome outcome = RunWriter({"print", "6", "tag", "text\n", "print", "6", "tag", "\n"}, {});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("text", ""));
}

TEST(Format, NothingInATextOrTagEndsTheLine) {
  const Outcome outcome =
      RunWriter({"print", "6", "t\na\rg", "a\nb\rc\n\nd\x1b[31m\x7f\te\xc2\x85\xe2\x80\xa8"}, {});
  ASSERT_EQ(Lines(outcome.errors).size(), 1U);
  EXPECT_THAT(outcome.errors, HasSubstr(" E t\\na\\rg "));
  EXPECT_THAT(Texts(outcome.errors),
              ElementsAre("a\\nb\\rc\\n\\nd\\x1b[31m\\x7f\te\\xc2\\x85\\xe2\\x80\\xa8"));
}

TEST(Format, PercentSignsOfATextAreLiteral) {
  const Outcome outcome = RunWriter({"print", "6", "%s%n", "100% %s %n %1000000d"}, {});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("100% %s %n %1000000d"));
}

TEST(Format, InvalidUtf8IsShownByteByByteAndTheRestKept) {
  const Outcome outcome =
      RunWriter({"print", "6", "tag", "gr\xc3\xbc\xc3\x9f \xff\xc3 \xe2\x82\xac \xf0\x9f\x98"}, {});
  EXPECT_THAT(Texts(outcome.errors),
              ElementsAre("gr\xc3\xbc\xc3\x9f \\xff\\xc3 \xe2\x82\xac \\xf0\\x9f\\x98"));
}

TEST(Format, AnEmptyTagIsADash) {
  EXPECT_THAT(RunWriter({"print", "6", "", "text"}, {}).errors, HasSubstr(" E - "));
}

TEST(Format, ErrnoIsPrintedAndKept) {
  const Outcome outcome = RunWriter({"errno"}, {});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("No such file or directory!"));
  EXPECT_EQ(outcome.output, "kept\n");
}

TEST(Filter, DefaultIsErrorOnStandardError) {
  const Outcome outcome =
      RunWriter({"print", "5", "tag", "dropped", "print", "6", "tag", "kept"}, {});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("kept"));
  EXPECT_EQ(outcome.output, "0\n4\n");
}

TEST(Filter, AChosenOutputShowsInfo) {
  const Outcome outcome =
      RunWriter({"print", "3", "tag", "dropped", "print", "4", "tag", "kept"}, kStderr);
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("kept"));
}

class FilterByLevel : public testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(FilterByLevel, ShowsThatPriorityAndAbove) {
  const auto [level, least] = GetParam();
  Words words;
  for (int priority = 2; priority <= 7; ++priority) {
    words.insert(words.end(), {"print", std::to_string(priority), "t", std::to_string(priority)});
  }
  const Outcome outcome = RunWriter(words, {{"KAVREL_LOG_LEVEL", level}});
  std::vector<std::string> expected;
  for (int priority = least; priority <= 7; ++priority) {
    expected.push_back(std::to_string(priority));
  }
  EXPECT_EQ(Texts(outcome.errors), expected);
}

INSTANTIATE_TEST_SUITE_P(NamesAndNumbers, FilterByLevel,
                         testing::Values(std::pair("verbose", 2), std::pair("debug", 3),
                                         std::pair("info", 4), std::pair("warning", 5),
                                         std::pair("error", 6), std::pair("fatal", 7),
                                         std::pair("none", 8), std::pair("2", 2), std::pair("7", 7),
                                         std::pair("8", 8)),
                         [](const auto& level) { return std::string(level.param.first); });

TEST(Filter, NoneLogsNothing) {
  const Outcome outcome = RunWriter({"print", "7", "tag", "text"}, {{"KAVREL_LOG", "none"}});
  EXPECT_THAT(outcome.errors, IsEmpty());
  EXPECT_EQ(outcome.output, "0\n");
}

TEST(Filter, AnUnknownLevelGivesOneLineAndTheDefault) {
  const Outcome outcome = RunWriter({"print", "5", "tag", "dropped", "print", "6", "tag", "kept"},
                                    {{"KAVREL_LOG_LEVEL", "loud"}});
  EXPECT_THAT(
      Texts(outcome.errors),
      ElementsAre("KAVREL_LOG_LEVEL is \"loud\", allowed are verbose, debug, info, warning, "
                  "error, fatal, none and 2 to 8: error is used",
                  "kept"));
}

TEST(Filter, AnUnknownOutputGivesOneLineAndStandardError) {
  const Outcome outcome = RunWriter({"print", "6", "tag", "kept"}, {{"KAVREL_LOG", "printer"}});
  EXPECT_THAT(Texts(outcome.errors),
              ElementsAre("KAVREL_LOG is \"printer\", allowed are stderr, journal, journal:SOCKET, "
                          "file:PATH and none: standard error is used",
                          "kept"));
}

TEST(Arguments, UnknownPrioritiesAndANullFormatAreRefused) {
  for (const int priority : {-1, 0, 1, 8, 1000}) {
    EXPECT_EQ(dlog_print(priority, "tag", "text"), -22) << priority;
    EXPECT_EQ(__dlog_print(0, priority, "tag", "text"), -22) << priority;
  }
  const char* const null_format = nullptr;
  EXPECT_EQ(dlog_print(DLOG_VERBOSE, "tag", null_format), -22);
}

}  // namespace
}  // namespace dlog_test
