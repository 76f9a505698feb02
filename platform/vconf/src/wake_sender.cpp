#include "wake_sender.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "barrier.h"
#include "log.h"

namespace kavrel_vconf {
namespace {

constexpr std::uint64_t kCrowd = 4;
constexpr std::chrono::microseconds kRestForEach{50};
constexpr std::chrono::microseconds kLongestRest{5000};

// How many bytes a process leaves in the file before it empties it.
constexpr unsigned kMostUnread = 1024;

// Kernels from 5.5 to 5.13 tell nobody of a byte behind another one.
bool KernelTellsOfEveryByte() {
  utsname system{};
  if (::uname(&system) != 0) return false;
  unsigned major = 0;
  unsigned minor = 0;
  const char* const end = system.release + std::strlen(system.release);
  const auto [dot, error] = std::from_chars(system.release, end, major);
  if (error != std::errc() || dot == end) return false;
  std::from_chars(dot + 1, end, minor);
  return std::pair(major, minor) >= std::pair(5U, 14U);
}

// The application's signals are not for this thread, and nobody should wait for it: as a batch
// task it does not push the thread that wakes it off its processor.
void BehaveInBackground() {
  sched_param parameters{};
  ::pthread_setschedparam(::pthread_self(), SCHED_BATCH, &parameters);
  ::pthread_setname_np(::pthread_self(), "vconf-wake");
}

/// All signals blocked while this object lives, so that a thread begun meanwhile gets none.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

WakeSender::WakeSender(kavrel_platform::UniqueFd fifo, ControlPage* control)
    : fifo_(std::move(fifo)), control_(control), every_byte_tells_(KernelTellsOfEveryByte()) {}

std::uint64_t WakeSender::CountSleepers() const {
  const std::uint64_t asleep = control_->asleep.load(std::memory_order_relaxed);
  const std::uint64_t woken = control_->woken.load(std::memory_order_relaxed);
  return asleep > woken ? asleep - woken : 0;
}

// Watchers say that they sleep and then look once more; we have changed something and then look
// who sleeps. With a full barrier on both sides one of the two sees the other.
void WakeSender::Wake() {
  FullBarrier();
  const std::uint64_t sleepers = CountSleepers();
  if (sleepers == 0 || due_.load(std::memory_order_acquire)) return;
  if (sleepers < kCrowd && !resting_.load(std::memory_order_acquire)) {
    WakeNow();
  } else {
    WakeSoon();
  }
}

void WakeSender::WakeNow() {
  const std::uint64_t asleep = control_->asleep.load(std::memory_order_seq_cst);
  std::uint64_t woken = control_->woken.load(std::memory_order_relaxed);
  const bool is_full = written_.fetch_add(1, std::memory_order_relaxed) % kMostUnread == 0;
  if (is_full || !every_byte_tells_) Empty();
  if (!Write() && (Empty(), !Write())) {
    VCONF_LOG_ERROR("cannot wake watchers: %s", std::strerror(errno));
    return;  // whoever sleeps is woken with the next change
  }
  while (woken < asleep && !control_->woken.compare_exchange_weak(woken, asleep)) {
  }
}

bool WakeSender::Write() const {
  return ::write(fifo_.get(), "!", 1) == 1;
}

// A byte that another writer adds in between was added after our change and tells of it just as
// well.
void WakeSender::Empty() const {
  std::array<char, kMostUnread> earlier;
  while (::read(fifo_.get(), earlier.data(), earlier.size()) ==
         static_cast<ssize_t>(earlier.size())) {
  }
}

void WakeSender::WakeSoon() {
  {
    const std::lock_guard lock(mutex_);
    if (stops_ || !StartThread()) {
      WakeNow();
      return;
    }
    due_.store(true, std::memory_order_release);
  }
  condition_.notify_one();
}

bool WakeSender::StartThread() {
  if (has_thread_) return true;
  const BlockedSignals blocked;
  try {
    std::thread([self = shared_from_this()] { self->RunThread(); }).detach();
    has_thread_ = true;
  } catch (const std::exception& error) {
    VCONF_LOG_WARNING("no thread to wake watchers: %s", error.what());
  }
  return has_thread_;
}

void WakeSender::RunThread() {
  BehaveInBackground();
  std::unique_lock lock(mutex_);
  while (true) {
    condition_.wait(lock, [this] { return due_ || stops_; });
    if (!due_) return;
    const auto sleepers = static_cast<std::int64_t>(std::min<std::uint64_t>(CountSleepers(), 1000));
    resting_.store(true, std::memory_order_release);
    // Before the round: a change that comes while it goes on is due another one.
    due_.store(false, std::memory_order_seq_cst);
    lock.unlock();
    WakeNow();
    lock.lock();
    const auto rest = std::min(kLongestRest, sleepers * kRestForEach);
    condition_.wait_for(lock, rest, [this] { return stops_; });
    resting_.store(false, std::memory_order_release);
  }
}

void WakeSender::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stops_ = true;
  }
  condition_.notify_one();
}

void WakeSender::Finish() {
  if (due_.exchange(false)) WakeNow();
}

}  // namespace kavrel_vconf
