#include "SystemBus.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "CallbackGuard.h"
#include "ChannelLog.h"

namespace kavreldbus {
namespace {

namespace glib = kavrel::glib;
using kavrel::Here;

constexpr auto kConnectLimit = std::chrono::seconds(25);
constexpr auto kFlushLimit = std::chrono::seconds(5);

// Cancels what runs for longer than the limit. GIO sets no limit of its own to logging in to a bus.
class TimeLimit {
 public:
  explicit TimeLimit(std::chrono::milliseconds limit)
      : cancellable_(g_cancellable_new()), thread_([this, limit] { Run(limit); }) {}
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;
  ~TimeLimit() {
    {
      const std::lock_guard lock(mutex_);
      over_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  GCancellable* cancellable() const { return cancellable_.get(); }

 private:
  void Run(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, limit, [this] { return over_; })) {
      g_cancellable_cancel(cancellable_.get());
    }
  }

  glib::Object<GCancellable> cancellable_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool over_ = false;
  std::thread thread_;
};

// Remembers the shared connection without keeping it alive: with one at hand no time limit, which
// costs a thread, is needed.
class KnownConnection {
 public:
  KnownConnection() { g_weak_ref_init(&reference_, nullptr); }
  bool IsThere() {
    const glib::Connection connection(G_DBUS_CONNECTION(g_weak_ref_get(&reference_)));
    return connection != nullptr;
  }
  void Remember(GDBusConnection* connection) { g_weak_ref_set(&reference_, connection); }

 private:
  GWeakRef reference_;
};

KnownConnection& Known() {
  static KnownConnection* const known = new KnownConnection();  // GIO may look at it to the last
  return *known;
}

glib::Connection GetSharedConnection(glib::Error& error) {
  if (Known().IsThere()) {
    return glib::Connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error.Out()));
  }
  try {
    const TimeLimit limit(kConnectLimit);
    return glib::Connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, limit.cancellable(), error.Out()));
  } catch (const std::system_error& no_thread) {
    error.Set(G_IO_ERROR_FAILED, std::string("no thread to limit the wait: ") + no_thread.what());
    return nullptr;
  }
}

bool IsChannelInterface(std::string_view interface) {
  return interface.starts_with("org.zarnet.") && interface.ends_with(".DbusCommunication");
}

// What GIO does behind the library's back on one connection. A filter: it sees every message that
// comes or goes, on GIO's own thread, so it looks at little and changes nothing.
class TrafficFilter {
 public:
  static void Install(GDBusConnection* connection) {
    g_dbus_connection_add_filter(connection, &TrafficFilter::See, new TrafficFilter,
                                 [](void* data) { delete static_cast<TrafficFilter*>(data); });
  }

 private:
  static GDBusMessage* See(GDBusConnection* /*connection*/, GDBusMessage* message,
                           gboolean incoming, void* data) {
    auto& filter = *static_cast<TrafficFilter*>(data);
    RunToItsEnd(Here(), [&] {
      if (incoming) {
        filter.SeeIncoming(message);
      } else {
        filter.SeeOutgoing(message);
      }
    });
    return message;
  }

  void SeeOutgoing(GDBusMessage* message) {
    if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) return;
    const char* member = g_dbus_message_get_member(message);
    if (member == nullptr || std::strcmp(member, "AddMatch") != 0) return;
    const char* rule = g_dbus_message_get_arg0(message);
    if (rule != nullptr) rules_.emplace(g_dbus_message_get_serial(message), rule);
  }

  void SeeIncoming(GDBusMessage* message) {
    switch (g_dbus_message_get_message_type(message)) {
      case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
        rules_.erase(g_dbus_message_get_reply_serial(message));
        break;
      case G_DBUS_MESSAGE_TYPE_ERROR:
        SeeRefusal(message);
        break;
      case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        SeeCall(message);
        break;
      default:
        break;
    }
  }

  void SeeRefusal(GDBusMessage* message) {
    const auto rule = rules_.find(g_dbus_message_get_reply_serial(message));
    if (rule == rules_.end()) return;
    CHANNEL_ERROR(Here(), "The bus refused match rule \"%s\": %s: %s\n", rule->second.c_str(),
                  OrNone(g_dbus_message_get_error_name(message)),
                  OrNone(g_dbus_message_get_arg0(message)));
    rules_.erase(rule);
  }

  static void SeeCall(GDBusMessage* message) {
    const char* interface = g_dbus_message_get_interface(message);
    if (interface == nullptr || !IsChannelInterface(interface)) return;
    const char* signature = g_dbus_message_get_signature(message);
    if (std::strcmp(signature, "a(ss)") == 0) return;
    CHANNEL_ERROR(Here(), "Call of %s from %s dropped: body of type (%s), must be (a(ss))\n",
                  OrNone(g_dbus_message_get_member(message)),
                  OrNone(g_dbus_message_get_sender(message)), signature);
  }

  std::map<guint32, std::string> rules_;  // asked for and not answered yet, by serial
};

