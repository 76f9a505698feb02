#include "bus_monitor.h"

#include <gio/gio.h>
#include <ready_fd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <deque>
#include <glib-unix.h>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

#include "bus_traffic.h"
#include "output.h"
#include "settings.h"

namespace kavrelctl {
namespace {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  void operator()(GError* error) const { g_error_free(error); }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

// What the bus hands over faster than it can be printed is dropped beyond this, and counted.
constexpr std::size_t kLongestQueue = 10'000;

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

/// Messages on their way from GIO's thread to the main thread. A monitor must never say a word:
/// nothing that arrives reaches GIO's own dispatching, which would answer calls.
class Tap {
 public:
  /// A connection's filter. GIO's thread.
  static GDBusMessage* Filter(GDBusConnection* /*connection*/, GDBusMessage* message,
                              gboolean incoming, void* tap) {
    return static_cast<Tap*>(tap)->See(message, incoming != FALSE);
  }

  struct Batch {
    std::deque<Owned<GDBusMessage>> messages;
    std::size_t missed = 0;
  };
  /// What has come since the last time. Main thread.
  Batch Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(batch_, {});
  }

 private:
  GDBusMessage* See(GDBusMessage* message, bool incoming) {
    if (!incoming) {
      const char* member = g_dbus_message_get_member(message);
      const bool asks = member != nullptr && std::strcmp(member, "BecomeMonitor") == 0;
      if (asks) question_ = g_dbus_message_get_serial(message);
      return message;
    }
    if (!monitoring_) {
      monitoring_ = question_ != 0 && g_dbus_message_get_reply_serial(message) == question_ &&
                    g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_RETURN;
      return message;
    }
    Keep(Owned<GDBusMessage>(message));
    return nullptr;
  }

  void Keep(Owned<GDBusMessage> message) {
    {
      const std::lock_guard lock(mutex_);
      if (batch_.messages.size() == kLongestQueue) {
        ++batch_.missed;
      } else {
        batch_.messages.push_back(std::move(message));
      }
    }
    g_main_context_wakeup(nullptr);
  }

  guint32 question_ = 0;     // GIO's thread
  bool monitoring_ = false;  // GIO's thread
  std::mutex mutex_;
  Batch batch_;
};

std::int64_t NowMilliseconds() {
  return g_get_monotonic_time() / 1000;
}

std::string TimeOfDay() {
  GDateTime* const now = g_date_time_new_now_local();
  char* const seconds = g_date_time_format(now, "%H:%M:%S");
  const std::string thousandths = std::to_string(1000 + g_date_time_get_microsecond(now) / 1000);
  std::string text = std::string(seconds) + "." + thousandths.substr(1);
  g_free(seconds);
  g_date_time_unref(now);
  return text;
}

/// Main thread only, whose main context it runs.
class Monitor {
 public:
  Monitor(const BusArguments& arguments, double limit_seconds, bool json)
      : arguments_(arguments), json_(json), limit_seconds_(limit_seconds) {}
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;
  ~Monitor();

  int Run();

 private:
  /// An asynchronous call of GIO that is waited for.
  struct Waiting {
    Owned<GAsyncResult> result;
    static void Done(GObject* /*source*/, GAsyncResult* result, void* waiting) {
      static_cast<Waiting*>(waiting)->result.reset(
          static_cast<GAsyncResult*>(g_object_ref(result)));
    }
  };

  bool Connect();
  void LearnOwners();
  bool BecomeMonitor();
  Owned<GVariant> CallBus(const char* interface, const char* method, GVariant* arguments);
  int LimitMilliseconds() const;
  bool Fail(const char* what);
  bool AnnounceReady();
  void PrintArrived();
  void PrintEvent(BusEvent event);
  void Stop(int exit_code) { exit_code_ = exit_code_.value_or(exit_code); }
  static gboolean OnSignal(gpointer monitor);
  static gboolean OnReaderGone(gint fd, GIOCondition condition, gpointer monitor);
  static gboolean OnSecond(gpointer monitor);
  static void OnClosed(GDBusConnection* connection, gboolean vanished, GError* error,
                       gpointer monitor);

