// A connection to a message bus, and calls of the bus itself, each within a limit.
#pragma once

#include <string>

#include "gio_owned.h"

namespace kavrelctl {

/// "no reason given" where GIO has given none.
std::string TextOf(const GError* error);

/// Main thread, whose main context goes round meanwhile. `limit_seconds` 0: no limit. Null when it
/// cannot be had, and why in `error`.
Owned<GDBusConnection> ConnectToBus(const std::string& address, double limit_seconds,
                                    Owned<GError>& error);

/// Calls a method of the bus itself and waits for the answer. Takes the arguments. Null when it is
/// refused, and why in `error`.
Owned<GVariant> CallBus(GDBusConnection& bus, const char* interface, const char* method,
                        GVariant* arguments, double limit_seconds, Owned<GError>& error);

/// The interface of the bus that every bus has.
inline constexpr const char* kBusInterface = "org.freedesktop.DBus";

}  // namespace kavrelctl
