// How long banners stay.
#pragma once

#include <Ecore.h>

#include <array>

#include "operation_log.h"
#include "television.h"

namespace viewer {

/// Hides each banner that leaves by itself when it has been shown for some seconds, and writes a
/// line about it. A banner that is shown again begins anew. Belongs to the main thread, while EFL
/// is up; television and log outlive it, and the television is not commanded any more after its
/// end.
class BannerClock {
 public:
  /// With 0 seconds banners stay until they are hidden.
  BannerClock(Television& television, OperationLog& log, double seconds);
  BannerClock(const BannerClock&) = delete;
  BannerClock& operator=(const BannerClock&) = delete;
  ~BannerClock();

 private:
  struct Slot {
    BannerClock* clock = nullptr;
    Banner banner = Banner::kChannel;
    unsigned long showing = 0;
    Ecore_Timer* timer = nullptr;
  };

  static Eina_Bool TimeIsUp(void* slot);

  void Follow();
  void Start(Slot& slot, unsigned long showing);
  static void Stop(Slot& slot);

  Television& television_;
  OperationLog& log_;
  double seconds_;
  std::array<Slot, kBannerTable.size()> slots_;
};

}  // namespace viewer
