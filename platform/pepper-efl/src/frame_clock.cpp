#include "frame_clock.h"

#include <utility>

#include "surface.h"

namespace kavrel_pepper {
namespace {

constexpr double kUnrenderedFrameSeconds = 0.03;

}  // namespace

FrameClock::~FrameClock() {
  if (timer_ != nullptr) ecore_timer_del(timer_);
}

void FrameClock::Want(Surface* surface) {
  waiting_.insert(surface);
  if (timer_ == nullptr) timer_ = ecore_timer_add(kUnrenderedFrameSeconds, &TimedOut, this);
}

Eina_Bool FrameClock::TimedOut(void* data) {
  auto* self = static_cast<FrameClock*>(data);
  self->timer_ = nullptr;
  try {
    self->End();
  } catch (...) {
    // Only memory can have run out; the next commit asks for a frame again.
  }
  return ECORE_CALLBACK_CANCEL;
}

bool FrameClock::End() {
  ++number_;
  if (timer_ != nullptr) ecore_timer_del(std::exchange(timer_, nullptr));
  const std::unordered_set<Surface*> ended = std::exchange(waiting_, {});
  const auto now = static_cast<std::uint32_t>(static_cast<std::uint64_t>(ecore_time_get() * 1000));
  for (Surface* surface : ended) surface->FrameDone(now);
  return !ended.empty();
}

}  // namespace kavrel_pepper
