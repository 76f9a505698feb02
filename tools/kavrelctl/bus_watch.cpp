#include "bus_watch.h"

#include <cstring>
#include <deque>
#include <mutex>
#include <utility>

#include "bus_connection.h"

namespace kavrelctl {
namespace {

// What the bus hands over faster than it is delivered is dropped beyond this, and counted.
constexpr std::size_t kLongestQueue = 10'000;

std::int64_t NowMilliseconds() {
  return g_get_monotonic_time() / 1000;
}

gboolean GoRound(gpointer /*nothing*/) {
  return G_SOURCE_CONTINUE;
}

}  // namespace

/// Messages on their way from GIO's thread to the main thread. A monitor must never say a word:
/// nothing that arrives reaches GIO's own dispatching, which would answer calls.
class BusTap {
 public:
  /// A connection's filter. GIO's thread.
  static GDBusMessage* Filter(GDBusConnection* /*connection*/, GDBusMessage* message,
                              gboolean incoming, void* tap) {
    return static_cast<BusTap*>(tap)->See(message, incoming != FALSE);
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

BusWatch::BusWatch(double limit_seconds)
    : limit_seconds_(limit_seconds), tap_(std::make_shared<BusTap>()) {}

BusWatch::~BusWatch() {
  if (second_ != 0) g_source_remove(second_);
  if (connection_ != nullptr) g_signal_handlers_disconnect_by_data(connection_.get(), this);
}

std::string BusWatch::Begin() {
  std::string failure = Connect();
  if (!failure.empty()) return failure;
  LearnOwners();
  failure = BecomeMonitor();
  // Names that are held too long are told without a message.
  if (failure.empty()) second_ = g_timeout_add_seconds(1, &GoRound, nullptr);
  return failure;
}

std::size_t BusWatch::Deliver(const OnEvent& on_event) {
  const BusTap::Batch batch = tap_->Take();
  for (const auto& message : batch.messages) {
    for (BusEvent& event : traffic_.See(message.get(), NowMilliseconds())) {
      on_event(std::move(event));
    }
  }
  for (BusEvent& event : traffic_.HeldNames(NowMilliseconds())) on_event(std::move(event));
  return batch.missed;
}

std::string BusWatch::Failure(const char* what) const {
  return std::string(what) + ": " + TextOf(error_.get());
}

std::string BusWatch::Connect() {
  GError* error = nullptr;
  char* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  error_.reset(error);
  if (address == nullptr) return Failure("no address of the system bus");
  connection_ = ConnectToBus(address, limit_seconds_, error_);
  g_free(address);
  if (connection_ == nullptr) return Failure("cannot connect to the system bus");
  g_signal_connect(connection_.get(), "closed", G_CALLBACK(&BusWatch::OnClosed), this);
  return {};
}

Owned<GVariant> BusWatch::Call(const char* interface, const char* method, GVariant* arguments) {
  return CallBus(*connection_, interface, method, arguments, limit_seconds_, error_);
}

// Who is host already; what changes while this runs is seen later.
void BusWatch::LearnOwners() {
  const auto names = Call(kBusInterface, "ListNames", nullptr);
  if (names == nullptr || !g_variant_is_of_type(names.get(), G_VARIANT_TYPE("(as)"))) return;
  GVariantIter* iter = nullptr;
  const char* name = nullptr;
  g_variant_get(names.get(), "(as)", &iter);
  while (g_variant_iter_next(iter, "&s", &name)) {
    if (std::strncmp(name, "org.zarnet.", 11) != 0) continue;
    const auto owner = Call(kBusInterface, "GetNameOwner", g_variant_new("(s)", name));
    if (owner == nullptr || !g_variant_is_of_type(owner.get(), G_VARIANT_TYPE("(s)"))) continue;
    const char* who = nullptr;
    g_variant_get(owner.get(), "(&s)", &who);
    traffic_.KnowOwner(name, who);
  }
  g_variant_iter_free(iter);
}

std::string BusWatch::BecomeMonitor() {
  g_dbus_connection_add_filter(
      connection_.get(),
      [](GDBusConnection* connection, GDBusMessage* message, gboolean incoming, void* tap) {
        return BusTap::Filter(connection, message, incoming,
                              static_cast<std::shared_ptr<BusTap>*>(tap)->get());
      },
      new std::shared_ptr<BusTap>(tap_),
      [](void* tap) { delete static_cast<std::shared_ptr<BusTap>*>(tap); });
  GVariantBuilder rules;
  g_variant_builder_init(&rules, G_VARIANT_TYPE("as"));
  g_variant_builder_add(&rules, "s",
                        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'");
  g_variant_builder_add(&rules, "s", "path_namespace='/org/zarnet'");
  if (Call("org.freedesktop.DBus.Monitoring", "BecomeMonitor",
           g_variant_new("(asu)", &rules, 0U)) != nullptr) {
    return {};
  }
  return Failure("the bus does not let this user watch it (root may, and the bus's own user)");
}

void BusWatch::OnClosed(GDBusConnection* /*connection*/, gboolean /*vanished*/, GError* /*error*/,
                        gpointer watch) {
  static_cast<BusWatch*>(watch)->lost_ = true;
}

}  // namespace kavrelctl
