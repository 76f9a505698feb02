// Everything that a test's fakes are told and everything that is logged, in one order.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "dlog_capture.h"

namespace framework_test {

/// The lines of the running test; fakes write it on the test's thread.
inline std::vector<std::string>& Lines() {
  static std::vector<std::string> lines;
  return lines;
}

inline void Note(std::string line) {
  Lines().push_back(std::move(line));
}

inline std::vector<std::string> TakeLines() {
  return std::exchange(Lines(), {});
}

/// Logged lines become "<priority> <function>: <text>"; those of the key set are only noted when a
/// test asks for them.
class JournalTest : public testing::Test {
 protected:
  JournalTest() {
    Lines().clear();
    log_.Observe([this](const kavrel_test::LogEntry& entry) {
      EXPECT_EQ(entry.tag, "kavrel-api");
      if (entry.file == "KeyRepository.cpp" && !keep_key_sets_) return;
      Note(std::to_string(entry.priority) + ' ' + entry.function + ": " + entry.text);
    });
  }

  bool keep_key_sets_ = false;
  kavrel_test::DlogCapture log_;
};

/// For death tests: in the process that dies, the log goes to its standard error.
inline void ShowLogOnStandardError(kavrel_test::DlogCapture& log) {
  log.Observe([](const kavrel_test::LogEntry& entry) {
    (void)std::fprintf(stderr, "%s %s: %s", entry.file.c_str(), entry.function.c_str(),
                       entry.text.c_str());
  });
}

}  // namespace framework_test
