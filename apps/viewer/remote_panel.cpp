#include "remote_panel.h"

#include <exception>
#include <string_view>

namespace viewer {
namespace {

constexpr int kRemoteControlDevice = 0;
constexpr unsigned kPlain = 0x39414d;
constexpr unsigned kWhite = 0xffffff;
constexpr Area kPanel{Window::kWidth, 0, Window::kPanelWidth, Window::kHeight};

struct Button {
  const char* label;
  const char* key;
  Area area;  ///< on the panel
  unsigned colour = kPlain;
};

constexpr int kColumns[] = {20, 90, 160};

constexpr Area At(int column, int row) {
  return {kColumns[column], 62 + 54 * row, 60, 44};
}

constexpr std::array<Button, RemotePanel::kButtons> kTable = {{
    {"SRC", "XF86Source", At(0, 0)},
    {"INFO", "XF86Info", At(1, 0)},
    {"MENU", "XF86Menu", At(2, 0)},
    {"1", "1", At(0, 1)},
    {"2", "2", At(1, 1)},
    {"3", "3", At(2, 1)},
    {"4", "4", At(0, 2)},
    {"5", "5", At(1, 2)},
    {"6", "6", At(2, 2)},
    {"7", "7", At(0, 3)},
    {"8", "8", At(1, 3)},
    {"9", "9", At(2, 3)},
    {"PLAY", "XF86AudioPlay", At(0, 4)},
    {"0", "0", At(1, 4)},
    {"HOME", "XF86HomePage", At(2, 4)},
    {"CH+", "XF86ChannelUp", At(0, 5)},
    {"\xe2\x96\xb2", "Up", At(1, 5)},
    {"BACK", "XF86Back", At(2, 5)},
    {"\xe2\x97\x80", "Left", At(0, 6)},
    {"OK", "Return", At(1, 6)},
    {"\xe2\x96\xb6", "Right", At(2, 6)},
    {"CH-", "XF86ChannelDown", At(0, 7)},
    {"\xe2\x96\xbc", "Down", At(1, 7)},
    {"TOOLS", "XF86Tools", At(2, 7)},
    {"", "XF86Red", {20, 502, 44, 32}, 0xd03030},
    {"", "XF86Green", {72, 502, 44, 32}, 0x30a040},
    {"", "XF86Yellow", {124, 502, 44, 32}, 0xe0c020},
    {"", "XF86Blue", {176, 502, 44, 32}, 0x3060d0},
    {"VOL-", "XF86AudioLowerVolume", {20, 548, 60, 36}},
    {"MUTE", "XF86AudioMute", {90, 548, 60, 36}},
    {"VOL+", "XF86AudioRaiseVolume", {160, 548, 60, 36}},
}};

Area OnWindow(const Area& area) {
  return {kPanel.x + area.x, kPanel.y + area.y, area.width, area.height};
}

// One letter, or an arrow.
bool IsSign(std::string_view label) {
  return label.size() == 1 || label.starts_with('\xe2');
}

const Button& ButtonOf(int number) {
  return kTable[static_cast<std::size_t>(number)];
}

}  // namespace

RemotePanel::RemotePanel(const Window& window, RemoteControl& remote_control)
    : window_(window),
      remote_control_(remote_control),
      buttons_(window, kLayer),
      pressed_(window, kLayer),
      words_(window, kLayer) {
  for (int i = 0; i < kButtons; ++i) {
    Spot& spot = spots_[static_cast<std::size_t>(i)];
    spot = {this, i, evas_object_rectangle_add(window.canvas())};
    evas_object_color_set(spot.object, 0, 0, 0, 0);
    evas_object_layer_set(spot.object, kLayer + 1);
    evas_object_event_callback_add(spot.object, EVAS_CALLBACK_MOUSE_DOWN, &RemotePanel::PointerDown,
                                   &spot);
    evas_object_event_callback_add(spot.object, EVAS_CALLBACK_MOUSE_UP, &RemotePanel::PointerUp,
                                   &spot);
    evas_object_show(spot.object);
  }
  remote_control.OnHandled(
      [this](const std::string& key, PluginHost::Press press, const std::string& taker) {
        if (press == PluginHost::Press::kPressed) Show(key, taker);
      });
  Draw();
}

RemotePanel::~RemotePanel() {
  remote_control_.OnHandled(nullptr);
  for (const Spot& spot : spots_) evas_object_del(spot.object);
}

void RemotePanel::Draw() {
  buttons_.Clear();
  pressed_.Clear();
  buttons_.Box(kPanel, {0x14181e});
  buttons_.Box({kPanel.x, 0, 2, kPanel.height}, {0x000000});
  buttons_.Text(kPanel.x + kPanel.width / 2, 36, {22, 0x9fb4cc, Align::kMiddle, 220}, "kavrel");
  for (const Spot& spot : spots_) {
    const Button& button = ButtonOf(spot.button);
    const Area area = OnWindow(button.area);
    Place(spot.object, area, window_);
    buttons_.Card(area, 10, {button.colour});
    const int size = IsSign(button.label) ? 22 : 14;
    buttons_.Text(area.x + area.width / 2, area.y + area.height / 2,
                  {size, kWhite, Align::kMiddle, area.width - 4}, button.label);
  }
  Show(last_key_, last_taker_);
}

void RemotePanel::Show(const std::string& key, const std::string& taker) {
  last_key_ = key;
  last_taker_ = taker;
  words_.Clear();
  if (key.empty()) return;
  words_.Card(OnWindow({20, 606, 200, 94}), 10, {0x0b0e12});
  words_.Text(kPanel.x + 120, 632, {18, kWhite, Align::kMiddle, 184}, key);
  words_.Paragraph(OnWindow({32, 648, 180, 50}), 15, 0x9fb4cc, taker);
}

void RemotePanel::PointerDown(void* data, Evas* /*canvas*/, Evas_Object* /*object*/,
                              void* /*event*/) {
  const auto& spot = *static_cast<Spot*>(data);
  spot.panel->Handle(spot, PluginHost::Press::kPressed);
}

void RemotePanel::PointerUp(void* data, Evas* /*canvas*/, Evas_Object* /*object*/,
                            void* /*event*/) {
  const auto& spot = *static_cast<Spot*>(data);
  spot.panel->Handle(spot, PluginHost::Press::kReleased);
}

// Nothing may be thrown into EFL.
void RemotePanel::Handle(const Spot& spot, PluginHost::Press press) {
  try {
    const Button& button = ButtonOf(spot.button);
    pressed_.Clear();
    if (press == PluginHost::Press::kPressed) {
      pressed_.Card(OnWindow(button.area), 10, {kWhite, 90});
    }
    remote_control_.Handle(button.key, press, kRemoteControlDevice);
  } catch (const std::exception&) {
    // A line that does not fit into memory is lost.
  }
}

}  // namespace viewer
