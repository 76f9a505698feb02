#include <stdexcept>

#include "peers/peer.h"

namespace kavrel_bench {

const std::vector<Peer>& Peers() {
  static const std::vector<Peer> peers = {RawPacketPeer(),   RawStreamPeer(), KavrelPeer(),
                                          SdBusDirectPeer(), SdBusPeer(),     GDBusDirectPeer(),
                                          GDBusPeer(),       GrpcPeer(),      CapnpPeer()};
  return peers;
}

const Peer& PeerOf(const std::string& name) {
  for (const Peer& peer : Peers()) {
    if (name == peer.name) return peer;
  }
  throw std::runtime_error("no way of calling is named \"" + name + "\"");
}

}  // namespace kavrel_bench
