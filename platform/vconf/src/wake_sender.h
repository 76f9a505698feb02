// The waking side of a wake-up.
//
// Few sleepers are woken at once, by the thread that has changed something. Waking a crowd takes
// as long as a hundred sets, most of it the crowd's own running on the same processors, and a
// writer in a hurry would pay it for every set. So a thread does it for the writer, and rests
// between two rounds in proportion to the crowd: everybody is called soon after the first change
// and then a few hundred times a second, with the newest value, whatever the rate of changes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "control.h"
#include "unique_fd.h"

namespace kavrel_vconf {

/// Any thread.
class WakeSender : public std::enable_shared_from_this<WakeSender> {
 public:
  /// `fifo` is the wake file, open for reading and writing.
  WakeSender(kavrel_platform::UniqueFd fifo, ControlPage* control);
  WakeSender(const WakeSender&) = delete;
  WakeSender& operator=(const WakeSender&) = delete;

  /// Wakes the watchers that sleep, in all processes; free when nobody does. After the change, and
  /// without the writers' lock.
  void Wake();

  /// Ends the thread, after a last round if one is due.
  void Stop();

  /// Does now what the thread has not got round to: the process is ending.
  void Finish();

  /// Closes the wake file and nothing else: in a forked child, where the thread does not exist.
  void AbandonInForkedChild() { fifo_.Reset(); }

 private:
  std::uint64_t CountSleepers() const;
  void WakeSoon();
  bool StartThread();
  void RunThread();
  void WakeNow();
  bool Write() const;
  void Empty() const;

  kavrel_platform::UniqueFd fifo_;
  ControlPage* const control_;
  const bool every_byte_tells_;        // also one behind others that nobody has read
  std::atomic<unsigned> written_ = 0;  // bytes, by this process

  std::mutex mutex_;
  std::condition_variable condition_;
  std::atomic<bool> due_ = false;      // a round is to be made by the thread
  std::atomic<bool> resting_ = false;  // the thread has just made one
  bool has_thread_ = false;
  bool stops_ = false;
};

}  // namespace kavrel_vconf
