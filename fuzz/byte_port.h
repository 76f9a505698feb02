// rpc-port without sockets: connections whose bytes a program gives and takes, with the service's
// own frames and parcels. It stands in for the functions of stubs, proxies and connections; those
// of parcels are the real ones.
//
// One stub and one proxy at a time, one connection each. One thread.
#pragma once

#include <rpc-port.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "port.h"
#include "wire_model.h"

namespace kavrel_fuzz {

/// One end of a connection.
class BytePort final : public kavrel_rpc::Port {
 public:
  BytePort();

  /// What arrives from now on, in place of what was left. The bytes stay the caller's.
  void Give(ByteView bytes) { arriving_ = bytes; }
  /// Adds the sequence number of what is sent to those of what arrives, so that bytes can answer a
  /// request whose number they do not know: 0 is the right one.
  void CountFromRequest() { counts_from_request_ = true; }

  /// The next whole frame in `frame`, or none in it. What is wrong with what arrived, or null.
  const char* Take(ByteView& frame);
  int Receive(kavrel_rpc::Parcel** parcel) override;

  /// The frames that were sent since the last time.
  std::vector<Bytes> TakeSent();

 private:
  int DoSend(kavrel_rpc::Bytes frame) override;

  ByteView arriving_;
  std::vector<Bytes> sent_;
  bool counts_from_request_ = false;
  std::uint32_t request_ = 0;
};

/// The connection of the stub that exists. Its client's names are "client" and "i1".
struct StubConnection {
  /// Raises the connected event.
  static void Connect();
  static BytePort& main_port();
  /// Raises a received event for each frame, as a connection does, until the first fault, which it
  /// returns. `served` is told of each event's result.
  static const char* Deliver(ByteView bytes, const std::function<void(int result)>& served);
};

/// The connection of the proxy that exists; it stands when the proxy has connected.
struct ProxyConnection {
  static BytePort& main_port();
  /// Raises a received event for each frame at the callback port, until the first fault.
  static void DeliverCallbacks(ByteView bytes, const std::function<void()>& delivered);
};

/// The parcels that exist.
std::vector<rpc_port_parcel_h> LiveParcels();

}  // namespace kavrel_fuzz