void LogLoss(GDBusConnection* /*connection*/, gboolean vanished, GError* error, void* /*data*/) {
  CHANNEL_ERROR(Here(), "Connection to the system bus lost (%s): %s\n",
                vanished ? "closed by the bus" : "closed by this process",
                error == nullptr ? "no reason given" : error->message);
}

}  // namespace

glib::Connection ConnectToSystemBus(glib::Error& error) {
  glib::Connection connection = GetSharedConnection(error);
  if (connection == nullptr) return nullptr;
  Known().Remember(connection.get());
  PrepareConnection(connection.get());
  if (!g_dbus_connection_is_closed(connection.get())) return connection;
  error.Set(G_IO_ERROR_CLOSED,
            "the connection was lost and is still held: destroy all that was made on it first");
  return nullptr;
}

void PrepareConnection(GDBusConnection* connection) {
  static std::mutex mutex;
  constexpr const char* kPrepared = "kavrel-prepared";
  const std::lock_guard lock(mutex);
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  if (g_object_get_data(G_OBJECT(connection), kPrepared) != nullptr) return;
  g_object_set_data(G_OBJECT(connection), kPrepared, connection);
  TrafficFilter::Install(connection);
  g_signal_connect(connection, "closed", G_CALLBACK(LogLoss), nullptr);
}

namespace {

// GIO's flush has no limit and cannot be cancelled. It waits on a thread of its own that, when the
// bus takes nothing, is left to wait, and holds the connection until then. Empty: all is written.
std::string FlushProblem(GDBusConnection* connection) {
  std::packaged_task<std::string()> flush([held = glib::Share(connection)]() mutable {
    glib::Error error;
    g_dbus_connection_flush_sync(held.get(), nullptr, error.Out());
    held.reset();
    return error ? std::string(error.message()) : std::string();
  });
  std::future<std::string> outcome = flush.get_future();
  std::thread(std::move(flush)).detach();
  const bool late = outcome.wait_for(kFlushLimit) == std::future_status::timeout;
  return late ? "the bus takes nothing" : outcome.get();
}

}  // namespace

void FlushConnection(GDBusConnection* connection) {
  if (g_dbus_connection_is_closed(connection)) return;
  std::string problem;
  try {
    problem = FlushProblem(connection);
  } catch (const std::exception& error) {  // no thread or no memory for one
    problem = error.what();
  }
  if (problem.empty()) return;
  CHANNEL_ERROR(Here(), "Error while flushing the connection: %s\n", problem.c_str());
}

// What the signal handler, which runs wherever the connection was made, and the call on the watch's
// own context share.
struct LossWatch::Shared {
  using Pointer = std::shared_ptr<Shared>;

  static void OnClosed(GDBusConnection* /*connection*/, gboolean /*vanished*/, GError* /*error*/,
                       void* data) {
    const Pointer& shared = *static_cast<Pointer*>(data);
    RunToItsEnd(Here(), [&] {
      g_main_context_invoke_full(shared->context.get(), G_PRIORITY_DEFAULT, &Shared::Call,
                                 new Pointer(shared),
                                 [](void* pointer) { delete static_cast<Pointer*>(pointer); });
    });
  }

  static gboolean Call(void* data) {
    const Pointer& shared = *static_cast<Pointer*>(data);
    if (shared->lost) shared->lost();
    return G_SOURCE_REMOVE;
  }

  glib::MainContext context;
  std::function<void()> lost;  // only touched on the context
};

LossWatch::LossWatch(GDBusConnection* connection, std::function<void()> lost)
    : connection_(glib::Share(connection)), shared_(std::make_shared<Shared>()) {
  shared_->context = glib::CurrentContext();
  shared_->lost = std::move(lost);
  handler_ = g_signal_connect_data(
      connection, "closed", G_CALLBACK(&Shared::OnClosed), new Shared::Pointer(shared_),
      [](void* data, GClosure*) { delete static_cast<Shared::Pointer*>(data); },
      static_cast<GConnectFlags>(0));
}

LossWatch& LossWatch::operator=(LossWatch&& other) noexcept {
  if (this == &other) return *this;
  Reset();
  connection_ = std::move(other.connection_);
  handler_ = std::exchange(other.handler_, 0);
  shared_ = std::move(other.shared_);
  return *this;
}

void LossWatch::Reset() {
  if (shared_ == nullptr) return;
  g_signal_handler_disconnect(connection_.get(), std::exchange(handler_, 0));
  glib::RunOn(shared_->context.get(), [this] { shared_->lost = nullptr; });
  shared_.reset();
  connection_.reset();
}

}  // namespace kavreldbus
