#include "proxy.h"

#include <poll.h>

#include <array>
#include <cerrno>

#include "bounds.h"
#include "guard.h"
#include "log.h"

namespace kavrel_rpc {

std::shared_ptr<Proxy> Proxy::Create() {
  return std::make_shared<Proxy>();
}

Proxy::Proxy() : context_(::g_main_context_ref_thread_default()) {}

Proxy::~Proxy() {
  ::g_main_context_unref(context_);
}

void Proxy::AddConnected(rpc_port_proxy_connected_event_cb callback, void* user_data) {
  const std::lock_guard lock(mutex_);
  connected_.Add(callback, user_data);
}

void Proxy::AddDisconnected(rpc_port_proxy_disconnected_event_cb callback, void* user_data) {
  const std::lock_guard lock(mutex_);
  disconnected_.Add(callback, user_data);
}

void Proxy::AddRejected(rpc_port_proxy_rejected_event_cb callback, void* user_data) {
  const std::lock_guard lock(mutex_);
  rejected_.Add(callback, user_data);
}

void Proxy::AddReceived(rpc_port_proxy_received_event_cb callback, void* user_data) {
  const std::lock_guard lock(mutex_);
  received_.Add(callback, user_data);
}

// Raises one of the events that carry no more than the two names. The names are copied: a callback
// may connect anew.
template <typename List>
void Proxy::Raise(const List& list) {
  const std::string endpoint = endpoint_;
  const std::string port_name = port_name_;
  list.Raise([&](auto callback, void* user_data) {
    RunGuarded("a callback of a proxy",
               [&] { callback(endpoint.c_str(), port_name.c_str(), user_data); });
    return !is_destroyed_;
  });
}

int Proxy::GetPort(rpc_port_port_type_e type, rpc_port_h* port) {
  const std::lock_guard lock(mutex_);
  Port* found = nullptr;
  if (type == RPC_PORT_PORT_MAIN) {
    found = main_port_;
  } else if (type == RPC_PORT_PORT_CALLBACK) {
    found = callback_port_;
  } else {
    return -EINVAL;
  }
  if (found == nullptr) return -ENOTCONN;
  *port = found;
  return 0;
}

// Claims the proxy for one connect.
int Proxy::Begin(const std::string& app_id, const std::string& port_name) {
  NoticeEnd();
  if (is_destroyed_) return -ECANCELED;
  // Also when a callback that noticed the end has connected anew.
  if (state_ != State::kIdle) return state_ == State::kConnected ? -EISCONN : -EALREADY;
  endpoint_ = app_id;
  port_name_ = port_name;
  state_ = State::kConnecting;
  return 0;
}

int Proxy::Connect(const std::string& app_id, const std::string& port_name) {
  const auto self = shared_from_this();
  const std::lock_guard lock(mutex_);
  if (const int result = Begin(app_id, port_name); result != 0) return result;
  try {
    handshake_ = std::make_unique<ClientHandshake>();
    if (const int result = handshake_->Start(app_id, port_name); result != 0)
      return Abandon(result);
    WatchHandshake();
  } catch (...) {
    Abandon(-ENOMEM);
    throw;
  }
  return 0;
}

int Proxy::Abandon(int code) {
  handshake_.reset();
  source_.reset();
  state_ = State::kIdle;
  return code;
}

void Proxy::WatchHandshake() {
  source_ = std::make_unique<EventSource>(context_, "rpc-port connect", handshake_->fd(),
                                          handshake_->retry_at(), [weak = weak_from_this()] {
                                            const auto proxy = weak.lock();
                                            return proxy != nullptr && proxy->OnHandshakeEvent();
                                          });
}

bool Proxy::OnHandshakeEvent() {
  if (IsForeign()) return false;
  const std::lock_guard lock(mutex_);
  if (is_destroyed_ || handshake_ == nullptr) return false;
  try {
    return AdvanceHandshake();
  } catch (const std::exception& error) {
    // Memory has run out. Who waits for an event gets one.
    RPC_LOG_ERROR("the connect to \"%s\" failed: %s", endpoint_.c_str(), error.what());
    Abandon(-ENOMEM);
    Raise(rejected_);
    return false;
  }
}

bool Proxy::AdvanceHandshake() {
  const int fd_before = handshake_->fd();
  const auto state = handshake_->Advance();
  if (state == ClientHandshake::State::kUnderWay) {
    if (handshake_->fd() == fd_before) {
      source_->WakeAt(handshake_->retry_at());
      return true;
    }
    WatchHandshake();  // of the next socket
    return false;
  }
  const auto handshake = std::move(handshake_);
  source_.reset();
  Conclude(*handshake, state);
  // Nobody else learns of a failure that is no refusal.
  if (state == ClientHandshake::State::kFailed) Raise(rejected_);
  return false;
}

int Proxy::ConnectSync(const std::string& app_id, const std::string& port_name) {
  const auto self = shared_from_this();
  {
    const std::lock_guard lock(mutex_);
    if (const int result = Begin(app_id, port_name); result != 0) return result;
  }
  ClientHandshake handshake;
  int started = 0;
  auto state = ClientHandshake::State::kFailed;
  try {
    // Without the mutex: Destroy must not have to wait for a service.
    started = handshake.Start(app_id, port_name);
    if (started == 0) state = FinishHandshake(handshake);
  } catch (...) {
    const std::lock_guard lock(mutex_);
    Abandon(-ENOMEM);
    throw;
  }
  const std::lock_guard lock(mutex_);
  if (is_destroyed_) return -ECANCELED;
  return started != 0 ? Abandon(started) : Conclude(handshake, state);
}

int Proxy::Conclude(ClientHandshake& handshake, ClientHandshake::State state) {
  if (state == ClientHandshake::State::kDone) {
    try {
      Adopt(handshake);
    } catch (...) {
      Abandon(-ENOMEM);
      throw;
    }
    return is_destroyed_ ? -ECANCELED : 0;
  }
  state_ = State::kIdle;
  if (state == ClientHandshake::State::kRefused) Raise(rejected_);
  return handshake.code();
}

void Proxy::Adopt(ClientHandshake& handshake) {
  auto link = std::make_shared<Link>(handshake.TakeMain(), handshake.TakeCallback());
  auto main = std::make_unique<ClientMainPort>(link, ClientTimeoutMs());
  auto callback = std::make_unique<ClientCallbackPort>(link);
  ports_.reserve(ports_.size() + 2);
  const std::string endpoint = endpoint_;
  const std::string name = port_name_;
  auto source = std::make_unique<EventSource>(
      context_, "rpc-port proxy", link->callback(), kNever, [weak = weak_from_this()] {
        const auto proxy = weak.lock();
        return proxy != nullptr && proxy->OnCallbackPortEvent();
      });
  // Nothing below can fail. The ports of the connection before have nothing to give any more.
  for (const auto& port : ports_) port->Retire();
  link_ = std::move(link);
  main_port_ = main.get();
  callback_port_ = callback.get();
  ports_.push_back(std::move(main));
  ports_.push_back(std::move(callback));
  callback_intake_.Discard();
  source_ = std::move(source);
  state_ = State::kConnected;
  Port* const port = main_port_;
  connected_.Raise([&](auto callback_function, void* user_data) {
    RunGuarded("a connected callback of a proxy",
               [&] { callback_function(endpoint.c_str(), name.c_str(), port, user_data); });
    return !is_destroyed_;
  });
}

bool Proxy::OnCallbackPortEvent() {
  if (IsForeign()) return false;
  const std::lock_guard lock(mutex_);
  if (is_destroyed_ || state_ != State::kConnected) return false;
  const auto link = link_;
  std::array<std::uint8_t, 16384> passing;
  const ssize_t result = callback_intake_.Receive(link->callback(), passing, MSG_DONTWAIT);
  if (result > 0) DeliverReceived();
  if (is_destroyed_ || link != link_) return false;
  callback_intake_.Settle();
  if (result > 0 || result == -EAGAIN) return true;
  EndConnection();
  return false;
}

void Proxy::DeliverReceived() {
  const auto link = link_;
  Bytes frame;
  auto next = callback_intake_.Take(frame);
  for (; next == Intake::Next::kFrame; next = callback_intake_.Take(frame)) {
    EventPort& port = *callback_port_;
    port.Stage(frame);
    Raise(received_);
    port.Unstage();
    if (is_destroyed_ || link != link_) return;
  }
  if (next == Intake::Next::kFault) {
    RPC_LOG_ERROR("the service of \"%s\" sent %s: connection ended", endpoint_.c_str(),
                  callback_intake_.fault());
    callback_intake_.Discard();
    link->End();  // seen as the end of the stream at the next turn
  }
}

// A client that runs no main loop has not seen its connection end.
void Proxy::NoticeEnd() {
  if (state_ != State::kConnected) return;
  struct pollfd entry {
    link_->callback(), POLLRDHUP, 0
  };
  if (link_->HasEnded() || (::poll(&entry, 1, 0) > 0 && entry.revents != 0)) EndConnection();
}

void Proxy::EndConnection() {
  source_.reset();
  callback_intake_.Discard();
  link_->End();
  state_ = State::kIdle;
  Raise(disconnected_);
}

void Proxy::Destroy() {
  {
    const std::lock_guard lock(mutex_);
    is_destroyed_ = true;
    source_.reset();
    handshake_.reset();
  }
  // From here on nobody adds to the ports.
  for (const auto& port : ports_) port->Retire();
}

}  // namespace kavrel_rpc
