#include "picture.h"

#include <array>
#include <utility>

#include "test_card.h"

namespace viewer {
namespace {

constexpr unsigned kBlack = 0x000000;
constexpr unsigned kWhite = 0xffffff;
constexpr unsigned kGrey = 0x8090a0;
constexpr Area kPip{872, 436, 360, 202};
constexpr int kMiddle = kStage.width / 2;

// Window sizes 0 to 3, in the middle.
Area PictureArea(int window_size) {
  constexpr std::array kPercent = {100, 75, 50, 25};
  const int percent = kPercent.at(static_cast<std::size_t>(window_size));
  const int width = kStage.width * percent / 100;
  const int height = kStage.height * percent / 100;
  return {(kStage.width - width) / 2, (kStage.height - height) / 2, width, height};
}

Card CardOf(const Channel& channel) {
  const std::string number = channel.number.empty() ? channel.service_id : channel.number;
  return {number, channel.name, channel.source, true};
}

Card CardOf(const Television& television) {
  if (television.is_on_channel()) return CardOf(television.channel());
  const Source& source = television.source();
  return {Describe(source), "", source.label.empty() ? "no label" : source.label, false};
}

std::string TextOf(const Television& television, Banner banner, const std::string& otherwise) {
  for (const ShownBanner& shown : television.banners().shown()) {
    if (shown.banner != banner || shown.details.empty()) continue;
    if (!shown.details.front().empty()) return shown.details.front();
  }
  return otherwise;
}

void DrawWords(Drawing& drawing, const std::string& title, const std::string& text) {
  drawing.Text(kMiddle, 362, {56, kWhite, Align::kMiddle, 1100}, title);
  drawing.Text(kMiddle, 430, {28, 0xd0d4dc, Align::kMiddle, 1100}, text);
}

// Always the same snow, so that two pictures of it can be compared.
void DrawSnow(Drawing& drawing, const Television& television) {
  constexpr int kFlake = 40;
  drawing.Box(kStage, {0x46484c});
  unsigned random = 1;
  for (int y = 0; y < kStage.height; y += kFlake) {
    for (int x = 0; x < kStage.width; x += kFlake) {
      random = random * 1103515245U + 12345U;
      const unsigned level = 0x38 + (random >> 16) % 0x28;
      drawing.Box({x, y, kFlake, kFlake}, {level << 16 | level << 8 | level});
    }
  }
  drawing.Card({200, 150, 880, 330}, 24, {kBlack, 200});
  drawing.Ring(kMiddle, 248, 52, 8, kWhite);
  drawing.Box({kMiddle - 4, 220, 9, 36}, {kWhite});
  drawing.Box({kMiddle - 4, 266, 9, 9}, {kWhite});
  DrawWords(drawing, "No signal",
            TextOf(television, Banner::kNoSignal, "on " + Describe(television.channel())));
}

void DrawLock(Drawing& drawing, const Television& television) {
  drawing.Box(kStage, {0x3c1418});
  drawing.Ring(kMiddle, 162, 46, 14, kWhite);
  drawing.Card({kMiddle - 78, 166, 156, 120}, 16, {kWhite});
  drawing.Disc(kMiddle, 214, 15, {0x3c1418});
  drawing.Box({kMiddle - 6, 218, 12, 40}, {0x3c1418});
  DrawWords(drawing, "Locked by rating", TextOf(television, Banner::kRating, ""));
}

void DrawLoading(Drawing& drawing, const Television& television) {
  constexpr std::array<std::array<int, 2>, 8> kDots = {
      {{0, -60}, {42, -42}, {60, 0}, {42, 42}, {0, 60}, {-42, 42}, {-60, 0}, {-42, -42}}};
  drawing.Box(kStage, {0x05070c});
  int cover = 60;
  for (const auto& [x, y] : kDots) {
    drawing.Disc(kMiddle + x, 220 + y, 13, {kWhite, cover});
    cover += 27;
  }
  DrawWords(drawing, "Loading", TextOf(television, Banner::kLoading, ""));
}

void DrawTeletext(Drawing& drawing, const Television& television) {
  constexpr std::array kColours = {0x00ffffu, 0xffff00u, 0x00ff00u, 0xff00ffu, 0xffffffu};
  drawing.Box(kStage, {kBlack});
  drawing.Text(120, 80, {34, kWhite}, "P100   teletext");
  drawing.Text(1160, 80, {34, 0xffff00, Align::kRight, 600}, Describe(television.channel()));
  drawing.Box({120, 120, 1040, 84}, {0x0000c0});
  drawing.Text(140, 162, {56, 0xffff00, Align::kLeft, 1000}, television.channel().name);
  for (int row = 0; row < 8; ++row) {
    const int y = 240 + 44 * row;
    const unsigned colour = kColours[static_cast<std::size_t>(row) % kColours.size()];
    for (int word = 0, x = 120; word < 6; ++word) {
      const int width = 70 + (row * 37 + word * 53) % 90;
      drawing.Box({x, y, width, 22}, {colour});
      x += width + 18;
    }
  }
}

void DrawPause(Drawing& drawing) {
  drawing.Box(kStage, {kBlack, 110});
  drawing.Disc(kMiddle, 360, 110, {kBlack, 190});
  drawing.Box({kMiddle - 46, 304, 32, 112}, {kWhite});
  drawing.Box({kMiddle + 14, 304, 32, 112}, {kWhite});
}

// On a view: the whole stage, a smaller window, a magnified part.
void DrawProgramme(Drawing& drawing, const Television& television) {
  switch (television.activity()) {
    case Activity::kNoSignal:
      return DrawSnow(drawing, television);
    case Activity::kLocked:
      return DrawLock(drawing, television);
    case Activity::kLoading:
      return DrawLoading(drawing, television);
    case Activity::kRunning:
    case Activity::kPaused:
      break;
  }
  if (television.is_teletext_shown()) {
    DrawTeletext(drawing, television);
  } else {
    DrawCard(drawing, CardOf(television));
  }
  if (television.activity() == Activity::kPaused) DrawPause(drawing);
}

void DrawPip(Drawing& drawing, const Television& television) {
  if (!television.pip()) return;
  drawing.SetView(kPip);
  drawing.SetClip(&kStage);
  DrawCard(drawing, CardOf(*television.pip()));
  drawing.SetClip(nullptr);
  drawing.SetView(kStage);
  drawing.Frame({kPip.x - 4, kPip.y - 4, kPip.width + 8, kPip.height + 8}, 4,
                television.is_pip_focused() ? kWhite : kGrey);
}

// What it encloses is shown as large as its level says, around the same middle.
void DrawMagnified(Drawing& drawing, const Television& television, const Area& frame) {
  const double factor = static_cast<double>(kStage.width) / 2 / frame.width;
  const Area picture = PictureArea(television.window_size());
  const auto grown = [factor](int middle, int begin, int length) {
    return std::pair(static_cast<int>(middle - (middle - begin) * factor),
                     static_cast<int>(length * factor));
  };
  const auto [x, width] = grown(frame.x + frame.width / 2, picture.x, picture.width);
  const auto [y, height] = grown(frame.y + frame.height / 2, picture.y, picture.height);
  drawing.SetClip(&frame);
  drawing.SetView({x, y, width, height});
  DrawProgramme(drawing, television);
  drawing.SetClip(nullptr);
  drawing.SetView(kStage);
}

// Its places are given on a picture of 1920x1080.
void DrawSelectionWindow(Drawing& drawing, const Television& television) {
  const SelectionWindow& selection = television.selection_window();
  if (!selection.is_shown()) return;
  const auto scaled = [](int length) { return length * kStage.width / viewer::kPicture.width; };
  const Position at = selection.position();
  const Size size = selection.size();
  const Area frame{scaled(at.left), scaled(at.top), scaled(size.width), scaled(size.height)};
  const MoveRange range = selection.move_range();
  const Area reach{scaled(range.least.left), scaled(range.least.top),
                   scaled(range.greatest.left - range.least.left),
                   scaled(range.greatest.top - range.least.top)};
  if (selection.zoom_level() > 0) DrawMagnified(drawing, television, frame);
  drawing.Frame(reach, 1, 0xffd060);
  drawing.Disc(frame.x, frame.y, 7, {0xffd060});
  drawing.Frame(frame, 3, kWhite);
  const std::string label = std::to_string(at.left) + ',' + std::to_string(at.top) + "  " +
                            std::to_string(size.width) + 'x' + std::to_string(size.height) +
                            "  zoom " + std::to_string(selection.zoom_level());
  drawing.Box({frame.x + 3, frame.y + 3, frame.width - 6, 30}, {kBlack, 170});
  drawing.Text(frame.x + 14, frame.y + 18, {18, kWhite, Align::kLeft, frame.width - 24}, label);
}

}  // namespace

void DrawPicture(Drawing& drawing, const Television& television) {
  const Area area = PictureArea(television.window_size());
  drawing.Box(kStage, {kBlack});
  drawing.SetView(area);
  DrawProgramme(drawing, television);
  drawing.SetView(kStage);
  if (!television.is_visible()) {
    drawing.Box(kStage, {kBlack, 170});
    drawing.Text(kMiddle, 360, {40, kWhite, Align::kMiddle, 1100}, "in the background");
  }
  DrawPip(drawing, television);
  DrawSelectionWindow(drawing, television);
}

}  // namespace viewer
