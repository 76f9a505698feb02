#include "service.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "guard.h"
#include "log.h"

namespace kavrel_rpc {
namespace {

constexpr std::size_t kPassingSize = std::size_t{64} * 1024;

// Not to be guessed: it is what joins the second socket to the first.
std::string MakeInstanceId() {
  std::uint64_t random[2];
  if (::getrandom(random, sizeof random, 0) != sizeof random) {
    throw std::system_error(errno, std::generic_category(), "getrandom");
  }
  char text[40];
  (void)std::snprintf(text, sizeof text, "%016llx%016llx",
                      static_cast<unsigned long long>(random[0]),
                      static_cast<unsigned long long>(random[1]));
  return text;
}

}  // namespace

Service::Service(std::string app_id, std::string port_name)
    : app_id_(std::move(app_id)),
      port_name_(std::move(port_name)),
      limits_(ServiceLimitsFromEnvironment()),
      context_(::g_main_context_ref_thread_default()),
      reception_(*this, poller_, TrustedUsers::FromEnvironment(), limits_.partial_timeout_ms),
      passing_(kPassingSize) {}

Service::~Service() {
  ::g_main_context_unref(context_);
}

void Service::AddConnected(rpc_port_stub_connected_event_cb callback, void* user_data) {
  const std::lock_guard lock(event_mutex_);
  connected_.Add(callback, user_data);
}

void Service::AddDisconnected(rpc_port_stub_disconnected_event_cb callback, void* user_data) {
  const std::lock_guard lock(event_mutex_);
  disconnected_.Add(callback, user_data);
}

void Service::AddReceived(rpc_port_stub_received_event_cb callback, void* user_data) {
  const std::lock_guard lock(event_mutex_);
  received_.Add(callback, user_data);
}

int Service::Listen() {
  const std::lock_guard lock(event_mutex_);
  if (reception_.IsListening()) return 0;
  if (const int result = reception_.Listen(app_id_, port_name_); result != 0) return result;
  RaiseDescriptorLimit(limits_.connections);
  // Events wait for the mutex, so none comes before the poller knows its source.
  source_ = std::make_unique<EventSource>(context_, "rpc-port stub", poller_.fd(), kNever,
                                          [weak = weak_from_this()] {
                                            const auto service = weak.lock();
                                            return service != nullptr && service->OnEvent();
                                          });
  poller_.SetSource(source_.get());
  return 0;
}

bool Service::OnEvent() {
  if (IsForeign()) return false;
  const std::lock_guard lock(event_mutex_);
  if (is_destroyed_) return false;
  poller_.Turn();
  return !is_destroyed_;
}

std::shared_ptr<Connection> Service::Find(std::string_view instance) {
  const std::lock_guard lock(table_mutex_);
  const auto found = connections_.find(instance);
  return found != connections_.end() ? found->second : nullptr;
}

int Service::GetPort(rpc_port_port_type_e type, std::string_view instance, rpc_port_h* port) {
  if (type != RPC_PORT_PORT_MAIN && type != RPC_PORT_PORT_CALLBACK) return -EINVAL;
  if (delivering_thread_.load(std::memory_order_relaxed) == ::pthread_self() &&
      delivering_->instance() == instance) {
    *port = &delivering_->port(type);
    return 0;
  }
  const std::lock_guard lock(table_mutex_);
  const auto found = connections_.find(instance);
  if (found == connections_.end() || !found->second->IsJoined()) return -ENOENT;
  *port = &found->second->port(type);
  return 0;
}

// What keeps a user from one more connection; null when nothing does.
const char* Service::FindFullness(uid_t uid) const {
  std::size_t all = 0;
  for (const auto& [user, count] : connections_of_user_) all += count;
  if (all >= limits_.connections) return "KAVREL_RPC_MAX_CONNECTIONS";
  const auto own = connections_of_user_.find(uid);
  const std::size_t count = own != connections_of_user_.end() ? own->second : 0;
  return count >= limits_.connections_per_user ? "KAVREL_RPC_MAX_CONNECTIONS_PER_USER" : nullptr;
}

void Service::OnMainSocket(const std::string& sender, Credentials client, OwnedFd socket) {
  if (const char* limit = FindFullness(client.uid)) {
    RPC_LOG_ERROR("refused: \"%s\" (user %ld, pid %ld): %s is reached", sender.c_str(),
                  static_cast<long>(client.uid), static_cast<long>(client.pid), limit);
    return Refuse(socket.get(), -EIO);
  }
  const int fd = socket.get();
  const auto connection =
      std::make_shared<Connection>(*this, poller_, sender, MakeInstanceId(), client,
                                   std::move(socket), limits_.partial_timeout_ms);
  if (!connection->AwaitCallback()) return Refuse(fd, -EIO);
  {
    const std::lock_guard lock(table_mutex_);
    connections_.emplace(connection->instance(), connection);
  }
  ++connections_of_user_[client.uid];
  SendGreeting(fd, Answer::Make(0, connection->instance()));
}

void Service::OnCallbackSocket(const std::string& instance, Credentials client, OwnedFd socket) {
  const auto connection = Find(instance);
  if (connection == nullptr || connection->IsJoined() || connection->client() != client) {
    RPC_LOG_ERROR(
        "refused: a callback socket of user %ld (pid %ld) for a connection that is not "
        "its own",
        static_cast<long>(client.uid), static_cast<long>(client.pid));
    return Refuse(socket.get(), -EACCES);
  }
  {
    const std::lock_guard lock(table_mutex_);
    connection->Join(std::move(socket));
  }
  connected_.Raise([&](auto callback, void* user_data) {
    const bool is_fine = RunGuarded("a connected callback of a stub", [&] {
      callback(connection->sender().c_str(), connection->instance().c_str(), user_data);
    });
    if (!is_fine) connection->Drop("a connected callback threw");
    return !is_destroyed_;
  });
  if (is_destroyed_) return;
  // Only now: the client's first request finds a service that knows the connection.
  connection->Serve();
}

void Service::OnRequest(Connection& connection, Bytes frame) {
  Port* const port = &connection.main_port();
  connection.main_port().Stage(frame);
  delivering_ = &connection;
  delivering_thread_.store(::pthread_self(), std::memory_order_relaxed);
  received_.Raise([&](auto callback, void* user_data) {
    const bool is_fine = RunGuarded("a received callback of a stub", [&] {
      callback(connection.sender().c_str(), connection.instance().c_str(), port, user_data);
    });
    if (!is_fine) connection.Drop("its request made a callback throw");
    return !is_destroyed_ && !connection.HasEnded();
  });
  delivering_thread_.store({}, std::memory_order_relaxed);
  connection.main_port().Unstage();
}

void Service::OnEnd(Connection& connection) {
  const auto keep = connection.shared_from_this();
  if (connection.IsJoined()) {
    disconnected_.Raise([&](auto callback, void* user_data) {
      RunGuarded("a disconnected callback of a stub", [&] {
        callback(connection.sender().c_str(), connection.instance().c_str(), user_data);
      });
      return !is_destroyed_;
    });
  }
  if (!is_destroyed_) Forget(connection);
}

void Service::Forget(Connection& connection) {
  connection.Retire();
  const auto count = connections_of_user_.find(connection.client().uid);
  if (count != connections_of_user_.end() && --count->second == 0) {
    connections_of_user_.erase(count);
  }
  {
    const std::lock_guard lock(table_mutex_);
    connections_.erase(connection.instance());
  }
  reception_.OnDescriptorsFreed();
}

void Service::Destroy() {
  const std::lock_guard lock(event_mutex_);
  is_destroyed_ = true;
  poller_.Stop();
  Connections connections;
  {
    const std::lock_guard table_lock(table_mutex_);
    connections.swap(connections_);
  }
  for (const auto& [instance, connection] : connections) connection->Retire();
  reception_.Close();
  source_.reset();
}

}  // namespace kavrel_rpc
