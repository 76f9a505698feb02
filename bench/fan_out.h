// Some processes that wait for something, and how long it takes to wake all of them.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "measure.h"
#include "shared.h"

namespace kavrel_bench {

/// A kind of wake-up: a function that waits for ever, says when it does and calls `called` each
/// time, and one that wakes everybody.
struct WakeUp {
  using WaitFunction =
      std::function<void(const std::function<void()>& ready, const std::function<void()>& called)>;
  WaitFunction wait;
  std::function<void()> wake;
};

/// The watchers, and the process that wakes them, which is the calling one.
class FanOut {
 public:
  static constexpr int kAnyProcessor = -1;

  FanOut(int watchers, int cpu, const WakeUp& kind)
      : watchers_(watchers), done_(eventfd(0, 0)), shared_(MakeShared<Shared>()), wake_(kind.wake) {
    for (int i = 0; i < watchers; ++i) {
      children_.push_back(std::make_unique<Child>([this, cpu, &kind] {
        if (cpu != kAnyProcessor) PinTo(cpu);
        try {
          kind.wait([this] { ++shared_->ready; }, [this] { Called(); });
        } catch (const std::exception&) {
          shared_->failed = true;
        }
      }));
      if (i % kAtOnce == kAtOnce - 1) AwaitWatchers(i + 1);
    }
    AwaitWatchers(watchers);
    usleep(20'000 + static_cast<unsigned>(watchers) * 500);  // until all of them sleep
  }
  FanOut(const FanOut&) = delete;
  FanOut& operator=(const FanOut&) = delete;
  ~FanOut() {
    close(done_);
    munmap(shared_, sizeof(Shared));
  }

  /// Microseconds from the wake-up's begin to the last watcher; `waking` to its return. Throws
  /// std::runtime_error when a watcher is never woken.
  double Once(double* waking = nullptr) {
    shared_->called = 0;
    const Clock::rep start = Now();
    wake_();
    const Clock::rep returned = Now();
    AwaitAll();
    if (waking != nullptr) *waking = static_cast<double>(returned - start) / 1000;
    return static_cast<double>(shared_->last - start) / 1000;
  }

  /// Waits until every watcher has slept again after the last round, and, where there are many,
  /// until who woke them has rested.
  void Settle() const {
    const auto watchers = static_cast<unsigned>(watchers_);
    usleep(watchers < 4 ? watchers * 20 : 1000 + watchers * 60);
  }

  /// What all watchers have used so far.
  std::vector<pid_t> processes() const {
    std::vector<pid_t> pids;
    for (const auto& child : children_) pids.push_back(child->pid());
    return pids;
  }

 private:
  static constexpr int kAtOnce = 50;  // of a thousand that start together some would give up

  struct Shared {
    std::atomic<Clock::rep> last;
    std::atomic<int> called;
    std::atomic<int> ready;
    std::atomic<bool> failed;
  };

  static Clock::rep Now() { return Clock::now().time_since_epoch().count(); }

  void AwaitWatchers(int started) const {
    while (shared_->ready < started) {
      if (shared_->failed) throw std::runtime_error("a watcher cannot watch");
      usleep(1000);
    }
  }

  void AwaitAll() const {
    constexpr int kLimitMs = 3000;
    pollfd all{done_, POLLIN, 0};
    if (poll(&all, 1, kLimitMs) != 1) throw std::runtime_error("a watcher was never told");
    eventfd_t count = 0;
    eventfd_read(done_, &count);
  }

  void Called() {
    const Clock::rep now = Now();
    if (++shared_->called != watchers_) return;
    shared_->last = now;
    eventfd_write(done_, 1);
  }

  const int watchers_;
  const int done_;
  Shared* const shared_;
  const std::function<void()> wake_;
  std::vector<std::unique_ptr<Child>> children_;
};

}  // namespace kavrel_bench
