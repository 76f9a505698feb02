#include "screen.h"

#include <array>
#include <new>

namespace viewer {
namespace {

constexpr unsigned kBlack = 0x000000;
constexpr unsigned kWhite = 0xffffff;
constexpr unsigned kGrey = 0x404040;
constexpr unsigned kDarkRed = 0x501818;
constexpr unsigned kBannerColour = 0x103c78;
constexpr unsigned kPopupColour = 0xa05010;
constexpr Area kWhole{0, 0, Window::kWidth, Window::kHeight};
constexpr Area kPip{880, 40, 360, 200};

// Window sizes 0 to 3, in the middle.
Area PictureArea(int window_size) {
  constexpr std::array kPercent = {100, 75, 50, 25};
  const int percent = kPercent.at(static_cast<std::size_t>(window_size));
  const int width = kWhole.width * percent / 100;
  const int height = kWhole.height * percent / 100;
  return {(kWhole.width - width) / 2, (kWhole.height - height) / 2, width, height};
}

// Each channel that is received a colour of its own, always the same.
unsigned ColourOf(const std::string& text) {
  constexpr std::array kColours = {0x1f4d3au, 0x3a2f5cu, 0x57402au, 0x24465cu,
                                   0x4f2f45u, 0x3f4a22u, 0x2a2f66u, 0x5c2f2fu};
  unsigned hash = 0;
  for (const char c : text) hash = hash * 1617 + static_cast<unsigned char>(c);
  return kColours[(hash >> 8) % kColours.size()];
}

std::string PictureText(const Television& television) {
  const Source& source = television.source();
  if (source != Source{television.channel().source, "", ""}) {
    return source.type + ' ' + source.number + ' ' + source.label;
  }
  return Describe(television.channel());
}

unsigned PictureColour(const Television& television) {
  switch (television.activity()) {
    case Activity::kNoSignal:
      return kGrey;
    case Activity::kLocked:
      return kDarkRed;
    case Activity::kLoading:
      return kBlack;
    case Activity::kRunning:
      break;
  }
  return ColourOf(PictureText(television));
}

// "channel: 7, News" for people
std::string BannerText(const ShownBanner& shown, const Television& television) {
  std::string text(InfoOf(shown.banner).name);
  const char* separator = ": ";
  if (shown.banner == Banner::kChannel) return text + separator + Describe(television.channel());
  for (const std::string& detail : shown.details) {
    text += separator + detail;
    separator = ", ";
  }
  return text;
}

}  // namespace

Screen::Screen(const Window& window, Television& television)
    : television_(television), picture_(window, kPictureLayer), banners_(window, kBannerLayer) {
  television.AddListener([this](const Change& /*change*/) { Invalidate(); });
  DrawAll(this);
}

Screen::~Screen() {
  if (job_ != nullptr) ecore_job_del(job_);
}

void Screen::Invalidate() {
  if (job_ == nullptr) job_ = ecore_job_add(&Screen::DrawAll, this);
}

void Screen::Draw() {
  if (job_ == nullptr) return;
  ecore_job_del(job_);
  DrawAll(this);
}

void Screen::DrawAll(void* self) {
  auto& screen = *static_cast<Screen*>(self);
  screen.job_ = nullptr;
  try {
    screen.picture_.Clear();
    screen.banners_.Clear();
    screen.DrawPicture();
    screen.DrawPip();
    screen.DrawSelectionWindow();
    screen.DrawBanners();
  } catch (const std::bad_alloc&) {
    // What is missing is drawn with the next change.
  }
}

void Screen::DrawPicture() {
  const Area area = PictureArea(television_.window_size());
  picture_.Box(kWhole, kBlack);
  picture_.Box(area, PictureColour(television_));
  picture_.Text(area.x + 24, area.y + 16, 28, PictureText(television_));
  if (television_.activity() != Activity::kRunning) {
    picture_.Text(area.x + 24, area.y + 56, 20, ActivityName(television_.activity()));
  } else if (television_.is_teletext_shown()) {
    picture_.Text(area.x + 24, area.y + 56, 20, "teletext");
  }
}

void Screen::DrawPip() {
  if (!television_.pip()) return;
  picture_.Box(kPip, ColourOf(Describe(*television_.pip())));
  picture_.Text(kPip.x + 12, kPip.y + 8, 20, Describe(*television_.pip()));
  picture_.Frame(kPip, 4, television_.is_pip_focused() ? kWhite : kGrey);
}

// The frame is given on a picture of 1920x1080.
void Screen::DrawSelectionWindow() {
  const SelectionWindow& selection = television_.selection_window();
  if (selection.zoom_level() == 0) return;
  const Position at = selection.position();
  const Size size = selection.size();
  picture_.Frame({at.left * 2 / 3, at.top * 2 / 3, size.width * 2 / 3, size.height * 2 / 3}, 3,
                 kWhite);
}

// Video banners from the bottom upwards, pop-ups from the top downwards on the right.
void Screen::DrawBanners() {
  Area banner{48, kWhole.height - 88, 560, 56};
  Area popup{672, 48, 560, 56};
  for (const ShownBanner& shown : television_.banners().shown()) {
    const bool is_popup = InfoOf(shown.banner).kind == BannerKind::kPopup;
    Area& area = is_popup ? popup : banner;
    banners_.Box(area, is_popup ? kPopupColour : kBannerColour);
    banners_.Text(area.x + 16, area.y + 14, 22, BannerText(shown, television_));
    area.y += is_popup ? 64 : -64;
  }
}

}  // namespace viewer
