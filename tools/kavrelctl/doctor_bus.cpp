// The system bus, and whether this user may meet plug-ins on it.
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "doctor.h"
#include "gio_owned.h"

namespace kavrelctl {
namespace {

constexpr const char* kPolicyName = "org.zarnet.kavrel.conf";
constexpr const char* kPolicyPlaces[] = {"/usr/share/dbus-1/system.d/", "/etc/dbus-1/system.d/"};

std::string TextOf(const GError* error) {
  return error != nullptr ? error->message : "no reason given";
}

struct Attempt {
  bool is_over = false;
  Owned<GDBusConnection> connection;
  Owned<GError> error;

  static void Done(GObject* /*source*/, GAsyncResult* result, void* self) {
    auto& attempt = *static_cast<Attempt*>(self);
    GError* error = nullptr;
    attempt.connection.reset(g_dbus_connection_new_for_address_finish(result, &error));
    attempt.error.reset(error);
    attempt.is_over = true;
  }
};

int LimitMilliseconds(double seconds) {
  return seconds <= 0 ? G_MAXINT : static_cast<int>(std::min(seconds * 1000, 1e9));
}

// Connecting itself knows no limit.
void Connect(const std::string& address, double limit_seconds, Attempt& attempt) {
  const Owned<GCancellable> cancellable(g_cancellable_new());
  const guint limit = g_timeout_add(
      static_cast<guint>(LimitMilliseconds(limit_seconds)),
      [](void* late) -> gboolean {
        g_cancellable_cancel(static_cast<GCancellable*>(late));
        return G_SOURCE_CONTINUE;
      },
      cancellable.get());
  g_dbus_connection_new_for_address(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancellable.get(), &Attempt::Done, &attempt);
  while (!attempt.is_over) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(limit);
}

// Owns a name for a moment, as host and plug-ins do all the time.
Finding CheckPolicy(GDBusConnection* bus, double limit_seconds) {
  const std::string name = "org.zarnet.kavrelctl_doctor_" + std::to_string(::getpid());
  const auto call = [&](const char* method, GVariant* arguments, GError** error) {
    return Owned<GVariant>(g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, LimitMilliseconds(limit_seconds), nullptr,
        error));
  };
  GError* error = nullptr;
  const auto owned = call("RequestName", g_variant_new("(su)", name.c_str(), 0U), &error);
  const Owned<GError> refusal(error);
  if (owned == nullptr) {
    return {"bus policy", Health::kProblem,
            "this user may not own names below org.zarnet: " + TextOf(refusal.get()),
            "install the policy file, and add this user to its group (kavrel): usermod -aG kavrel "
            "USER"};
  }
  call("ReleaseName", g_variant_new("(s)", name.c_str()), nullptr);
  return {"bus policy", Health::kOk, "this user may own names below org.zarnet", ""};
}

Finding CheckPolicyFile(const Paths& paths) {
  for (const char* place : kPolicyPlaces) {
    const std::string file = std::string(place) + kPolicyName;
    if (::access(file.c_str(), R_OK) == 0) return {"bus policy file", Health::kOk, file, ""};
  }
  if (paths.has_bus_of_its_own) {
    return {"bus policy file", Health::kOk, "not needed: the bus is one of this user's own", ""};
  }
  return {"bus policy file", Health::kWarning,
          std::string(kPolicyName) + " is not where the bus reads it",
          std::string("install it: cp ") + kPolicyName + ' ' + kPolicyPlaces[0] +
              ", then systemctl reload dbus"};
}

}  // namespace

std::vector<Finding> CheckBus(const Paths& paths, double limit_seconds) {
  std::vector<Finding> findings;
  Attempt attempt;
  Connect(paths.bus_address, limit_seconds, attempt);
  if (attempt.connection == nullptr) {
    findings.push_back(
        {"system bus", Health::kWarning,
         paths.bus_address + ": " + TextOf(attempt.error.get()) + "; plug-ins are off without it",
         "start it: systemctl start dbus; or name another one in "
         "DBUS_SYSTEM_BUS_ADDRESS"});
  } else {
    g_dbus_connection_set_exit_on_close(attempt.connection.get(), FALSE);
    findings.push_back({"system bus", Health::kOk, paths.bus_address, ""});
    findings.push_back(CheckPolicy(attempt.connection.get(), limit_seconds));
  }
  findings.push_back(CheckPolicyFile(paths));
  return findings;
}

}  // namespace kavrelctl
