// The descriptors of one stub behind one epoll descriptor, with their deadlines.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "clock.h"
#include "process.h"

namespace kavrel_rpc {

/// What a Poller calls. Its owner keeps it alive until it has been removed.
class Watch {
 public:
  virtual void OnReady(std::uint32_t events) = 0;
  virtual void OnDeadline() {}
  /// Its turn to go on with work that it had put off.
  virtual void OnPending() {}

 protected:
  Watch() = default;
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() = default;

 private:
  friend class Poller;
  std::int64_t deadline_ = kNever;
  bool is_pending_ = false;
};

/// For the thread that delivers events; only Modify is for any thread. Watches may be added and
/// removed from within their own and each other's calls.
class Poller {
 public:
  Poller();

  int fd() const { return epoll_.get(); }

  bool Add(int fd, std::uint32_t events, Watch& watch);
  void Modify(int fd, std::uint32_t events, Watch& watch);
  /// No more calls, also of what was found before. fd -1: the watch has none.
  void Remove(int fd, Watch& watch);

  void SetDeadline(Watch& watch, std::int64_t when);
  bool HasDeadline(const Watch& watch) const { return watch.deadline_ != kNever; }
  void MakePending(Watch& watch);

  /// One round of what is due, pending and ready, without waiting.
  void Turn();
  /// Ends the round that is under way; no more calls at all.
  void Stop() { is_stopped_ = true; }

  /// When Turn has to be called although nothing becomes ready: 0 now.
  std::int64_t NextTurn() const;

 private:
  void CallOverdue();
  void CallPending();
  void CallReady();

  OwnedFd epoll_;
  bool is_stopped_ = false;
  std::set<std::pair<std::int64_t, Watch*>> deadlines_;
  std::vector<Watch*> pending_;  // null: removed
  std::array<struct epoll_event, 16> ready_;
  int ready_count_ = 0;  // entries of ready_ that are being gone through
};

}  // namespace kavrel_rpc
