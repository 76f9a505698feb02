// The connection to the system bus that GIO shares in a process, seen to its end.
#pragma once

namespace kavrel_test {

/// Waits, running the default main context, until nobody in the process holds the connection any
/// more, so that who asks for the system bus next gets a new one. Aborts when somebody never lets
/// go. Without a bus nothing is waited for.
void ForgetSystemBus();

}  // namespace kavrel_test
