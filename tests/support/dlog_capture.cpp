#include "dlog_capture.h"

#include <dlog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ostream>
#include <regex>
#include <stdexcept>
#include <utility>

#include "failing_allocations.h"

namespace kavrel_test {
namespace {

std::mutex capture_mutex;
DlogCapture* the_capture = nullptr;

std::string Format(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  (void)std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

}  // namespace

LogEntry ParseLogEntry(int priority, const std::string& tag, const std::string& record) {
  static const std::regex prefix(R"(^([^:\s/]+): ([^()\s]+)\([1-9][0-9]*\) > )");
  std::smatch match;
  if (!std::regex_search(record, match, prefix)) return {priority, tag, "", "", record};
  return {priority, tag, match.str(1), match.str(2), match.suffix().str()};
}

void PrintTo(const LogEntry& entry, std::ostream* out) {
  *out << '{' << entry.priority << ", \"" << entry.tag << "\", \"" << entry.file << "\", \""
       << entry.function << "\", \"" << entry.text << "\"}";
}

DlogCapture::DlogCapture() {
  const std::lock_guard lock(capture_mutex);
  if (the_capture != nullptr) throw std::logic_error("there is a fake log already");
  the_capture = this;
}

DlogCapture::~DlogCapture() {
  const std::lock_guard lock(capture_mutex);
  the_capture = nullptr;
}

std::vector<LogEntry> DlogCapture::Take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(entries_, {});
}

std::vector<LogEntry> DlogCapture::entries() const {
  const std::lock_guard lock(mutex_);
  return entries_;
}

void DlogCapture::Observe(std::function<void(const LogEntry&)> observer) {
  const std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

void DlogCapture::Record(LogEntry entry) {
  const std::lock_guard lock(mutex_);
  if (observer_) observer_(entry);
  entries_.push_back(std::move(entry));
}

struct FakeDlogFunctions {
  static int Print(int priority, const char* tag, const char* format, va_list arguments) {
    const FakeAtWork at_work;
    if (priority < DLOG_VERBOSE || priority > DLOG_FATAL || format == nullptr) return -EINVAL;
    const std::string text = Format(format, arguments);
    // Not held by a test: a late event of an earlier one, say.
    const std::lock_guard lock(capture_mutex);
    if (the_capture != nullptr) {
      the_capture->Record(ParseLogEntry(priority, tag != nullptr ? tag : "", text));
    }
    return static_cast<int>(text.size());
  }
};

}  // namespace kavrel_test

extern "C" int dlog_print(int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = kavrel_test::FakeDlogFunctions::Print(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}

extern "C" int __dlog_print(int, int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = kavrel_test::FakeDlogFunctions::Print(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}
