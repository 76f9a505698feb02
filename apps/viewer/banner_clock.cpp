#include "banner_clock.h"

#include <exception>

namespace viewer {

BannerClock::BannerClock(Television& television, OperationLog& log, double seconds)
    : television_(television), log_(log), seconds_(seconds) {
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    slots_[i].clock = this;
    slots_[i].banner = kBannerTable[i].banner;
  }
  if (seconds_ <= 0) return;
  television.AddListener([this](const Change& change) {
    if (change.aspect == Aspect::kBanners) Follow();
  });
}

BannerClock::~BannerClock() {
  for (Slot& slot : slots_) Stop(slot);
}

void BannerClock::Follow() {
  std::array<unsigned long, kBannerTable.size()> showings{};
  for (const ShownBanner& shown : television_.banners().shown()) {
    if (IsFleeting(shown.banner)) showings[static_cast<std::size_t>(shown.banner)] = shown.showing;
  }
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (slots_[i].showing != showings[i]) Start(slots_[i], showings[i]);
  }
}

void BannerClock::Start(Slot& slot, unsigned long showing) {
  Stop(slot);
  slot.showing = showing;
  if (showing != 0) slot.timer = ecore_timer_add(seconds_, &BannerClock::TimeIsUp, &slot);
}

void BannerClock::Stop(Slot& slot) {
  if (slot.timer != nullptr) ecore_timer_del(slot.timer);
  slot.timer = nullptr;
  slot.showing = 0;
}

Eina_Bool BannerClock::TimeIsUp(void* data) {
  auto& slot = *static_cast<Slot*>(data);
  slot.timer = nullptr;
  slot.showing = 0;
  try {
    const std::string name(InfoOf(slot.banner).name);
    slot.clock->television_.EndBanner(slot.banner);
    slot.clock->log_.WriteEvent("time is up", "banner_timeout", {{"banner", name}});
  } catch (const std::exception&) {
    // A line that does not fit into memory is lost.
  }
  return ECORE_CALLBACK_CANCEL;
}

}  // namespace viewer
