// The two ports of a connection at the service's end.
#pragma once

#include <vector>

#include "poller.h"
#include "port.h"

namespace kavrel_rpc {

/// What a port tells its connection. Any thread.
class PortOwner {
 public:
  /// Ends the connection with one log line.
  virtual void Drop(const char* reason) = 0;

 protected:
  ~PortOwner() = default;
};

/// Sends never wait: what the client does not take is kept, up to a cap, and sent when the socket
/// has room. Any thread may send; Flush is for the thread that delivers events.
class ServicePort : public EventPort {
 public:
  enum class Kind { kMain, kCallback };

  ServicePort(std::shared_ptr<Link> link, Kind kind, Poller& poller, Watch& watch,
              PortOwner& owner);

  int socket() const { return kind_ == Kind::kMain ? link().main() : link().callback(); }
  void Flush();
  /// Before it, what is sent is kept: the client still waits for an answer to its greeting.
  void Open();

 private:
  int DoSend(Bytes frame) override;
  void Release() override;

  int Keep(Bytes bytes);

  const Kind kind_;
  Poller& poller_;
  Watch& watch_;
  PortOwner& owner_;

  std::mutex mutex_;
  bool is_open_ = false;
  std::vector<std::uint8_t> outbox_;
  std::size_t outbox_sent_ = 0;
};

}  // namespace kavrel_rpc
