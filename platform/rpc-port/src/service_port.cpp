#include "service_port.h"

#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "bounds.h"

namespace kavrel_rpc {
namespace {

// Bytes that the socket took; -EAGAIN when it has no room, -EPIPE when it is dead.
ssize_t SendNow(int socket, Bytes bytes) {
  for (;;) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0) return sent;
    if (errno == EINTR) continue;
    // Memory of the kernel for sockets comes back as room in the socket does.
    return errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM ? -EAGAIN : -EPIPE;
  }
}

}  // namespace

ServicePort::ServicePort(std::shared_ptr<Link> connection, Kind kind, Poller& poller, Watch& watch,
                         PortOwner& owner)
    : EventPort(std::move(connection)),
      kind_(kind),
      poller_(poller),
      watch_(watch),
      owner_(owner) {}

int ServicePort::DoSend(Bytes frame) {
  const std::lock_guard lock(mutex_);
  if (link().HasEnded()) return -EPIPE;
  if (!is_open_ || !outbox_.empty()) return Keep(frame);
  const ssize_t sent = SendNow(socket(), frame);
  if (sent == static_cast<ssize_t>(frame.size())) return 0;
  if (sent == -EPIPE) return -EPIPE;
  return Keep(frame.subspan(sent > 0 ? static_cast<std::size_t>(sent) : 0));
}

int ServicePort::Keep(Bytes bytes) {
  if (bytes.size() > kMaxOutboxSize - (outbox_.size() - outbox_sent_)) {
    owner_.Drop("does not read what it is sent");
    return -EPIPE;
  }
  const bool was_empty = outbox_.empty();
  try {
    outbox_.insert(outbox_.end(), bytes.begin(), bytes.end());
  } catch (const std::bad_alloc&) {
    // Part of the parcel may have been sent: without the rest the client cannot go on.
    owner_.Drop("there is no memory for what it does not read");
    return -ENOMEM;
  }
  if (was_empty && is_open_) poller_.AwaitRoom(true, watch_);
  return 0;
}

void ServicePort::Open() {
  const std::lock_guard lock(mutex_);
  is_open_ = true;
  if (!outbox_.empty()) poller_.AwaitRoom(true, watch_);
}

void ServicePort::Flush() {
  const std::lock_guard lock(mutex_);
  const Bytes rest = Bytes(outbox_).subspan(outbox_sent_);
  const ssize_t sent = rest.empty() ? 0 : SendNow(socket(), rest);
  if (sent > 0) outbox_sent_ += static_cast<std::size_t>(sent);
  const bool is_done = outbox_sent_ == outbox_.size();
  if (is_done || sent == -EPIPE) {
    outbox_ = {};
    outbox_sent_ = 0;
    poller_.AwaitRoom(false, watch_);
  } else if (outbox_sent_ > kMaxOutboxSize / 2) {
    outbox_.erase(outbox_.begin(), outbox_.begin() + static_cast<std::ptrdiff_t>(outbox_sent_));
    outbox_sent_ = 0;
  }
}

void ServicePort::Release() {
  outbox_ = {};
}

}  // namespace kavrel_rpc
