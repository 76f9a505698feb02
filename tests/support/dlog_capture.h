// A log service that keeps what is logged: it stands in for libdlog in a test program.
#pragma once

#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

namespace kavrel_test {

inline constexpr int kLogInfo = 4;
inline constexpr int kLogWarning = 5;
inline constexpr int kLogError = 6;

/// One record. The prefix "<file>: <function>(<line>) > " is taken apart; the line number, which
/// changes with every edit, is checked and dropped.
struct LogEntry {
  int priority = 0;
  std::string tag;
  std::string file;  ///< empty, like function, when the record has no such prefix
  std::string function;
  std::string text;  ///< what follows the prefix, or the whole record

  bool operator==(const LogEntry&) const = default;
};

void PrintTo(const LogEntry& entry, std::ostream* out);

/// The log of the test that holds it; one at a time. Records are kept from any thread.
class DlogCapture {
 public:
  DlogCapture();
  DlogCapture(const DlogCapture&) = delete;
  DlogCapture& operator=(const DlogCapture&) = delete;
  ~DlogCapture();

  /// The records since the last time, in order.
  std::vector<LogEntry> Take();
  /// The records since the last Take(), which stay.
  std::vector<LogEntry> entries() const;

  /// Is told of each record as it is logged, on the thread that logs, for a test that wants calls
  /// of other fakes and log lines in one order.
  void Observe(std::function<void(const LogEntry&)> observer);

 private:
  friend struct FakeDlogFunctions;

  void Record(LogEntry entry);

  mutable std::mutex mutex_;
  std::vector<LogEntry> entries_;
  std::function<void(const LogEntry&)> observer_;
};

/// Takes a record's prefix apart.
LogEntry ParseLogEntry(int priority, const std::string& tag, const std::string& record);

}  // namespace kavrel_test
