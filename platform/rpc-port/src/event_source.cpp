#include "event_source.h"

#include <handover.h>

#include "clock.h"
#include "guard.h"

namespace kavrel_rpc {
namespace {

constexpr auto kReadable = static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR);

struct Slot {
  int fd = -1;
  gpointer tag = nullptr;
};

}  // namespace

// What a source has. Once attached it belongs to the thread that runs the context.
//
// A handler may run the main context itself, within which it must not be called again. GLib would
// see to that by taking the descriptors out of the poll set for every call and waking itself up
// twice: five system calls, a third of an ordinary request. So GLib is told that this source may be
// called within itself, and the descriptors are taken out only when that really happens.
struct EventSource::State {
  explicit State(Handler function) : handler(std::move(function)) {}

  Handler handler;
  std::array<Slot, kSlots> slots;
  bool is_running = false;
  bool is_muted = false;
  gint64 ready_time = -1;  // what is set when not muted

  void Mute(GSource* source) {
    is_muted = true;
    ::g_source_set_ready_time(source, -1);
    for (auto& slot : slots) {
      if (slot.tag != nullptr) ::g_source_remove_unix_fd(source, slot.tag);
      slot.tag = nullptr;
    }
  }

  void Unmute(GSource* source) {
    is_muted = false;
    if (::g_source_is_destroyed(source)) return;
    // Unless it was kicked meanwhile.
    if (::g_source_get_ready_time(source) == -1) ::g_source_set_ready_time(source, ready_time);
    for (auto& slot : slots) {
      if (slot.fd >= 0) slot.tag = ::g_source_add_unix_fd(source, slot.fd, kReadable);
    }
  }
};

gboolean EventSource::Dispatch(GSource* source, GSourceFunc, gpointer data) {
  auto& state = *static_cast<State*>(data);
  kavrel_platform::TakeObject(data);
  if (state.is_running) {
    state.Mute(source);
    return G_SOURCE_CONTINUE;
  }
  state.is_running = true;
  bool goes_on = true;
  RunGuarded("the dispatch of an event", [&] { goes_on = state.handler(); });
  state.is_running = false;
  if (state.is_muted) state.Unmute(source);
  kavrel_platform::GiveObject(data);
  return goes_on ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

EventSource::EventSource(GMainContext* context, const char* name, int fd, std::int64_t when_ms,
                         Handler handler) {
  static GSourceFuncs functions = {nullptr, nullptr, &EventSource::Dispatch,
                                   nullptr, nullptr, nullptr};
  auto state = std::make_unique<State>(std::move(handler));
  source_ = ::g_source_new(&functions, sizeof(GSource));
  state_ = state.release();
  ::g_source_set_static_name(source_, name);
  ::g_source_set_can_recurse(source_, TRUE);
  // GLib insists on a function; Dispatch itself does the work.
  const GSourceFunc unused = [](gpointer) -> gboolean { return G_SOURCE_REMOVE; };
  ::g_source_set_callback(source_, unused, state_, [](gpointer data) {
    kavrel_platform::TakeObject(data);
    delete static_cast<State*>(data);
  });
  Watch(0, fd);
  WakeAt(when_ms);
  kavrel_platform::GiveObject(state_);
  ::g_source_attach(source_, context);
}

EventSource::~EventSource() {
  kavrel_platform::GiveObject(state_);
  ::g_source_destroy(source_);
  ::g_source_unref(source_);
}

void EventSource::Watch(std::size_t slot, int fd) {
  Slot& entry = state_->slots[slot];
  if (entry.tag != nullptr) ::g_source_remove_unix_fd(source_, entry.tag);
  entry = {fd, nullptr};
  if (fd >= 0 && !state_->is_muted) {
    entry.tag = ::g_source_add_unix_fd(source_, fd, kReadable);
  }
}

bool EventSource::IsReady(std::size_t slot) const {
  const gpointer tag = state_->slots[slot].tag;
  return tag != nullptr && ::g_source_query_unix_fd(source_, tag) != 0;
}

void EventSource::WakeAt(std::int64_t when_ms) {
  state_->ready_time = when_ms == kNever ? -1 : when_ms * 1000;
  if (state_->is_muted || ::g_source_get_ready_time(source_) == state_->ready_time) return;
  ::g_source_set_ready_time(source_, state_->ready_time);
}

void EventSource::Kick() {
  ::g_source_set_ready_time(source_, 0);
}

}  // namespace kavrel_rpc
