#include "viewer_keys.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace viewer {
namespace {

using Act = bool (*)(Television& television);

struct Use {
  std::string_view key;
  Act act;
};

void ShowChannelBanner(Television& television) {
  television.SetBanner(Banner::kChannel, true, {Describe(television.channel())});
}

bool StepChannel(Television& television, int step) {
  television.TuneNext(step);
  ShowChannelBanner(television);
  return true;
}

bool SwitchSource(Television& television) {
  television.SelectNextSource();
  const Source& source = television.source();
  television.SetBanner(Banner::kSource, true, {Describe(source), source.label});
  return true;
}

bool GoBack(Television& television) {
  if (television.AnswerPopup(false)) return true;
  if (television.banners().shown().empty()) return false;
  television.HideBanner("all");
  return true;
}

bool ToggleBanner(Television& television, Banner banner, const std::string& detail) {
  television.SetBanner(banner, !television.banners().IsShown(banner), {detail});
  return true;
}

bool ToggleTeletext(Television& television) {
  television.DiscreteCommand("teletext", television.is_teletext_shown() ? "off" : "on");
  return true;
}

// The arrows move nothing on a pop-up with one answer; they are the viewer's all the same.
bool MoveOnPopup(Television& television) {
  return television.banners().IsAnyShown(BannerKind::kPopup);
}

constexpr std::array kUses = {
    Use{"XF86ChannelUp", [](Television& tv) { return StepChannel(tv, 1); }},
    Use{"XF86ChannelDown", [](Television& tv) { return StepChannel(tv, -1); }},
    Use{"XF86Source", &SwitchSource},
    Use{"XF86Info",
        [](Television& tv) { return ToggleBanner(tv, Banner::kChannel, Describe(tv.channel())); }},
    Use{"XF86Back", &GoBack},
    Use{"Return", [](Television& tv) { return tv.AnswerPopup(true); }},
    Use{"Up", &MoveOnPopup},
    Use{"Down", &MoveOnPopup},
    Use{"Left", &MoveOnPopup},
    Use{"Right", &MoveOnPopup},
    Use{"XF86Red", [](Television& tv) { return ToggleBanner(tv, Banner::kKeyGuide, "1"); }},
    Use{"XF86Green", &ToggleTeletext},
    Use{"XF86Yellow",
        [](Television& tv) {
          tv.NextSoundMode();
          return true;
        }},
    Use{"XF86Blue",
        [](Television& tv) {
          tv.TogglePip();
          return true;
        }},
    Use{"XF86AudioPlay",
        [](Television& tv) {
          tv.SetPaused(tv.activity() != Activity::kPaused);
          return true;
        }},
    Use{"XF86HomePage",
        [](Television& tv) {
          tv.SetVisible(!tv.is_visible());
          return true;
        }},
};

bool IsDigit(const std::string& key) {
  return key.size() == 1 && key[0] >= '0' && key[0] <= '9';
}

// One digit tunes at once; 0 goes back to the channel before.
void Tune(Television& television, const std::string& digit) {
  if (digit == "0") {
    television.TunePrevious();
  } else {
    television.Tune(digit, "", "");
  }
  ShowChannelBanner(television);
}

}  // namespace

bool UseKey(Television& television, const std::string& key) {
  if (IsDigit(key)) {
    Tune(television, key);
    return true;
  }
  const auto use =
      std::find_if(kUses.begin(), kUses.end(), [&key](const Use& one) { return one.key == key; });
  return use != kUses.end() && use->act(television);
}

}  // namespace viewer
