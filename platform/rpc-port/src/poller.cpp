#include "poller.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "guard.h"

namespace kavrel_rpc {
namespace {

// A watch is busy that had input in this many turns, never with more than that many between. It has
// to be so for a while, because changing what the main loop polls costs several calls' gain.
constexpr unsigned kBusyTurns = 64;
constexpr std::uint64_t kBusyGap = 16;
// A directly watched one that had no input for so many turns gives way.
constexpr std::uint64_t kIdleTurns = 1024;

}  // namespace

Poller::Poller() : epoll_(OwnedFd::Open([] { return ::epoll_create1(EPOLL_CLOEXEC); })) {
  if (!epoll_ && errno == ENOMEM) throw std::bad_alloc();
  if (!epoll_) throw std::system_error(errno, std::generic_category(), "epoll_create1");
}

bool Poller::Add(int fd, std::uint32_t input, Watch& watch) {
  const std::lock_guard lock(mutex_);
  struct epoll_event entry {};
  entry.events = input;
  entry.data.ptr = &watch;
  if (input != 0 && ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &entry) != 0) return false;
  watch.fd_ = fd;
  watch.input_ = input;
  if (watch.IsBehindEpoll()) ++behind_epoll_;
  return true;
}

void Poller::SetInput(std::uint32_t input, Watch& watch) {
  Change(watch, input, 0);
}

// The one place where a watch moves between epoll and the main loop.
void Poller::Change(Watch& watch, std::uint32_t input, std::size_t slot) {
  if (watch.slot_ != 0) {
    direct_[watch.slot_] = nullptr;
    source_->Watch(watch.slot_, -1);
  }
  {
    const std::lock_guard lock(mutex_);
    if (watch.IsBehindEpoll()) --behind_epoll_;
    watch.input_ = input;
    watch.slot_ = slot;
    if (watch.IsBehindEpoll()) ++behind_epoll_;
    UpdateEpoll(watch);
  }
  if (slot != 0) {
    direct_[slot] = &watch;
    source_->Watch(slot, watch.fd_);
  }
}

// One that waits for nothing is taken out: the kernel would look at it for every byte.
void Poller::UpdateEpoll(const Watch& watch) {
  struct epoll_event entry {};
  if (watch.slot_ == 0) entry.events |= watch.input_;
  if (watch.wants_room_) entry.events |= EPOLLOUT;
  entry.data.ptr = const_cast<Watch*>(&watch);
  if (entry.events == 0) {
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, watch.fd_, nullptr);
  } else if (::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, watch.fd_, &entry) != 0 && errno == ENOENT) {
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, watch.fd_, &entry);
  }
}

void Poller::AwaitRoom(bool wanted, Watch& watch) {
  const std::lock_guard lock(mutex_);
  if (watch.fd_ < 0 || watch.wants_room_ == wanted) return;
  watch.wants_room_ = wanted;
  waiting_for_room_.fetch_add(wanted ? 1 : -1);
  UpdateEpoll(watch);
  // The thread of the events may have to begin to look at epoll.
  if (wanted) source_->Kick();
}

void Poller::Remove(Watch& watch) {
  if (watch.fd_ >= 0) Change(watch, 0, 0);
  AwaitRoom(false, watch);
  {
    const std::lock_guard lock(mutex_);
    watch.fd_ = -1;
  }
  SetDeadline(watch, kNever);
  if (watch.is_pending_) {
    std::replace(pending_.begin(), pending_.end(), &watch, static_cast<Watch*>(nullptr));
  }
  watch.is_pending_ = false;
  for (int i = 0; i < ready_count_; ++i) {
    auto& entry = ready_[static_cast<std::size_t>(i)];
    if (entry.data.ptr == &watch) entry.data.ptr = nullptr;
  }
}

void Poller::SetDeadline(Watch& watch, std::int64_t when) {
  if (watch.deadline_ == when) return;
  if (watch.deadline_ != kNever) deadlines_.erase({watch.deadline_, &watch});
  watch.deadline_ = when;
  if (when != kNever) deadlines_.insert({when, &watch});
}