  const BusArguments& arguments_;
  bool json_;
  double limit_seconds_;
  Owned<GDBusConnection> connection_;
  Owned<GError> error_;
  // Outlives the connection, whose filter it is, on GIO's thread too.
  std::shared_ptr<Tap> tap_ = std::make_shared<Tap>();
  BusTraffic traffic_;
  unsigned printed_ = 0;
  std::optional<int> exit_code_;
};

Monitor::~Monitor() {
  while (g_source_remove_by_user_data(this)) {
  }
  if (connection_ != nullptr) g_signal_handlers_disconnect_by_data(connection_.get(), this);
}

int Monitor::LimitMilliseconds() const {
  if (limit_seconds_ <= 0) return G_MAXINT;
  return static_cast<int>(std::min(limit_seconds_ * 1000, 1e9));
}

bool Monitor::Fail(const char* what) {
  PrintError(std::string(what) + ": " + (error_ == nullptr ? "no reason given" : error_->message));
  return false;
}

bool Monitor::Connect() {
  GError* error = nullptr;
  char* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  error_.reset(error);
  if (address == nullptr) return Fail("no address of the system bus");
  const Owned<GCancellable> cancellable(g_cancellable_new());
  const guint limit = g_timeout_add(
      static_cast<guint>(LimitMilliseconds()),
      [](void* late) -> gboolean {
        g_cancellable_cancel(static_cast<GCancellable*>(late));
        return G_SOURCE_CONTINUE;
      },
      cancellable.get());
  Waiting waiting;
  g_dbus_connection_new_for_address(
      address,
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancellable.get(), &Waiting::Done, &waiting);
  g_free(address);
  while (waiting.result == nullptr) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(limit);
  error = nullptr;
  connection_.reset(g_dbus_connection_new_for_address_finish(waiting.result.get(), &error));
  error_.reset(error);
  if (connection_ == nullptr) return Fail("cannot connect to the system bus");
  g_signal_connect(connection_.get(), "closed", G_CALLBACK(&Monitor::OnClosed), this);
  return true;
}

Owned<GVariant> Monitor::CallBus(const char* interface, const char* method, GVariant* arguments) {
  GError* error = nullptr;
  Owned<GVariant> reply(g_dbus_connection_call_sync(
      connection_.get(), kBus, kBusPath, interface, method, arguments, nullptr,
      G_DBUS_CALL_FLAGS_NONE, LimitMilliseconds(), nullptr, &error));
  error_.reset(error);
  return reply;
}

// Who is host already; what changes while this runs is seen later.
void Monitor::LearnOwners() {
  const auto names = CallBus(kBus, "ListNames", nullptr);
  if (names == nullptr || !g_variant_is_of_type(names.get(), G_VARIANT_TYPE("(as)"))) return;
  GVariantIter* iter = nullptr;
  const char* name = nullptr;
  g_variant_get(names.get(), "(as)", &iter);
  while (g_variant_iter_next(iter, "&s", &name)) {
    if (std::strncmp(name, "org.zarnet.", 11) != 0) continue;
    const auto owner = CallBus(kBus, "GetNameOwner", g_variant_new("(s)", name));
    if (owner == nullptr || !g_variant_is_of_type(owner.get(), G_VARIANT_TYPE("(s)"))) continue;
    const char* who = nullptr;
    g_variant_get(owner.get(), "(&s)", &who);
    traffic_.KnowOwner(name, who);
  }
  g_variant_iter_free(iter);
}

bool Monitor::BecomeMonitor() {
  g_dbus_connection_add_filter(
      connection_.get(),
      [](GDBusConnection* connection, GDBusMessage* message, gboolean incoming, void* tap) {
        return Tap::Filter(connection, message, incoming,
                           static_cast<std::shared_ptr<Tap>*>(tap)->get());
      },
      new std::shared_ptr<Tap>(tap_),
      [](void* tap) { delete static_cast<std::shared_ptr<Tap>*>(tap); });
  GVariantBuilder rules;
  g_variant_builder_init(&rules, G_VARIANT_TYPE("as"));
  g_variant_builder_add(&rules, "s",
                        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'");
  g_variant_builder_add(&rules, "s", "path_namespace='/org/zarnet'");
  if (CallBus("org.freedesktop.DBus.Monitoring", "BecomeMonitor",
              g_variant_new("(asu)", &rules, 0U)) != nullptr) {
    return true;
  }
  return Fail("the bus does not let this user watch it (root may, and the bus's own user)");
}

bool Monitor::AnnounceReady() {
  PrintError("watching the bus; Ctrl-C ends");
  if (!arguments_.ready_fd || kavrel_programs::TellReady(*arguments_.ready_fd)) return true;
  PrintError("cannot write to the descriptor of --ready-fd");
  return false;
}

int Monitor::Run() {
  if (!Connect()) return kFailed;
  LearnOwners();
  if (!BecomeMonitor()) return kFailed;
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &OnSignal, this);
  g_unix_fd_add(STDOUT_FILENO, static_cast<GIOCondition>(G_IO_ERR | G_IO_HUP), &OnReaderGone, this);
  g_timeout_add_seconds(1, &OnSecond, this);
  if (!AnnounceReady()) return kFailed;
  while (!exit_code_) {
    PrintArrived();
    if (!exit_code_) g_main_context_iteration(nullptr, TRUE);
  }
  return *exit_code_;
}

void Monitor::PrintArrived() {
  const Tap::Batch batch = tap_->Take();
  for (const auto& message : batch.messages) {
    for (BusEvent& event : traffic_.See(message.get(), NowMilliseconds())) {
      if (!exit_code_) PrintEvent(std::move(event));
    }
  }
  if (batch.missed != 0) {
    PrintError(std::to_string(batch.missed) + " messages came faster than they could be printed");
  }
}

void Monitor::PrintEvent(BusEvent event) {
  const bool printed =
      json_ ? PrintJson(event) : Print(TimeOfDay() + "  " + EventText(event) + '\n');
  if (!printed) {
    Stop(kFailed);
  } else if (++printed_ == arguments_.count) {
    Stop(kDone);
  }
}

gboolean Monitor::OnSignal(gpointer monitor) {
  static_cast<Monitor*>(monitor)->Stop(kDone);
  return G_SOURCE_CONTINUE;
}

gboolean Monitor::OnReaderGone(gint /*fd*/, GIOCondition /*condition*/, gpointer monitor) {
  static_cast<Monitor*>(monitor)->Stop(kFailed);
  return G_SOURCE_REMOVE;
}

gboolean Monitor::OnSecond(gpointer monitor) {
  auto& self = *static_cast<Monitor*>(monitor);
  for (BusEvent& event : self.traffic_.HeldNames(NowMilliseconds())) {
    if (!self.exit_code_) self.PrintEvent(std::move(event));
  }
  return G_SOURCE_CONTINUE;
}

void Monitor::OnClosed(GDBusConnection* /*connection*/, gboolean /*vanished*/, GError* /*error*/,
                       gpointer monitor) {
  auto& self = *static_cast<Monitor*>(monitor);
  self.PrintArrived();
  if (!self.exit_code_) PrintError("the bus has gone");
  self.Stop(kFailed);
}

}  // namespace

int RunBusMonitor(const BusArguments& arguments, double limit_seconds, bool json) {
  return Monitor(arguments, limit_seconds, json).Run();
}

}  // namespace kavrelctl
