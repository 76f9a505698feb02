// The process's connection to the system bus, as all channels of the process share it.
//
// GIO hands the same connection to everybody in the process who asks for the system bus. The
// library changes one thing about it for all of them: the process does not end when the bus does.
#pragma once

#include <functional>
#include <memory>

#include "../common/glib.h"

namespace kavreldbus {

/// The shared connection. Null, and `error` set, when there is no bus, when it does not answer
/// within 25 seconds, and when the connection was lost and something in the process still holds it.
/// Any thread.
kavrel::glib::Connection ConnectToSystemBus(kavrel::glib::Error& error);

/// What ConnectToSystemBus does with a connection, for one that GIO handed over by another way: its
/// loss does not end the process and is logged, and so are match rules that the bus refuses (it
/// takes 512 from a connection; GIO does not look at the answer, and a channel without its rules
/// hears nothing) and calls of a channel's "Send" with another body, which GIO answers itself. Any
/// thread, any number of times.
void PrepareConnection(GDBusConnection* connection);

/// Waits until what was sent so far has left the process, at most 5 seconds. A connection whose
/// last reference is dropped forgets what is still queued.
void FlushConnection(GDBusConnection* connection);

/// Calls back once when a connection is lost, on the context that was the thread's default when it
/// was made, and never after its end.
class LossWatch {
 public:
  LossWatch() = default;
  LossWatch(GDBusConnection* connection, std::function<void()> lost);
  LossWatch(const LossWatch&) = delete;
  LossWatch& operator=(const LossWatch&) = delete;
  LossWatch& operator=(LossWatch&& other) noexcept;
  ~LossWatch() { Reset(); }

  void Reset();

 private:
  struct Shared;

  kavrel::glib::Connection connection_;
  gulong handler_ = 0;
  std::shared_ptr<Shared> shared_;
};

}  // namespace kavreldbus