void Poller::MakePending(Watch& watch) {
  if (std::exchange(watch.is_pending_, true)) return;
  pending_.push_back(&watch);
}

void Poller::NoteBusy(Watch& watch) {
  watch.busy_turns_ = turn_ - watch.last_busy_turn_ <= kBusyGap ? watch.busy_turns_ + 1 : 1;
  watch.last_busy_turn_ = turn_;
  if (watch.slot_ != 0) return;
  if (const std::size_t slot = FindSlot(watch); slot != 0) Change(watch, watch.input_, slot);
}

// A free slot, or one whose holder has long been idle while `watch` is busy; 0: none.
std::size_t Poller::FindSlot(const Watch& watch) {
  for (std::size_t slot = 1; slot < direct_.size(); ++slot) {
    if (direct_[slot] == nullptr) return slot;
  }
  if (watch.busy_turns_ < kBusyTurns) return 0;
  for (std::size_t slot = 1; slot < direct_.size(); ++slot) {
    Watch& holder = *direct_[slot];
    if (turn_ - holder.last_busy_turn_ < kIdleTurns) continue;
    Change(holder, holder.input_, 0);
    return slot;
  }
  return 0;
}

void Poller::Turn() {
  ++turn_;
  is_unfinished_ = false;
  RunGuarded("a turn of the poller", [this] {
    CallPending();
    CallDirect();
    if (!is_stopped_ && source_->IsReady(0)) CallReady();
    CallOverdue();
  });
  if (!is_stopped_) Schedule();
}

// Last, and only when all that is here has been read: after a callback that took long, what others
// sent in time must not count as late.
void Poller::CallOverdue() {
  if (deadlines_.empty() || is_unfinished_ || !pending_.empty()) return;
  const std::int64_t now = NowMs();
  while (!is_stopped_ && !deadlines_.empty() && deadlines_.begin()->first <= now) {
    Watch& watch = *deadlines_.begin()->second;
    SetDeadline(watch, kNever);
    watch.OnDeadline();
  }
}

// Those who become pending meanwhile have their turn in the next round.
void Poller::CallPending() {
  const std::size_t count = pending_.size();
  for (std::size_t i = 0; i < count && !is_stopped_; ++i) {
    Watch* const watch = std::exchange(pending_[i], nullptr);
    if (watch == nullptr) continue;
    watch->is_pending_ = false;
    watch->OnPending();
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
}

void Poller::CallDirect() {
  for (std::size_t slot = 1; slot < direct_.size() && !is_stopped_; ++slot) {
    if (direct_[slot] != nullptr && source_->IsReady(slot)) direct_[slot]->OnReady(EPOLLIN);
  }
}

void Poller::CallReady() {
  ready_count_ =
      std::max(::epoll_wait(epoll_.get(), ready_.data(), static_cast<int>(ready_.size()), 0), 0);
  if (ready_count_ == static_cast<int>(ready_.size())) NoteUnfinished();
  for (int i = 0; i < ready_count_ && !is_stopped_; ++i) {
    const auto& entry = ready_[static_cast<std::size_t>(i)];
    if (entry.data.ptr == nullptr) continue;
    static_cast<Watch*>(entry.data.ptr)->OnReady(entry.events);
  }
  ready_count_ = 0;
}

// The moment first: a thread that begins to wait for room later kicks the source out of it, one
// that did so before is seen below.
void Poller::Schedule() {
  std::int64_t next = deadlines_.empty() ? kNever : deadlines_.begin()->first;
  if (!pending_.empty()) next = 0;
  source_->WakeAt(next);
  const bool is_needed = behind_epoll_ != 0 || waiting_for_room_.load() != 0;
  if (is_needed == is_epoll_polled_) return;
  is_epoll_polled_ = is_needed;
  source_->Watch(0, is_needed ? epoll_.get() : -1);
}

}  // namespace kavrel_rpc
