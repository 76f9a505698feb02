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
  std::string_view title;  ///< for people
  std::string_view text;   ///< for people, when it was given none
};

inline constexpr std::array kBannerTable = {
    BannerInfo{Banner::kChannel, "channel", BannerKind::kVideo, "Channel", ""},
    BannerInfo{Banner::kCaption, "caption", BannerKind::kVideo, "Caption", ""},
    BannerInfo{Banner::kSource, "source", BannerKind::kVideo, "Source", ""},
    BannerInfo{Banner::kMts, "mts", BannerKind::kVideo, "Sound", ""},
    BannerInfo{Banner::kRating, "rating", BannerKind::kVideo, "Locked by rating", ""},
    BannerInfo{Banner::kNoSignal, "nosignal", BannerKind::kVideo, "No signal", ""},
    BannerInfo{Banner::kPvrInfo, "pvr-info", BannerKind::kVideo, "Recording", ""},
    BannerInfo{Banner::kSleepTimer, "sleep-timer", BannerKind::kPopup, "Sleep timer",
               "The television switches itself off when the time is over."},
    BannerInfo{Banner::kAutoPowerOff, "auto-power-off", BannerKind::kPopup, "Switching off",
               "Nobody has pressed a key for a long time. Stay on?"},
    BannerInfo{Banner::kFanError, "fan-error", BannerKind::kPopup, "Fan error",
               "A fan does not turn. Switch the television off and have it looked at."},
    BannerInfo{Banner::kProjectorHsmError, "projector-hsm-error", BannerKind::kPopup,
               "Projector too hot", "The heat sink reports an error. Let the projector cool down."},
    BannerInfo{Banner::kQdDisplay, "qd-display", BannerKind::kPopup, "Display",
               "This display shows quantum dot colours."},
    BannerInfo{Banner::kPellwinBrightnessReduce, "pellwin-brightness-reduce", BannerKind::kPopup,
               "Brightness reduced", "The picture is darker for a while to protect the display."},
    BannerInfo{Banner::kHotelNoChannel, "hotel-no-channel", BannerKind::kPopup, "No channels",
               "Please ask the reception of the hotel."},
    BannerInfo{Banner::kHospitalNoChannel, "hospital-no-channel", BannerKind::kPopup, "No channels",
               "Please ask the staff of your ward."},
    BannerInfo{Banner::kInsufficientMemory, "insufficient-memory", BannerKind::kPopup,
               "Not enough memory", "Close an application to go on."},
    BannerInfo{Banner::kSignZoomSetup, "sign-zoom-setup", BannerKind::kPopup, "Sign language zoom",
               "Move the frame onto the interpreter, then press OK."},
    BannerInfo{Banner::kReturnPrevChannel, "return-prev-channel", BannerKind::kPopup,
               "Back to the channel before?", ""},
    BannerInfo{Banner::kNoSignalPowerOffTimer, "no-signal-power-off-timer", BannerKind::kPopup,
               "No signal", "The television switches itself off soon."},
    BannerInfo{Banner::kKeyGuide, "key-guide", BannerKind::kVideo, "Keys", ""},
    BannerInfo{Banner::kGameMode, "game-mode", BannerKind::kVideo, "Game mode", ""},
    BannerInfo{Banner::kOclView, "ocl-view", BannerKind::kVideo, "One connect", ""},
    BannerInfo{Banner::kLoading, "loading", BannerKind::kVideo, "Loading", ""},
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
  unsigned long showing = 0;  ///< another one each time a banner is shown
};

/// Whether a banner leaves by itself after a while. Pop-ups wait for an answer, and the loading
/// screen for what is loaded.
constexpr bool IsFleeting(Banner banner) {
  return InfoOf(banner).kind == BannerKind::kVideo && banner != Banner::kLoading;
}

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
  unsigned long showings_ = 0;
  std::array<bool, kBannerTable.size()> disabled_{};
};

}  // namespace viewer
