// The service's end: one stub, its address and its clients.
#pragma once

#include <pthread.h>
#include <rpc-port.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "connection.h"
#include "event_list.h"
#include "event_source.h"
#include "reception.h"

namespace kavrel_rpc {

/// Any thread may call it; events arrive on the main context of the thread that made it. The
/// recursive event mutex is held while callbacks run, which makes Destroy wait for one that runs in
/// another thread. The table of connections has a mutex of its own, held for look-ups only, so that
/// a long callback does not hold up GetPort in other threads.
class Service final : public ProcessBound,
                      public ReceptionOwner,
                      public ConnectionOwner,
                      public std::enable_shared_from_this<Service> {
 public:
  Service(std::string app_id, std::string port_name);
  ~Service();

  int Listen();
  int GetPort(rpc_port_port_type_e type, std::string_view instance, rpc_port_h* port);

  void AddConnected(rpc_port_stub_connected_event_cb callback, void* user_data);
  void AddDisconnected(rpc_port_stub_disconnected_event_cb callback, void* user_data);
  void AddReceived(rpc_port_stub_received_event_cb callback, void* user_data);

  /// No callback begins after it; one that runs in another thread has ended.
  void Destroy();

 private:
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };
  using Connections =
      std::unordered_map<std::string, std::shared_ptr<Connection>, TextHash, std::equal_to<>>;

  void OnMainSocket(const std::string& sender, Credentials client, OwnedFd socket) override;
  void OnCallbackSocket(const std::string& instance, Credentials client, OwnedFd socket) override;
  void OnRequest(Connection& connection, Bytes frame) override;
  void OnEnd(Connection& connection) override;
  std::span<std::uint8_t> PassingBuffer() override { return passing_; }

  bool OnEvent();
  const char* FindFullness(uid_t uid) const;
  std::shared_ptr<Connection> Find(std::string_view instance);
  void Forget(Connection& connection);

  const std::string app_id_;
  const std::string port_name_;
  const ServiceLimits limits_;
  GMainContext* const context_;

  std::recursive_mutex event_mutex_;  // all below but the table
  bool is_destroyed_ = false;
  Poller poller_;
  Reception reception_;
  EventList<rpc_port_stub_connected_event_cb> connected_;
  EventList<rpc_port_stub_disconnected_event_cb> disconnected_;
  EventList<rpc_port_stub_received_event_cb> received_;
  std::map<uid_t, std::size_t> connections_of_user_;
  std::vector<std::uint8_t> passing_;
  std::unique_ptr<EventSource> source_;

  std::mutex table_mutex_;
  Connections connections_;

  // The connection whose request is being delivered, for the thread that delivers: nearly every
  // look-up is for this one.
  std::atomic<pthread_t> delivering_thread_{};
  Connection* delivering_ = nullptr;
};

}  // namespace kavrel_rpc
