// A client's way from two names to two connected sockets.
#pragma once

#include <string>

#include "address.h"
#include "clock.h"
#include "greeting.h"

namespace kavrel_rpc {

/// Never waits itself: Advance goes as far as it can, and its caller waits for what fd() and
/// retry_at() say, be it in poll(2) or in a main context. One thread at a time.
class ClientHandshake {
 public:
  enum class State { kUnderWay, kDone, kRefused, kFailed };

  /// 0 when under way; the codes of rpc_port_proxy_connect otherwise.
  int Start(const std::string& app_id, const std::string& port_name);

  State Advance();

  /// The socket that becomes readable when there is something to advance; -1 while only
  /// retry_at() counts.
  int fd() const { return is_connected_ ? current().get() : -1; }
  /// When to call Advance even if nothing is readable.
  std::int64_t retry_at() const;
  /// Why it was refused or failed.
  int code() const { return code_; }

  /// After kDone: the main socket, which blocks, and the callback socket, which does not.
  OwnedFd TakeMain() { return std::move(main_); }
  OwnedFd TakeCallback() { return std::move(callback_); }

 private:
  OwnedFd& current() { return kind_ == HelloKind::kMain ? main_ : callback_; }
  const OwnedFd& current() const { return kind_ == HelloKind::kMain ? main_ : callback_; }

  int BeginSocket(HelloKind kind, const std::string& text);
  int Connect();
  int CheckService() const;
  State ReadAnswer();
  State TakeAnswer(const Answer& answer);
  State End(State state, int code);

  ServiceAddress address_;
  std::string hello_text_;
  HelloKind kind_ = HelloKind::kMain;
  bool is_connected_ = false;  // the current socket
  OwnedFd main_;
  OwnedFd callback_;
  GreetingReader<Answer> answer_;
  std::int64_t deadline_ = kNever;
  int code_ = 0;
};

/// Advances in poll(2) until it ends or is out of time.
ClientHandshake::State FinishHandshake(ClientHandshake& handshake);

}  // namespace kavrel_rpc
