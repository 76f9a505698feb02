#include "intake.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "bounds.h"

namespace kavrel_rpc {
namespace {

constexpr std::size_t kKeptCapacity = 4096;

// A receive that does not wait is not interrupted either.
ssize_t Result(ssize_t received, int flags) {
  if (received >= 0) return received;
  return errno == EINTR && (flags & MSG_DONTWAIT) != 0 ? -EAGAIN : -errno;
}

}  // namespace

ssize_t ReceiveBytes(int socket, std::span<std::uint8_t> into, int flags) {
  struct iovec piece {
    into.data(), into.size()
  };
  struct msghdr message {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  const ssize_t received = ::recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
  if (received >= 0 && (message.msg_flags & MSG_CTRUNC) != 0) return -EBADMSG;
  return Result(received, flags);
}

ssize_t Intake::ReceiveInto(int socket, std::span<std::uint8_t> room, int flags) const {
  if (descriptors_ == Descriptors::kRefuse) return ReceiveBytes(socket, room, flags);
  return Result(::recv(socket, room.data(), room.size(), flags), flags);
}

std::span<std::uint8_t> Intake::MakeRoom(std::size_t passing_size) {
  Settle();
  const std::size_t kept = own_.size();
  const std::size_t missing = frame::StatedSize(unread_) - kept;
  own_.resize(kept + std::min(missing, std::max(passing_size, kept)));
  unread_ = Bytes(own_.data(), kept);
  return std::span(own_).subspan(kept);
}

ssize_t Intake::Receive(int socket, std::span<std::uint8_t> passing, int flags) {
  const std::size_t kept = unread_.size();
  if (kept > passing.size() / 2) {
    const ssize_t received = ReceiveInto(socket, MakeRoom(passing.size()), flags);
    own_.resize(kept + static_cast<std::size_t>(std::max<ssize_t>(received, 0)));
    unread_ = own_;
    return received;
  }
  if (kept != 0) std::memmove(passing.data(), unread_.data(), kept);
  is_passing_ = true;
  const ssize_t received = ReceiveInto(socket, passing.subspan(kept), flags);
  unread_ = passing.first(kept + static_cast<std::size_t>(std::max<ssize_t>(received, 0)));
  return received;
}

bool Intake::HasNext() const {
  if (unread_.size() < sizeof(std::uint32_t)) return false;
  const std::size_t size = frame::StatedSize(unread_);
  return !frame::IsSizeAllowed(size) || unread_.size() >= size;
}

Intake::Next Intake::Take(Bytes& frame) {
  if (unread_.size() < sizeof(std::uint32_t)) return Next::kNothing;
  const std::size_t size = frame::StatedSize(unread_);
  if (!frame::IsSizeAllowed(size)) {
    fault_ = "a parcel of a size that is not allowed";
    return Next::kFault;
  }
  if (unread_.size() < size) return Next::kNothing;
  frame = unread_.first(size);
  if (const char* fault = frame::FindFault(frame)) {
    fault_ = fault;
    return Next::kFault;
  }
  unread_ = unread_.subspan(size);
  return Next::kFrame;
}

void Intake::PutBack(Bytes frame) {
  unread_ = Bytes(frame.data(), frame.size() + unread_.size());
}

void Intake::Settle() {
  if (unread_.empty() && own_.empty()) {
    is_passing_ = false;
    return;
  }
  if (is_passing_) {
    own_.assign(unread_.begin(), unread_.end());
  } else if (unread_.size() < own_.size()) {
    own_.erase(own_.begin(), own_.end() - static_cast<std::ptrdiff_t>(unread_.size()));
  }
  is_passing_ = false;
  if (own_.empty() && own_.capacity() > kKeptCapacity) own_ = {};
  unread_ = own_;
}

void Intake::Discard() {
  own_ = {};
  unread_ = {};
  is_passing_ = false;
}

}  // namespace kavrel_rpc
