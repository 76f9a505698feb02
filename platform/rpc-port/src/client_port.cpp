#include "client_port.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>

#include "log.h"

namespace kavrel_rpc {
namespace {

// How far a deadline may be overrun by leaving a wait to the kernel's bound of the socket.
constexpr std::int64_t kToleranceMs = 100;

void BoundSocket(int socket, std::int64_t timeout_ms) {
  const struct timeval bound { timeout_ms / 1000, (timeout_ms % 1000) * 1000 };
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
}

// Waits until `events` or the deadline. False at the deadline.
bool WaitFor(int socket, short events, std::int64_t deadline) {
  for (;;) {
    const std::int64_t now = NowMs();
    if (now >= deadline) return false;
    const std::int64_t remaining =
        std::min<std::int64_t>(deadline - now, std::numeric_limits<int>::max());
    struct pollfd entry {
      socket, events, 0
    };
    const int ready = ::poll(&entry, 1, deadline == kNever ? -1 : static_cast<int>(remaining));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

bool IsTransient(ssize_t result) {
  return result == -EAGAIN || result == -EINTR;
}

ssize_t SendBytes(int socket, Bytes bytes, int flags) {
  const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL);
  return sent >= 0 ? sent : -errno;
}

}  // namespace

ClientMainPort::ClientMainPort(std::shared_ptr<Link> connection, std::int64_t timeout_ms)
    : Port(std::move(connection)), timeout_ms_(timeout_ms) {
  BoundSocket(link().main(), timeout_ms);
}

void ClientMainPort::Release() {
  intake_.Discard();
  passing_.reset();
}

int ClientMainPort::DoSend(Bytes frame) {
  const std::lock_guard lock(send_mutex_);
  if (link().HasEnded()) return -EPIPE;
  const std::int64_t deadline = DeadlineAfter(timeout_ms_);
  deadline_.store(deadline, std::memory_order_relaxed);
  is_unread_.store(true, std::memory_order_relaxed);
  const ssize_t sent = SendBytes(link().main(), frame, is_stalled_ ? MSG_DONTWAIT : 0);
  if (sent != static_cast<ssize_t>(frame.size())) return SendSlowly(frame, sent, deadline);
  is_stalled_ = false;
  return 0;
}

// Goes on after a send that was interrupted, cut short or out of time.
int ClientMainPort::SendSlowly(Bytes frame, ssize_t result, std::int64_t deadline) {
  const std::size_t whole = frame.size();
  for (;;) {
    if (result > 0) frame = frame.subspan(static_cast<std::size_t>(result));
    if (frame.empty()) break;
    const bool is_partly_sent = frame.size() != whole;
    if (result < 0 && !IsTransient(result)) return is_partly_sent ? GiveUpSending(true) : -EPIPE;
    if (is_stalled_ && !is_partly_sent && result == -EAGAIN) return GiveUpSending(false);
    if (!WaitFor(link().main(), POLLOUT, deadline)) return GiveUpSending(is_partly_sent);
    result = SendBytes(link().main(), frame, MSG_DONTWAIT);
  }
  is_stalled_ = false;
  return 0;
}

int ClientMainPort::GiveUpSending(bool is_partly_sent) {
  is_stalled_ = true;
  // The service cannot tell where the next parcel would begin.
  if (is_partly_sent) link().End();
  return -ETIMEDOUT;
}

int ClientMainPort::Overdue() {
  deadline_.store(0, std::memory_order_relaxed);
  return -ETIMEDOUT;
}

int ClientMainPort::Receive(Parcel** parcel) {
  const Use use(*this);
  if (!use.IsAllowed()) return -EPIPE;
  const std::lock_guard lock(receive_mutex_);
  const std::int64_t now = NowMs();
  std::int64_t deadline = deadline_.load(std::memory_order_relaxed);
  if (deadline == 0) {
    deadline = timeout_ms_ == 0 ? kNever : now + timeout_ms_;
    deadline_.store(deadline, std::memory_order_relaxed);
  }
  // Parcels that are no answer must not keep a call going for ever, so even one that is here
  // already is not given after the deadline, unless nobody has looked since the send.
  if (!is_unread_.load(std::memory_order_relaxed)) {
    if (now >= deadline) return Overdue();
  } else {
    is_unread_.store(false, std::memory_order_relaxed);
  }
  // The socket's own bound is good for one wait that begins now.
  bool may_block = deadline == kNever || deadline - now >= timeout_ms_ - kToleranceMs;
  for (;;) {
    const int taken = TakeParcel(parcel);
    if (taken != -EAGAIN) return taken;
    if (const int result = ReceiveMore(deadline, may_block); result != 0) return result;
    may_block = false;
  }
}

// -EAGAIN when no whole parcel is here.
int ClientMainPort::TakeParcel(Parcel** parcel) {
  if (intake_.empty()) return -EAGAIN;
  Bytes frame;
  const Intake::Next next = intake_.Take(frame);
  if (next == Intake::Next::kNothing) {
    intake_.Settle();
    return -EAGAIN;
  }
  if (next == Intake::Next::kFault) {
    RPC_LOG_ERROR("a service sent %s: connection ended", intake_.fault());
    link().End();
    return -EBADMSG;
  }
  Parcel* received = Parcel::FromFrame(frame);
  if (received == nullptr) {
    intake_.PutBack(frame);
    return -ENOMEM;
  }
  *parcel = received;
  try {
    intake_.Settle();
  } catch (const std::bad_alloc&) {
    // What is left stays where it is, and is settled after the next read.
  }
  return 0;
}

int ClientMainPort::ReceiveMore(std::int64_t deadline, bool may_block) {
  if (passing_ == nullptr) passing_ = std::make_unique<std::array<std::uint8_t, 4096>>();
  const bool is_look = may_block && early_look_.IsDue();
  const int flags = may_block && !is_look ? 0 : MSG_DONTWAIT;
  ssize_t result = intake_.Receive(link().main(), *passing_, flags);
  if (is_look) early_look_.Note(result > 0);
  while (IsTransient(result)) {
    if (!WaitFor(link().main(), POLLIN, deadline)) return Overdue();
    result = intake_.Receive(link().main(), *passing_, MSG_DONTWAIT);
  }
  return result > 0 ? 0 : EndOfStream(result);
}

int ClientMainPort::EndOfStream(ssize_t result) {
  if (result == -EBADMSG) RPC_LOG_ERROR("a service sent descriptors: connection ended");
  link().End();
  return result == -EBADMSG ? -EBADMSG : -EPIPE;
}

int ClientCallbackPort::DoSend(Bytes) {
  return -EINVAL;
}

}  // namespace kavrel_rpc
