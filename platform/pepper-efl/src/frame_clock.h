// When clients may draw their next picture.
#pragma once

#include <Ecore.h>

#include <cstdint>
#include <unordered_set>

namespace kavrel_pepper {

class Surface;

/// Ends a frame when the canvas was rendered, or a while after a commit that changed nothing on the
/// canvas (hidden windows), so that no client waits for ever. Main thread.
class FrameClock {
 public:
  FrameClock() = default;
  FrameClock(const FrameClock&) = delete;
  FrameClock& operator=(const FrameClock&) = delete;
  ~FrameClock();

  /// Counts frames, from 1.
  std::uint64_t number() const { return number_; }

  /// The surface has something to do at the end of the frame.
  void Want(Surface* surface);
  void Forget(Surface* surface) { waiting_.erase(surface); }

  /// Ends the frame; true when any surface had waited.
  bool End();

 private:
  static Eina_Bool TimedOut(void* data);

  std::uint64_t number_ = 1;
  std::unordered_set<Surface*> waiting_;
  Ecore_Timer* timer_ = nullptr;
};

}  // namespace kavrel_pepper
