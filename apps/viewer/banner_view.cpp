#include "banner_view.h"

#include <algorithm>
#include <vector>

namespace viewer {
namespace {

constexpr unsigned kBannerColour = 0x10284c;
constexpr unsigned kPopupColour = 0x2b1d12;
constexpr unsigned kPopupEdge = 0xe08a30;
constexpr unsigned kTitle = 0x9fc4f0;
constexpr unsigned kQuiet = 0xc8d4e4;
constexpr unsigned kWhite = 0xffffff;

constexpr Area kLowestBanner{40, 564, 680, 76};
constexpr int kBannerStep = 86;
constexpr std::size_t kMostBanners = 6;
constexpr Area kFirstPopup{800, 40, 440, 150};
constexpr int kPopupStep = 162;
constexpr std::size_t kMostPopups = 3;

// One colour a kind of message, at the banner's left edge.
unsigned EdgeOf(Banner banner) {
  switch (banner) {
    case Banner::kRating:
    case Banner::kNoSignal:
      return 0xe04848;
    case Banner::kSource:
      return 0x40c080;
    case Banner::kCaption:
    case Banner::kMts:
      return 0xe0c040;
    default:
      return 0x4090f0;
  }
}

struct Words {
  std::string left;
  std::string right;
};

std::string Joined(const std::vector<std::string>& texts, std::size_t begin) {
  std::string joined;
  for (std::size_t i = begin; i < texts.size(); ++i) {
    if (texts[i].empty()) continue;
    joined += (joined.empty() ? "" : "   ") + texts[i];
  }
  return joined;
}

std::string ServicesText(const Services& services) {
  std::string text;
  if (services.teletext) text += "  TXT";
  if (services.caption) text += "  CC";
  if (services.subtitle) text += "  SUB";
  if (services.ttml) text += "  TTML";
  if (services.data) text += "  DATA";
  return text;
}

std::string GuideText(const std::vector<std::string>& details) {
  const std::string page = details.empty() ? "1" : details.front();
  const char* const keys = page == "1"   ? "1 to 9 and CH+ CH- tune"
                           : page == "2" ? "green text, yellow sound, blue PiP"
                                         : "0 channel before, SRC, PLAY, HOME";
  return "Page " + page + ": " + keys;
}

Words WordsOf(const ShownBanner& shown, const Television& television) {
  if (shown.banner == Banner::kChannel) {
    const Channel& channel = television.channel();
    return {Describe(channel), channel.source + ServicesText(television.services())};
  }
  if (shown.banner == Banner::kKeyGuide) return {GuideText(shown.details), ""};
  if (shown.details.empty()) return {};
  return {shown.details.front(), Joined(shown.details, 1)};
}

void DrawBanner(Drawing& drawing, const Area& area, const ShownBanner& shown,
                const Television& television) {
  const Words words = WordsOf(shown, television);
  drawing.Card(area, 12, {kBannerColour});
  drawing.Card({area.x + 10, area.y + 12, 6, area.height - 24}, 3, {EdgeOf(shown.banner)});
  drawing.Text(area.x + 30, area.y + 21, {16, kTitle, Align::kLeft, 400},
               std::string(InfoOf(shown.banner).title));
  const int right_width = words.right.empty() ? 0 : 310;
  drawing.Text(area.x + 30, area.y + 51, {27, kWhite, Align::kLeft, area.width - 56 - right_width},
               words.left);
  drawing.Text(area.x + area.width - 22, area.y + 51, {20, kQuiet, Align::kRight, 300},
               words.right);
}

void DrawPopup(Drawing& drawing, const Area& area, const ShownBanner& shown) {
  const BannerInfo& info = InfoOf(shown.banner);
  const std::string text = Joined(shown.details, 0);
  drawing.Card({area.x - 3, area.y - 3, area.width + 6, area.height + 6}, 15, {kPopupEdge});
  drawing.Card(area, 12, {kPopupColour});
  drawing.Text(area.x + 24, area.y + 30, {24, kPopupEdge, Align::kLeft, area.width - 48},
               std::string(info.title));
  drawing.Paragraph({area.x + 24, area.y + 52, area.width - 136, area.height - 62}, 20, kWhite,
                    text.empty() ? std::string(info.text) : text);
  const Area button{area.x + area.width - 92, area.y + area.height - 52, 72, 36};
  drawing.Card(button, 18, {kPopupEdge});
  drawing.Text(button.x + button.width / 2, button.y + 18, {18, kPopupColour, Align::kMiddle, 64},
               "OK");
}

std::vector<const ShownBanner*> ShownOf(const BannerBoard& banners, BannerKind kind,
                                        std::size_t most) {
  std::vector<const ShownBanner*> found;
  for (const ShownBanner& shown : banners.shown()) {
    if (InfoOf(shown.banner).kind == kind) found.push_back(&shown);
  }
  if (found.size() > most) found.erase(found.begin(), found.end() - static_cast<long>(most));
  return found;
}

}  // namespace

void DrawBanners(Drawing& drawing, const Television& television) {
  const BannerBoard& banners = television.banners();
  Area area = kLowestBanner;
  for (const ShownBanner* shown : ShownOf(banners, BannerKind::kVideo, kMostBanners)) {
    DrawBanner(drawing, area, *shown, television);
    area.y -= kBannerStep;
  }
  area = kFirstPopup;
  for (const ShownBanner* shown : ShownOf(banners, BannerKind::kPopup, kMostPopups)) {
    DrawPopup(drawing, area, *shown);
    area.y += kPopupStep;
  }
}

void DrawCalls(Drawing& drawing, const std::deque<std::string>& calls) {
  constexpr int kLine = 20;
  if (calls.empty()) return;
  const int height = 8 + kLine * static_cast<int>(calls.size());
  int y = kStage.height - height;
  drawing.Box({0, y, kStage.width, height}, {0x000000, 190});
  y += 14;
  for (const std::string& call : calls) {
    const bool latest = &call == &calls.back();
    drawing.Text(16, y, {14, latest ? kWhite : 0xa0a8b0, Align::kLeft, kStage.width - 32}, call);
    y += kLine;
  }
}

}  // namespace viewer
