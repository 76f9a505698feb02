#include "surface_state.h"

#include <utility>

namespace kavrel_pepper {
namespace {

// Bounds what a client can make us collect before it commits.
constexpr int kMostDamageBoxes = 32;

template <class T>
void TakeIfSet(std::optional<T>& into, std::optional<T>& from) {
  if (from) into = std::exchange(from, std::nullopt);
}

void TakeDamage(Region& into, Region& from) {
  into.Add(from);
  into.LimitTo(kMostDamageBoxes);
  from.Clear();
}

}  // namespace

FrameCallbacks::~FrameCallbacks() {
  // Each takes itself out of the list.
  while (wl_list_empty(&head_) == 0) wl_resource_destroy(wl_resource_from_link(head_.next));
}

void FrameCallbacks::Add(wl_resource* callback) {
  wl_list_insert(head_.prev, wl_resource_get_link(callback));
  wl_resource_set_implementation(callback, nullptr, nullptr, [](wl_resource* gone) {
    wl_list_remove(wl_resource_get_link(gone));
  });
}

void FrameCallbacks::TakeFrom(FrameCallbacks& other) {
  wl_list_insert_list(head_.prev, &other.head_);
  wl_list_init(&other.head_);
}

void FrameCallbacks::Done(std::uint32_t milliseconds) {
  wl_resource *callback, *next;
  wl_resource_for_each_safe(callback, next, &head_) {
    wl_callback_send_done(callback, milliseconds);
    wl_resource_destroy(callback);
  }
}

void SurfaceState::Merge(SurfaceState& newer) {
  if (newer.attached) {
    if (buffer != nullptr) buffer->Release();
    attached = true;
    buffer = std::move(newer.buffer);
    newer.attached = false;
  }
  TakeDamage(surface_damage, newer.surface_damage);
  TakeDamage(buffer_damage, newer.buffer_damage);
  TakeIfSet(opaque, newer.opaque);
  if (std::exchange(newer.input_set, false)) {
    input_set = true;
    input = std::exchange(newer.input, std::nullopt);
  }
  TakeIfSet(scale, newer.scale);
  TakeIfSet(transform, newer.transform);
  frames.TakeFrom(newer.frames);
}

}  // namespace kavrel_pepper
