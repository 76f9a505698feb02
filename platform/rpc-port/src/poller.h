// The descriptors of one stub, with their deadlines.
//
// The main loop polls a few of them directly: those of the clients that came first, or are busiest.
// The others are behind one epoll descriptor, so that a thousand idle clients cost the main loop no
// more than one. That one is dear, though (as much as three sockets, a tenth of an ordinary call),
// and is polled only while something is behind it.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "clock.h"
#include "event_source.h"
#include "process.h"

namespace kavrel_rpc {

/// What a Poller calls, for one descriptor. Its owner keeps it alive until it has been removed.
class Watch {
 public:
  /// Input, a hang-up, or (in `events` too) room for output.
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
  bool IsBehindEpoll() const { return slot_ == 0 && input_ != 0; }

  // Guarded by the poller's mutex; all but the wish for room is written by its thread alone.
  int fd_ = -1;
  std::uint32_t input_ = 0;  // the events of epoll that it waits for when it is behind it
  std::size_t slot_ = 0;     // of the main loop's source; 0: behind epoll
  bool wants_room_ = false;

  // For the poller's thread.
  std::int64_t deadline_ = kNever;
  bool is_pending_ = false;
  std::uint64_t last_busy_turn_ = 0;
  unsigned busy_turns_ = 0;
};

/// For the thread that delivers events; only AwaitRoom is for any thread. Watches may be added and
/// removed from within their own and each other's calls.
class Poller {
 public:
  Poller();

  /// The source that calls Turn, from its making to its end; it has fd() in slot 0 at first.
  void SetSource(EventSource* source) { source_ = source; }
  int fd() const { return epoll_.get(); }

  /// Waits for input (EPOLLIN), only for a hang-up (EPOLLRDHUP) or for nothing yet (0). False: no
  /// memory in the kernel.
  bool Add(int fd, std::uint32_t input, Watch& watch);
  void SetInput(std::uint32_t input, Watch& watch);
  /// No more calls, also of what was found before.
  void Remove(Watch& watch);

  /// Whether OnReady is to be called when the descriptor takes output again.
  void AwaitRoom(bool wanted, Watch& watch);

  void SetDeadline(Watch& watch, std::int64_t when);
  bool HasDeadline(const Watch& watch) const { return watch.deadline_ != kNever; }
  void MakePending(Watch& watch);
  /// Tells that there was input in this turn: the busiest are watched directly.
  void NoteBusy(Watch& watch);
  bool IsDirect(const Watch& watch) const { return watch.slot_ != 0; }

  /// There is more to read than the watch took in this turn.
  void NoteUnfinished() { is_unfinished_ = true; }

  /// One round of what is ready, pending and due, without waiting.
  void Turn();
  /// Ends the round that is under way; no more calls at all.
  void Stop() { is_stopped_ = true; }

 private:
  void CallOverdue();
  void CallPending();
  void CallDirect();
  void CallReady();
  void Schedule();
  void Change(Watch& watch, std::uint32_t input, std::size_t slot);
  void UpdateEpoll(const Watch& watch);
  std::size_t FindSlot(const Watch& watch);

  OwnedFd epoll_;
  std::mutex mutex_;  // what of a watch says so
  EventSource* source_ = nullptr;
  bool is_stopped_ = false;
  bool is_epoll_polled_ = true;
  bool is_unfinished_ = false;            // this turn leaves something to read
  std::size_t behind_epoll_ = 0;          // watches that wait for input there
  std::atomic<int> waiting_for_room_{0};  // watches that wait for room there
  std::uint64_t turn_ = 0;
  std::array<Watch*, EventSource::kSlots> direct_{};  // [0] stays null: epoll's own slot
  std::set<std::pair<std::int64_t, Watch*>> deadlines_;
  std::vector<Watch*> pending_;  // null: removed
  std::array<struct epoll_event, 16> ready_;
  int ready_count_ = 0;  // entries of ready_ that are being gone through
};

}  // namespace kavrel_rpc
