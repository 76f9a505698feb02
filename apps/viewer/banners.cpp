#include "banners.h"

#include <algorithm>
#include <utility>

namespace viewer {

std::optional<Banner> FindBanner(std::string_view name) {
  const auto found = std::find_if(kBannerTable.begin(), kBannerTable.end(),
                                  [name](const BannerInfo& info) { return info.name == name; });
  if (found == kBannerTable.end()) return std::nullopt;
  return found->banner;
}

BannerBoard::Outcome BannerBoard::Show(Banner banner, std::vector<std::string> details) {
  if (IsDisabled(banner)) return Outcome::kDisabled;
  Hide(banner);
  shown_.push_back({banner, std::move(details), ++showings_});
  return Outcome::kShown;
}

BannerBoard::Outcome BannerBoard::Hide(Banner banner) {
  const auto removed =
      std::erase_if(shown_, [banner](const ShownBanner& shown) { return shown.banner == banner; });
  return removed > 0 ? Outcome::kHidden : Outcome::kUnchanged;
}

BannerBoard::Outcome BannerBoard::Disable(Banner banner) {
  disabled_[static_cast<std::size_t>(banner)] = true;
  return Hide(banner);
}

void BannerBoard::Enable(Banner banner) {
  disabled_[static_cast<std::size_t>(banner)] = false;
}

bool BannerBoard::IsShown(Banner banner) const {
  return std::any_of(shown_.begin(), shown_.end(),
                     [banner](const ShownBanner& shown) { return shown.banner == banner; });
}

bool BannerBoard::IsAnyShown(BannerKind kind) const {
  return std::any_of(shown_.begin(), shown_.end(), [kind](const ShownBanner& shown) {
    return InfoOf(shown.banner).kind == kind;
  });
}

}  // namespace viewer
