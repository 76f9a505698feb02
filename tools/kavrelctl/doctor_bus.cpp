// The system bus, and whether this user may meet plug-ins on it.
#include <unistd.h>

#include "bus_connection.h"
#include "doctor.h"

namespace kavrelctl {
namespace {

constexpr const char* kPolicyName = "org.zarnet.kavrel.conf";
constexpr const char* kPolicyPlaces[] = {"/usr/share/dbus-1/system.d/", "/etc/dbus-1/system.d/"};

// Owns a name for a moment, as host and plug-ins do all the time.
Finding CheckPolicy(GDBusConnection& bus, double limit_seconds) {
  const std::string name = "org.zarnet.kavrelctl_doctor_" + std::to_string(::getpid());
  Owned<GError> error;
  const auto call = [&](const char* method, GVariant* arguments) {
    return CallBus(bus, kBusInterface, method, arguments, limit_seconds, error);
  };
  if (call("RequestName", g_variant_new("(su)", name.c_str(), 0U)) == nullptr) {
    return {"bus policy", Health::kProblem,
            "this user may not own names below org.zarnet: " + TextOf(error.get()),
            "install the policy file, and add this user to its group (kavrel): usermod -aG kavrel "
            "USER"};
  }
  call("ReleaseName", g_variant_new("(s)", name.c_str()));
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
  Owned<GError> error;
  const auto bus = ConnectToBus(paths.bus_address, limit_seconds, error);
  if (bus == nullptr) {
    findings.push_back(
        {"system bus", Health::kWarning,
         paths.bus_address + ": " + TextOf(error.get()) + "; plug-ins are off without it",
         "start it: systemctl start dbus; or name another one in "
         "DBUS_SYSTEM_BUS_ADDRESS"});
  } else {
    findings.push_back({"system bus", Health::kOk, paths.bus_address, ""});
    findings.push_back(CheckPolicy(*bus, limit_seconds));
  }
  findings.push_back(CheckPolicyFile(paths));
  return findings;
}

}  // namespace kavrelctl
