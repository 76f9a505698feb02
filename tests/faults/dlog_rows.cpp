// The log service.
#include <dlog.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "temporary_directory.h"
#include "trial.h"

namespace faults_test {
namespace {

using kavrel_test::ReadFile;
using kavrel_test::TemporaryDirectory;

int Log(const std::string& text) {
  return dlog_print(DLOG_ERROR, "faults", "%s", text.c_str());
}

int LogToBuffer(const std::string& text) {
  return __dlog_print(0, DLOG_ERROR, "faults", "%s", text.c_str());
}

constexpr std::string_view kCutMark = " [cut]";

// Whether the log has one line of that text, or of its beginning and the mark of a cut.
bool HasLine(const std::string& written, const std::string& text) {
  const std::size_t begin = written.find(": x");
  if (begin == std::string::npos) return false;
  const std::string line = written.substr(begin + 2, written.find('\n', begin) - begin - 2);
  if (line == text) return true;
  const std::size_t cut = line.find(kCutMark);
  return cut != std::string::npos && cut >= 1000 && cut + kCutMark.size() == line.size() &&
         text.starts_with(line.substr(0, cut));
}

// A record is in the file - without memory a long one is cut - or its loss was told: by the call,
// and by the next record that gets through.
template <class Function>
std::function<void(Trial&)> LosesNothingUntold(Function log, std::size_t size, bool is_first) {
  return [=](Trial& trial) {
    const TemporaryDirectory directory;
    const std::string path = directory.Path("log");
    ::setenv("KAVREL_LOG", ("file:" + path).c_str(), 1);
    if (!is_first) {
      EXPECT_EQ(log("first"), 5);
    }
    const std::string text(size, 'x');
    const auto result = trial.Call([&] { return log(text); });
    const bool was_lost = result.value_or(0) < 0;
    if (was_lost) trial.ExpectErrno(result);
    EXPECT_EQ(log("after it"), 8);
    const std::string written = ReadFile(path);
    // With its first record a process may have found that it cannot use the file.
    if (is_first && written.empty()) return;
    EXPECT_EQ(HasLine(written, text), !was_lost);
    EXPECT_TRUE(written.ends_with(": after it\n"));
    EXPECT_EQ(written.find("1 records before this were lost") != std::string::npos, was_lost);
  };
}

constexpr std::size_t kShort = 10;
constexpr std::size_t kLong = 100'000;

}  // namespace

Rows DlogRows() {
  return {
      {"first_record", {"dlog_print"}, LosesNothingUntold(Log, kShort, true)},
      {"short_record", {"dlog_print"}, LosesNothingUntold(Log, kShort, false)},
      {"long_record", {"dlog_print"}, LosesNothingUntold(Log, kLong, false)},
      {"first_record_to_a_buffer", {"__dlog_print"}, LosesNothingUntold(LogToBuffer, kShort, true)},
      {"long_record_to_a_buffer", {"__dlog_print"}, LosesNothingUntold(LogToBuffer, kLong, false)},
  };
}

}  // namespace faults_test
