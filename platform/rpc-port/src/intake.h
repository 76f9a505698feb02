// Bytes that a socket has given and nobody has taken yet, and the frames in them.
#pragma once

#include <sys/types.h>

#include <span>
#include <vector>

#include "frame.h"

namespace kavrel_rpc {

/// Bytes received, 0 at the end, or a negative errno value. Descriptors that a peer sends along are
/// closed by the kernel, without ever being entered into this process's table, as no room is
/// offered for them; -EBADMSG tells that there were some.
ssize_t ReceiveBytes(int socket, std::span<std::uint8_t> into, int flags);

/// One receive goes into a large passing buffer that its owner shares among many intakes; only what
/// is left over moves into the intake's own memory, which grows with the bytes that have arrived
/// and not with the size that a frame states. One thread at a time.
class Intake {
 public:
  enum class Next { kFrame, kNothing, kFault };
  /// Whether sending descriptors is an error. Not to ask spares the reader of a peer that it trusts
  /// a fifteenth of a call.
  enum class Descriptors { kRefuse, kIgnore };

  explicit Intake(Descriptors descriptors) : descriptors_(descriptors) {}

  /// Receives once into `passing` behind what is left over. Result as ReceiveBytes.
  ssize_t Receive(int socket, std::span<std::uint8_t> passing, int flags);

  /// Takes the next whole frame, which stays where it is until the next Receive or Settle.
  Next Take(Bytes& frame);
  /// Makes the frame that was taken last the next one again; before the next Receive or Settle.
  void PutBack(Bytes frame);
  /// What was wrong at the last kFault.
  const char* fault() const { return fault_; }

  /// Moves what is left over out of the passing buffer.
  void Settle();

  bool empty() const { return unread_.empty(); }
  /// Whether Take would give a frame or a fault.
  bool HasNext() const;
  void Discard();

 private:
  std::span<std::uint8_t> MakeRoom(std::size_t passing_size);
  ssize_t ReceiveInto(int socket, std::span<std::uint8_t> room, int flags) const;

  const Descriptors descriptors_;
  std::vector<std::uint8_t> own_;
  Bytes unread_;
  bool is_passing_ = false;  // unread_ lies in the passing buffer
  const char* fault_ = "";
};

}  // namespace kavrel_rpc
