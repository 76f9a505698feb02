// What the messages on the bus mean: handshake steps, messages, notifications and auxiliary events
// between hosts and plug-ins, and who they are from.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kavrelctl {

/// One thing that happened, as an object:
///     event     "handshake", "held", "message", "notification", "auxiliary", "host_up",
///               "host_down", "left"
///     host, plugin   the pair, as the bus shows the names (a host's '-' are left out)
///     from, to, who  connections; from_role, to_role, who_role: "host" or "plugin" where known
///     step      of a handshake: "SYN", "SYN_ACK", "ACK"
///     waits, pairs   of a message; pairs: [[key, value], ...]; also of a notification
///     text, value, flag   of an auxiliary event
///     problem   instead of a body that is not of the channel's type
using BusEvent = nlohmann::ordered_json;

/// Reads the traffic of all hosts. One thread.
class BusTraffic {
 public:
  /// `unique_name` owned the auxiliary name `name` before the first message was seen.
  void KnowOwner(const std::string& name, const std::string& unique_name);

  /// What `message`, seen at `now` milliseconds, tells; several things when a connection leaves.
  std::vector<BusEvent> See(GDBusMessage* message, std::int64_t now);

  /// Handshake names that were taken a second ago or longer and not given back: while they are
  /// held nobody else can say that step. Each is told once.
  std::vector<BusEvent> HeldNames(std::int64_t now);

 private:
  struct Holding {
    std::string who;
    std::int64_t since = 0;
    bool told = false;
  };

  std::vector<BusEvent> SeeOwnerChange(GVariant* body, std::int64_t now);
  std::optional<BusEvent> SeeWellKnown(const std::string& name, const std::string& before,
                                       const std::string& after, std::int64_t now);
  std::vector<BusEvent> SeeDeparture(const std::string& who);
  std::optional<BusEvent> SeeChannel(GDBusMessage* message);
  BusEvent SeeAuxiliary(GDBusMessage* message, const std::string& host) const;
  const char* RoleOf(const std::string& who, const std::string& host) const;
  void AddRole(BusEvent& event, const char* field, const std::string& who) const;

  std::map<std::string, std::string> host_owners_;      // host to connection
  std::map<std::string, Holding> held_;                 // handshake name to holder
  std::map<std::string, std::set<std::string>> pairs_;  // connection to the pairs it spoke for
};

/// The event as people read it, without a newline. Texts are cut where they are long.
std::string EventText(const BusEvent& event);

}  // namespace kavrelctl
