// The client's end of connections to one service.
#pragma once

#include <rpc-port.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client_handshake.h"
#include "client_port.h"
#include "event_list.h"
#include "event_source.h"

namespace kavrel_rpc {

/// Any thread may call it. Events arrive on the main context of the thread that made it, except
/// what ConnectSync raises itself. One recursive mutex is held while callbacks run, which is what
/// makes Destroy wait for one that runs in another thread.
class Proxy final : public ProcessBound, public std::enable_shared_from_this<Proxy> {
 public:
  static std::shared_ptr<Proxy> Create();
  Proxy();
  ~Proxy();

  int Connect(const std::string& app_id, const std::string& port_name);
  int ConnectSync(const std::string& app_id, const std::string& port_name);
  int GetPort(rpc_port_port_type_e type, rpc_port_h* port);

  void AddConnected(rpc_port_proxy_connected_event_cb callback, void* user_data);
  void AddDisconnected(rpc_port_proxy_disconnected_event_cb callback, void* user_data);
  void AddRejected(rpc_port_proxy_rejected_event_cb callback, void* user_data);
  void AddReceived(rpc_port_proxy_received_event_cb callback, void* user_data);

  /// No callback begins after it; one that runs in another thread has ended.
  void Destroy();

 private:
  enum class State { kIdle, kConnecting, kConnected };

  int Begin(const std::string& app_id, const std::string& port_name);
  int Conclude(ClientHandshake& handshake, ClientHandshake::State state);
  int Abandon(int code);
  void WatchHandshake();
  bool OnHandshakeEvent();
  bool AdvanceHandshake();
  void Adopt(ClientHandshake& handshake);
  bool OnCallbackPortEvent();
  void DeliverReceived();
  void NoticeEnd();
  void EndConnection();
  template <typename List>
  void Raise(const List& list);

  GMainContext* const context_;
  std::recursive_mutex mutex_;  // all below
  bool is_destroyed_ = false;
  State state_ = State::kIdle;
  std::string endpoint_;
  std::string port_name_;
  EventList<rpc_port_proxy_connected_event_cb> connected_;
  EventList<rpc_port_proxy_disconnected_event_cb> disconnected_;
  EventList<rpc_port_proxy_rejected_event_cb> rejected_;
  EventList<rpc_port_proxy_received_event_cb> received_;

  // Every port ever handed out: users may hold on to the handles of an earlier connection.
  std::vector<std::unique_ptr<Port>> ports_;
  ClientMainPort* main_port_ = nullptr;
  ClientCallbackPort* callback_port_ = nullptr;
  std::shared_ptr<Link> link_;
  Intake callback_intake_{Intake::Descriptors::kIgnore};
  std::unique_ptr<ClientHandshake> handshake_;  // of a connect that does not wait
  std::unique_ptr<EventSource> source_;         // of the handshake, then of the callback port
};

}  // namespace kavrel_rpc
