// The two ports of a proxy.
#pragma once

#include <array>

#include "clock.h"
#include "early_look.h"
#include "intake.h"
#include "port.h"

namespace kavrel_rpc {

/// A client's main port: sends and reads wait, each within its bound. The kernel keeps the bound of
/// the first wait of a call (socket time-outs), so that an ordinary call is one send and one
/// receive; what is unusual looks at the clock again, and so does a call whose answer is looked for
/// early. Any thread.
class ClientMainPort : public Port {
 public:
  /// The main socket must block; `timeout_ms` 0: no bound.
  ClientMainPort(std::shared_ptr<Link> link, std::int64_t timeout_ms);

  int Receive(Parcel** parcel) override;

 private:
  int DoSend(Bytes frame) override;
  void Release() override;

  int SendSlowly(Bytes frame, ssize_t first_result, std::int64_t deadline);
  int GiveUpSending(bool is_partly_sent);
  int TakeParcel(Parcel** parcel);
  int ReceiveMore(std::int64_t deadline, bool may_block);
  int Overdue();
  int EndOfStream(ssize_t result);

  const std::int64_t timeout_ms_;

  std::mutex send_mutex_;
  bool is_stalled_ = false;  // the last send timed out: do not wait until one succeeds

  // The deadline that the reads after the latest send share; 0 when none is set.
  std::atomic<std::int64_t> deadline_{0};
  // No read has looked at the socket since the latest send.
  std::atomic<bool> is_unread_{false};

  std::mutex receive_mutex_;
  Intake intake_{Intake::Descriptors::kIgnore};
  EarlyLook early_look_;
  std::unique_ptr<std::array<std::uint8_t, 4096>> passing_;
};

/// A client's callback port: what the service sends arrives with received events.
class ClientCallbackPort : public EventPort {
 public:
  using EventPort::EventPort;

 private:
  int DoSend(Bytes frame) override;
};

}  // namespace kavrel_rpc
