// The two functions of the log service: filter, format on the caller's stack, write once.
//
// No lock anywhere, so a child that is forked in mid-record can log. The settings are read by the
// first record; when several threads are first at once each reads them and one wins.
#include <dlog.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>

#include "record.h"
#include "settings.h"

namespace kavrel_dlog {
namespace {

// Lets every valid priority through, so that the first record of a process reads the settings.
constinit std::atomic<int> threshold{DLOG_VERBOSE};
constinit std::atomic<Settings*> current{nullptr};
constinit std::atomic<std::uint64_t> lost{0};

int Emit(Sink& sink, const Record& record) noexcept {
  const std::uint64_t lost_before = lost.exchange(0, std::memory_order_relaxed);
  const int result = sink.Write(record, lost_before);
  if (result != 0) lost.fetch_add(lost_before + 1, std::memory_order_relaxed);
  return result;
}

void Complain(const Settings& settings) noexcept {
  if (settings.sink == nullptr) return;
  for (const std::string& complaint : settings.complaints) {
    Emit(*settings.sink, {DLOG_ERROR, "dlog", complaint});
  }
}

Settings* Publish(std::unique_ptr<Settings> settings) noexcept {
  Settings* winner = nullptr;
  if (!current.compare_exchange_strong(winner, settings.get(), std::memory_order_acq_rel)) {
    return winner;
  }
  threshold.store(settings->threshold, std::memory_order_relaxed);
  Complain(*settings);
  return settings.release();  // lives as long as the process: any thread may be logging
}

// Null when there is no memory for the settings.
Settings* Current() noexcept {
  if (Settings* const settings = current.load(std::memory_order_acquire)) return settings;
  try {
    return Publish(std::make_unique<Settings>(ReadSettings()));
  } catch (...) {
    return nullptr;
  }
}

/// Logging leaves errno as it found it, also for a %m in the format.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
  ~ErrnoKeeper() { errno = value_; }
  void Restore() const { errno = value_; }

 private:
  int value_ = errno;
};

// For a record that never got as far as the output.
int Lose(int result) noexcept {
  lost.fetch_add(1, std::memory_order_relaxed);
  return result;
}

int Log(int priority, const char* tag, const char* format, va_list arguments) noexcept {
  const ErrnoKeeper keeper;
  const Settings* const settings = Current();
  if (settings == nullptr) return Lose(-ENOMEM);
  if (priority < settings->threshold) return 0;
  keeper.Restore();
  TextBuffer text;
  if (const int result = FormatText(text, format, arguments); result != 0) return Lose(result);
  const Record record{priority, tag != nullptr ? tag : "", text.view()};
  const int result = Emit(*settings->sink, record);
  return result != 0 ? result : static_cast<int>(text.size());
}

// What is known without looking at the arguments: 1 when the record has to be logged, else the
// result of the call. This is all that a filtered record costs.
inline int Verdict(int priority, const char* format) noexcept {
  if (priority < DLOG_VERBOSE || priority > DLOG_FATAL || format == nullptr) return -EINVAL;
  return priority < threshold.load(std::memory_order_relaxed) ? 0 : 1;
}

}  // namespace
}  // namespace kavrel_dlog

extern "C" int dlog_print(int priority, const char* tag, const char* format, ...) {
  if (const int verdict = kavrel_dlog::Verdict(priority, format); verdict <= 0) return verdict;
  va_list arguments;
  va_start(arguments, format);
  const int result = kavrel_dlog::Log(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}

extern "C" int __dlog_print(int, int priority, const char* tag, const char* format, ...) {
  if (const int verdict = kavrel_dlog::Verdict(priority, format); verdict <= 0) return verdict;
  va_list arguments;
  va_start(arguments, format);
  const int result = kavrel_dlog::Log(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}
