// A few descriptors and one moment, watched by a GLib main context.
#pragma once

#include <glib.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

namespace kavrel_rpc {

/// Calls its handler, never within itself, on the thread that runs the context: whenever a
/// descriptor can be read or was hung up, and at the set moment. Made and destroyed on any thread;
/// destroying does not wait for a handler that is running. The rest is for within the handler.
class EventSource {
 public:
  static constexpr std::size_t kSlots = 5;

  /// The handler returns false to be called no more. What it throws ends here, with a log line.
  using Handler = std::function<bool()>;

  /// Watches `fd` in slot 0 (-1: none) and wakes at `when_ms` as WakeAt does.
  EventSource(GMainContext* context, const char* name, int fd, std::int64_t when_ms,
              Handler handler);
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;
  ~EventSource();

  /// The descriptor of one slot; -1: none.
  void Watch(std::size_t slot, int fd);
  /// Whether the handler is being called because of this slot.
  bool IsReady(std::size_t slot) const;

  /// Also calls the handler at this time (CLOCK_MONOTONIC in ms; kNever: not at all). The moment
  /// stays set until it is changed.
  void WakeAt(std::int64_t when_ms);

  /// Has the handler called once, soon. Any thread, as long as the source is there.
  void Kick();

 private:
  struct State;
  static gboolean Dispatch(GSource* source, GSourceFunc callback, gpointer data);

  GSource* source_;
  State* state_;  // lives as long as the source
};

}  // namespace kavrel_rpc
