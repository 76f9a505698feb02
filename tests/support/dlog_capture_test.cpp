#include "dlog_capture.h"

#include <dlog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(DlogCapture, TakesThePrefixApart) {
  DlogCapture log;
  EXPECT_EQ(dlog_print(6, "tag", "%s: %s(%d) > result(%d)\n", "File.cpp", "Method", 17, -5),
            static_cast<int>(std::string("File.cpp: Method(17) > result(-5)\n").size()));
  EXPECT_THAT(log.Take(), ElementsAre(LogEntry{6, "tag", "File.cpp", "Method", "result(-5)\n"}));
  EXPECT_THAT(log.Take(), SizeIs(0));
}

TEST(DlogCapture, KeepsTextsThatOnlyResembleAPrefix) {
  for (const char* const text :
       {"File.cpp: Method() > text", "src/File.cpp: Method(1) > text", "File.cpp: Method(0) > text",
        "File.cpp: a b(1) > text", "File.cpp Method(1) > text", "File.cpp: Method(1) >text"}) {
    EXPECT_EQ(ParseLogEntry(4, "tag", text), (LogEntry{4, "tag", "", "", text}));
  }
  EXPECT_EQ(ParseLogEntry(4, "t", "a.cpp: ~B(1) > x: y(2) > z"),
            (LogEntry{4, "t", "a.cpp", "~B", "x: y(2) > z"}));
}

TEST(DlogCapture, KeepsTheRecordsOfAllThreads) {
  DlogCapture log;
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
        for (int k = 0; k < 100; ++k) __dlog_print(0, 4, "tag", "%d", k);
      });
    }
  }
  EXPECT_THAT(log.entries(), SizeIs(400));
}

TEST(DlogCapture, TellsItsObserverInOrder) {
  DlogCapture log;
  std::vector<std::string> texts;
  log.Observe([&](const LogEntry& entry) { texts.push_back(entry.text); });
  dlog_print(4, "tag", "one");
  dlog_print(4, nullptr, "two");
  EXPECT_THAT(texts, ElementsAre("one", "two"));
  EXPECT_EQ(log.entries().back().tag, "");
}

TEST(DlogCapture, IsOneAtATimeAndForOneTestOnly) {
  {
    const DlogCapture log;
    EXPECT_THROW(DlogCapture(), std::logic_error);
  }
  dlog_print(4, "tag", "nobody's");
  EXPECT_THAT(DlogCapture().Take(), SizeIs(0));
}

TEST(DlogCapture, RefusesWhatTheServiceRefuses) {
  DlogCapture log;
  EXPECT_EQ(dlog_print(1, "tag", "text"), -22);
  EXPECT_THAT(log.Take(), SizeIs(0));
}

}  // namespace
}  // namespace kavrel_test
