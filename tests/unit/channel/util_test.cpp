#include "legacy/Util.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "dlog_capture.h"

namespace {

using kavrel_test::DlogCapture;
using kavrel_test::LogEntry;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(CheckNameValidity, TakesLettersDigitsAndDashes) {
  const DlogCapture log;
  for (const char* name : {"a", "Z", "0", "-", "kavrel", "kavrel-compositor", "7up", "--"}) {
    EXPECT_TRUE(util::CheckNameValidity(name)) << name;
  }
  EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(CheckNameValidity, RefusesEveryOtherByteWithoutALine) {
  const DlogCapture log;
  const std::string allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-";
  for (int byte = 1; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool expected = allowed.find(c) != std::string::npos;
    EXPECT_EQ(util::CheckNameValidity(std::string(1, c).c_str()), expected) << byte;
    EXPECT_EQ(util::CheckNameValidity(("a" + std::string(1, c)).c_str()), expected) << byte;
  }
  EXPECT_FALSE(util::CheckNameValidity("tele_text"));
  EXPECT_FALSE(util::CheckNameValidity("tele.text"));
  EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(CheckNameValidity, LogsANameThatIsNotThere) {
  DlogCapture log;
  const LogEntry line{6, "kavrel-api", "Util.cpp", "CheckNameValidity", "name is null!\n"};
  EXPECT_FALSE(util::CheckNameValidity(nullptr));
  EXPECT_THAT(log.Take(), ElementsAre(line));
  EXPECT_FALSE(util::CheckNameValidity(""));
  EXPECT_THAT(log.Take(), ElementsAre(line));
}

TEST(CombinateFormatedString, ReplacesTheFirstPlaceOnly) {
  using util::CombinateFormatedString;
  EXPECT_EQ(CombinateFormatedString("org.zarnet.%s", "kavrel-compositor", true),
            "org.zarnet.kavrelcompositor");
  EXPECT_EQ(CombinateFormatedString("org.zarnet.%s", "kavrel-compositor", false),
            "org.zarnet.kavrel-compositor");
  EXPECT_EQ(CombinateFormatedString("%s.%s", "a", true), "a.%s");
  EXPECT_EQ(CombinateFormatedString("no place", "a", true), "no place");
  EXPECT_EQ(CombinateFormatedString("a-%s-b", "--", true), "a--b");
  EXPECT_EQ(CombinateFormatedString("", "a", false), "");
}

TEST(CombinateFormatedString, ParsesNothing) {
  EXPECT_EQ(util::CombinateFormatedString("%d %%s %s", "%s%n", false), "%d %%s%n %s");
  EXPECT_EQ(util::CombinateFormatedString("%", "a", false), "%");
}

TEST(GetCurrentTimeInMillis, IsTheSteadyClock) {
  const auto now = [] {
    return static_cast<unsigned long long>(std::chrono::floor<std::chrono::milliseconds>(
                                               std::chrono::steady_clock::now().time_since_epoch())
                                               .count());
  };
  const auto before = now();
  const auto measured = util::GetCurrentTimeInMillis();
  EXPECT_LE(before, measured);
  EXPECT_LE(measured, now());
}

}  // namespace
