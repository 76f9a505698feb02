// What can appear over the picture: banners and pop-ups, each with the name by which clients
// enable, disable and hide it.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace viewer {

enum class Banner {
  kChannel,
  kCaption,
  kSource,
  kMts,
  kRating,
  kNoSignal,
  kPvrInfo,
  kSleepTimer,
  kAutoPowerOff,
  kFanError,
  kProjectorHsmError,
  kQdDisplay,
  kPellwinBrightnessReduce,
  kHotelNoChannel,
  kHospitalNoChannel,
  kInsufficientMemory,
  kSignZoomSetup,
  kReturnPrevChannel,
  kNoSignalPowerOffTimer,
  kKeyGuide,
  kGameMode,
  kOclView,
  kLoading,
};

/// A video banner tells about the picture and lets the viewer go on; a pop-up wants an answer and
/// takes the direction keys.
enum class BannerKind { kVideo, kPopup };

struct BannerInfo {
  Banner banner;
  std::string_view name;  ///< "channel"
  BannerKind kind;
};

inline constexpr std::array kBannerTable = {
    BannerInfo{Banner::kChannel, "channel", BannerKind::kVideo},
    BannerInfo{Banner::kCaption, "caption", BannerKind::kVideo},
    BannerInfo{Banner::kSource, "source", BannerKind::kVideo},
    BannerInfo{Banner::kMts, "mts", BannerKind::kVideo},
    BannerInfo{Banner::kRating, "rating", BannerKind::kVideo},
    BannerInfo{Banner::kNoSignal, "nosignal", BannerKind::kVideo},
    BannerInfo{Banner::kPvrInfo, "pvr-info", BannerKind::kVideo},
    BannerInfo{Banner::kSleepTimer, "sleep-timer", BannerKind::kPopup},
    BannerInfo{Banner::kAutoPowerOff, "auto-power-off", BannerKind::kPopup},
    BannerInfo{Banner::kFanError, "fan-error", BannerKind::kPopup},
    BannerInfo{Banner::kProjectorHsmError, "projector-hsm-error", BannerKind::kPopup},
    BannerInfo{Banner::kQdDisplay, "qd-display", BannerKind::kPopup},
    BannerInfo{Banner::kPellwinBrightnessReduce, "pellwin-brightness-reduce", BannerKind::kPopup},
    BannerInfo{Banner::kHotelNoChannel, "hotel-no-channel", BannerKind::kPopup},
    BannerInfo{Banner::kHospitalNoChannel, "hospital-no-channel", BannerKind::kPopup},
    BannerInfo{Banner::kInsufficientMemory, "insufficient-memory", BannerKind::kPopup},
    BannerInfo{Banner::kSignZoomSetup, "sign-zoom-setup", BannerKind::kPopup},
    BannerInfo{Banner::kReturnPrevChannel, "return-prev-channel", BannerKind::kPopup},
    BannerInfo{Banner::kNoSignalPowerOffTimer, "no-signal-power-off-timer", BannerKind::kPopup},
    BannerInfo{Banner::kKeyGuide, "key-guide", BannerKind::kVideo},
    BannerInfo{Banner::kGameMode, "game-mode", BannerKind::kVideo},
    BannerInfo{Banner::kOclView, "ocl-view", BannerKind::kVideo},
    BannerInfo{Banner::kLoading, "loading", BannerKind::kVideo},
};

constexpr const BannerInfo& InfoOf(Banner banner) {
  return kBannerTable[static_cast<std::size_t>(banner)];
}

namespace detail {
constexpr bool BannersStandInOrder() {
  for (std::size_t i = 0; i < kBannerTable.size(); ++i) {
    if (static_cast<std::size_t>(kBannerTable[i].banner) != i) return false;
  }
  return true;
}
static_assert(BannersStandInOrder(), "the table of banners follows the enumeration");
}  // namespace detail

/// The banner of that name, or nothing.
std::optional<Banner> FindBanner(std::string_view name);

/// A banner on the screen with the texts it was given.
struct ShownBanner {
  Banner banner;
  std::vector<std::string> details;

  bool operator==(const ShownBanner&) const = default;
};

/// What is on the screen, lowest first, and what may not appear there. Belongs to the viewer's main
/// thread; no more banners than the table has, so it cannot grow.
class BannerBoard {
 public:
  enum class Outcome { kShown, kHidden, kUnchanged, kDisabled };

  /// Shows a banner, or replaces the details of one that is shown and raises it.
  Outcome Show(Banner banner, std::vector<std::string> details);
  Outcome Hide(Banner banner);
  /// A banner that is disabled is hidden, and cannot be shown until it is enabled.
  Outcome Disable(Banner banner);
  void Enable(Banner banner);
  void HideAll() { shown_.clear(); }

  bool IsShown(Banner banner) const;
  bool IsDisabled(Banner banner) const { return disabled_[static_cast<std::size_t>(banner)]; }
  bool IsAnyShown(BannerKind kind) const;
  const std::vector<ShownBanner>& shown() const { return shown_; }

 private:
  std::vector<ShownBanner> shown_;
  std::array<bool, kBannerTable.size()> disabled_{};
};

}  // namespace viewer
