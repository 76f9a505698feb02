// Connections to the system bus: the one that GIO shares in a process, seen to its end, and others
// beside it.
#pragma once

#include <gio/gio.h>

namespace kavrel_test {

/// Waits, running the default main context, until nobody in the process holds the connection any
/// more, so that who asks for the system bus next gets a new one. Aborts when somebody never lets
/// go. Without a bus nothing is waited for.
void ForgetSystemBus();

/// A connection that nobody else in the process uses, to be unreferenced; null when there is no
/// bus.
GDBusConnection* OpenOwnConnection();

}  // namespace kavrel_test
