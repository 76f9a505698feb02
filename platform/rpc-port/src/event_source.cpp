#include "event_source.h"

#include <atomic>
#include <memory>

#include "clock.h"
#include "guard.h"

namespace kavrel_rpc {
namespace {

// What a source calls. The flag publishes the handler to the thread that runs the context by means
// that the language knows of, and not by GLib's locks alone.
struct Closure {
  explicit Closure(EventSource::Handler function) : handler(std::move(function)) {
    is_ready.store(true, std::memory_order_release);
  }
  EventSource::Handler handler;
  std::atomic<bool> is_ready{false};
};

gboolean CallClosure(gpointer data) {
  auto& closure = *static_cast<Closure*>(data);
  if (!closure.is_ready.load(std::memory_order_acquire)) return G_SOURCE_CONTINUE;
  gboolean goes_on = G_SOURCE_CONTINUE;
  RunGuarded("the dispatch of an event",
             [&] { goes_on = closure.handler() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE; });
  return goes_on;
}

void DeleteClosure(gpointer data) {
  delete static_cast<Closure*>(data);
}

gboolean DispatchSource(GSource*, GSourceFunc callback, gpointer data) {
  return callback(data);
}

GSourceFuncs source_functions = {nullptr, nullptr, &DispatchSource, nullptr, nullptr, nullptr};

}  // namespace

EventSource::EventSource(GMainContext* context, int fd, const char* name, Handler handler)
    : source_(::g_source_new(&source_functions, sizeof(GSource))), when_ms_(kNever) {
  auto closure = std::make_unique<Closure>(std::move(handler));
  ::g_source_set_static_name(source_, name);
  if (fd >= 0) {
    ::g_source_add_unix_fd(source_, fd, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR));
  }
  ::g_source_set_callback(source_, &CallClosure, closure.release(), &DeleteClosure);
  ::g_source_attach(source_, context);
}

EventSource::~EventSource() {
  ::g_source_destroy(source_);
  ::g_source_unref(source_);
}

void EventSource::WakeAt(std::int64_t when_ms) {
  if (when_ms == when_ms_) return;
  when_ms_ = when_ms;
  ::g_source_set_ready_time(source_, when_ms == kNever ? -1 : when_ms * 1000);
}

}  // namespace kavrel_rpc
