#include "test_card.h"

#include <array>

namespace viewer {
namespace {

constexpr unsigned kBlack = 0x000000;
constexpr unsigned kWhite = 0xffffff;
constexpr unsigned kLight = 0xd8dce0;
constexpr unsigned kDark = 0x14161a;
constexpr int kStep = 80;  // of the grid
constexpr Area kField{392, 216, 496, 186};
constexpr Area kSteps{392, 402, 496, 48};
constexpr int kColumns = 8;

// Each channel that is received a colour of its own, always the same.
unsigned ColourOf(const std::string& text) {
  constexpr std::array kColours = {0x245c46u, 0x46386eu, 0x6b4e33u, 0x2a5570u,
                                   0x663a58u, 0x4d5a2au, 0x32387cu, 0x703838u};
  unsigned hash = 0;
  for (const char c : text) hash = hash * 1617 + static_cast<unsigned char>(c);
  return kColours[(hash >> 8) % kColours.size()];
}

Area Column(const Area& area, int column) {
  const int width = area.width / kColumns;
  return {area.x + column * width, area.y, width, area.height};
}

void DrawGrid(Drawing& drawing, unsigned colour) {
  drawing.Box(kStage, {colour});
  for (int x = kStep; x < kStage.width; x += kStep) {
    drawing.Box({x - 1, 0, 2, kStage.height}, {kWhite, 70});
  }
  for (int y = kStep / 2; y < kStage.height; y += kStep) {
    drawing.Box({0, y - 1, kStage.width, 2}, {kWhite, 70});
  }
}

// Black and white fields along the edges: whoever sees them whole sees the whole picture.
void DrawEdges(Drawing& drawing) {
  constexpr int kDepth = 12;
  for (int x = 0; x < kStage.width; x += kStep) {
    const unsigned colour = x / kStep % 2 == 0 ? kLight : kDark;
    drawing.Box({x, 0, kStep, kDepth}, {colour});
    drawing.Box({x, kStage.height - kDepth, kStep, kDepth}, {colour});
  }
  for (int y = kStep / 2; y < kStage.height - kStep / 2; y += kStep) {
    const unsigned colour = y / kStep % 2 == 0 ? kLight : kDark;
    drawing.Box({0, y, kDepth, kStep}, {colour});
    drawing.Box({kStage.width - kDepth, y, kDepth, kStep}, {colour});
  }
}

void DrawBars(Drawing& drawing) {
  constexpr std::array kBars = {0xf0f0f0u, 0xf0e000u, 0x00e0e0u, 0x00d020u,
                                0xe000d0u, 0xe01010u, 0x1020e0u, 0x080808u};
  for (int i = 0; i < kColumns; ++i) {
    drawing.Box(Column(kField, i), {kBars[static_cast<std::size_t>(i)]});
  }
}

void DrawChequers(Drawing& drawing) {
  constexpr int kRows = 3;
  for (int i = 0; i < kColumns * kRows; ++i) {
    Area area = Column(kField, i % kColumns);
    area.height = kField.height / kRows;
    area.y += i / kColumns * area.height;
    drawing.Box(area, {(i + i / kColumns) % 2 == 0 ? 0xe8e8e8u : 0x303844u});
  }
}

void DrawGreySteps(Drawing& drawing) {
  for (int i = 0; i < kColumns; ++i) {
    const auto level = static_cast<unsigned>(i * 255 / (kColumns - 1));
    drawing.Box(Column(kSteps, i), {level << 16 | level << 8 | level});
  }
}

}  // namespace

void DrawCard(Drawing& drawing, const Card& card) {
  DrawGrid(drawing, card.broadcast ? ColourOf(card.number + ' ' + card.name) : 0x2b3440);
  DrawEdges(drawing);
  drawing.Disc(640, 360, 300, {kBlack, 90});
  card.broadcast ? DrawBars(drawing) : DrawChequers(drawing);
  DrawGreySteps(drawing);
  drawing.Ring(640, 360, 300, 5, kWhite);
  drawing.Card({500, 128, 280, 62}, 12, {kBlack, 170});
  drawing.Text(640, 159, {34, kWhite, Align::kMiddle, 260}, card.source);
  drawing.Card({432, 466, 416, 92}, 12, {kBlack, 200});
  const std::string title = card.name.empty() ? card.number : card.number + "  " + card.name;
  drawing.Text(640, 512, {50, kWhite, Align::kMiddle, 396}, title);
}

}  // namespace viewer
