// One descriptor and one moment, watched by a GLib main context.
#pragma once

#include <glib.h>

#include <cstdint>
#include <functional>

namespace kavrel_rpc {

/// Calls its handler on the thread that runs the context, whenever the descriptor can be read (or
/// was hung up; -1: none) and at the set moment. Made and destroyed on any thread; destroying does
/// not wait for a handler that is running.
class EventSource {
 public:
  /// The handler returns false to be called no more. What it throws ends here, with a log line.
  using Handler = std::function<bool()>;

  EventSource(GMainContext* context, int fd, const char* name, Handler handler);
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;
  ~EventSource();

  /// Also calls the handler at this time (CLOCK_MONOTONIC in ms; kNever: not at all). The moment
  /// stays set until it is changed.
  void WakeAt(std::int64_t when_ms);

 private:
  GSource* source_;
  std::int64_t when_ms_;
};

}  // namespace kavrel_rpc
