// Ways of calling another process, all doing the same work: a call without arguments that is
// answered with an int and a bool, and a call with an int and two texts that is not answered.
// One file a way; peers.cpp lists them.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "table.h"

namespace kavrel_bench {

/// What the two calls take on this project's wire; raw sockets carry as many bytes.
inline constexpr std::size_t kRequestBytes = 21;
inline constexpr std::size_t kResultBytes = 28;
inline constexpr std::size_t kOneWayBytes = 70;

inline constexpr int kWindowSize = 2;
inline constexpr const char* kText = "0123456789abcdef";

/// A connected client. Belongs to the thread that made it. What fails throws std::runtime_error.
class Caller {
 public:
  virtual ~Caller() = default;
  virtual void TwoWay() = 0;
  virtual void OneWay(int number) = 0;
  /// Returns when all one-way calls have been served.
  virtual void Settle() { TwoWay(); }
};

/// One way of calling.
struct Peer {
  const char* name;
  Kind kind;
  /// Serves for ever under the address, a path that is free; `ready` once clients may connect.
  void (*serve)(const std::string& address, const std::function<void()>& ready);
  std::unique_ptr<Caller> (*connect)(const std::string& address);
  bool on_bus = false;            ///< through the bus daemon, which is another process
  int messages = 20'000;          ///< one-way calls that are sent in one go
  const char* missing = nullptr;  ///< why it cannot be measured
};

/// All of them; the first is the raw ping-pong.
const std::vector<Peer>& Peers();
const Peer& PeerOf(const std::string& name);

// One function a file.
Peer RawPacketPeer();
Peer RawStreamPeer();
Peer KavrelPeer();
Peer SdBusDirectPeer();
Peer SdBusPeer();
Peer GDBusDirectPeer();
Peer GDBusPeer();
Peer GrpcPeer();
Peer CapnpPeer();

}  // namespace kavrel_bench
