#include "poller.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace kavrel_rpc {

Poller::Poller() : epoll_(OwnedFd::Open([] { return ::epoll_create1(EPOLL_CLOEXEC); })) {
  if (!epoll_) throw std::system_error(errno, std::generic_category(), "epoll_create1");
}

bool Poller::Add(int fd, std::uint32_t events, Watch& watch) {
  struct epoll_event entry {};
  entry.events = events;
  entry.data.ptr = &watch;
  return ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &entry) == 0;
}

void Poller::Modify(int fd, std::uint32_t events, Watch& watch) {
  struct epoll_event entry {};
  entry.events = events;
  entry.data.ptr = &watch;
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &entry);
}

void Poller::Remove(int fd, Watch& watch) {
  if (fd >= 0) ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
  SetDeadline(watch, kNever);
  if (watch.is_pending_)
    std::replace(pending_.begin(), pending_.end(), &watch, static_cast<Watch*>(nullptr));
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

std::int64_t Poller::NextTurn() const {
  if (!pending_.empty()) return 0;
  return deadlines_.empty() ? kNever : deadlines_.begin()->first;
}

void Poller::Turn() {
  CallOverdue();
  CallPending();
  CallReady();
}

void Poller::CallOverdue() {
  if (deadlines_.empty()) return;
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

void Poller::CallReady() {
  if (is_stopped_) return;
  ready_count_ =
      std::max(::epoll_wait(epoll_.get(), ready_.data(), static_cast<int>(ready_.size()), 0), 0);
  for (int i = 0; i < ready_count_ && !is_stopped_; ++i) {
    const auto& entry = ready_[static_cast<std::size_t>(i)];
    if (entry.data.ptr == nullptr) continue;
    static_cast<Watch*>(entry.data.ptr)->OnReady(entry.events);
  }
  ready_count_ = 0;
}

}  // namespace kavrel_rpc
