#include "television.h"

#include <algorithm>
#include <array>
#include <utility>

namespace viewer {
namespace {

constexpr const char* kTunerSource = "DVB-T";
constexpr std::array<const char*, 3> kSoundModes = {"Stereo", "Dual I", "Dual II"};

const std::array<Source, 3>& Inputs() {
  static const std::array<Source, 3> inputs = {
      {{"HDMI", "1", "Player"}, {"HDMI", "2", "Console"}, {"AV", "", "Recorder"}}};
  return inputs;
}

std::string Named(Banner banner) {
  return std::string(InfoOf(banner).name) +
         (InfoOf(banner).kind == BannerKind::kPopup ? " pop-up" : " banner");
}

// "channel banner shown: 7, News"
std::string ShownText(Banner banner, const std::vector<std::string>& details) {
  std::string text = Named(banner) + " shown";
  const char* separator = ": ";
  for (const std::string& detail : details) {
    text += separator + detail;
    separator = ", ";
  }
  return text;
}

std::string PositionText(Position position) {
  return std::to_string(position.left) + ',' + std::to_string(position.top);
}

std::string OutOfRange(Position position, const MoveRange& range) {
  return "position " + PositionText(position) + " is outside " + PositionText(range.least) +
         " to " + PositionText(range.greatest);
}

Channel PlainChannel(const std::string& number) {
  const Channel* known = FindChannelByNumber(number);
  return known != nullptr ? *known : Channel{number, "", kTunerSource, "", {}};
}

}  // namespace

std::string Describe(const Source& source) {
  return source.number.empty() ? source.type : source.type + ' ' + source.number;
}

const char* ActivityName(Activity activity) {
  switch (activity) {
    case Activity::kRunning:
      return "running";
    case Activity::kLoading:
      return "loading";
    case Activity::kNoSignal:
      return "no-signal";
    case Activity::kLocked:
      return "locked";
    case Activity::kPaused:
      return "paused";
  }
  return "?";
}

Television::Television() : channel_(PlainChannel("1")), source_{channel_.source, "", ""} {}

// --- Picture

void Television::ChangeSource(const std::string& type, const std::string& number,
                              const std::string& label) {
  source_ = {type, number, label};
  on_channel_ = false;
  Tell(Aspect::kSource, "source " + Describe(source_) + (label.empty() ? "" : " (" + label + ')'));
  ShowFreshPicture();
}

void Television::Tune(const std::string& number, const std::string& name,
                      const std::string& source) {
  Channel channel = PlainChannel(number);
  if (!name.empty()) channel.name = name;
  if (!source.empty()) channel.source = source;
  TuneTo(std::move(channel));
}

void Television::TuneMajor(int major_number, int minor_number) {
  if (major_number < 1 || minor_number < 0) {
    Refuse("channel numbers begin at 1, minor ones at 0");
    return;
  }
  const std::string number = std::to_string(major_number);
  TuneTo(PlainChannel(minor_number == 0 ? number : number + '-' + std::to_string(minor_number)));
}

void Television::TuneService(const std::string& service_id) {
  const Channel* known = FindChannelByServiceId(service_id);
  TuneTo(known != nullptr ? *known : Channel{"", "", kTunerSource, service_id, {}});
}

void Television::TuneByVoice(const std::string& wanted) {
  const Channel* known = FindChannelByName(wanted);
  TuneTo(known != nullptr ? *known : PlainChannel(wanted));
}

void Television::TuneNext(int step) {
  TuneTo(ChannelAfter(channel_.number, step));
}

void Television::TunePrevious() {
  if (previous_channel_) {
    TuneTo(*previous_channel_);
  } else {
    Refuse("there is no channel before this one");
  }
}

void Television::SelectNextSource() {
  const auto& inputs = Inputs();
  auto next = inputs.begin();
  if (!on_channel_) {
    next = std::find(inputs.begin(), inputs.end(), source_);
    if (next != inputs.end()) ++next;
  }
  if (next == inputs.end()) {
    ShowChannel(Aspect::kSource, "source " + channel_.source);
  } else {
    ChangeSource(next->type, next->number, next->label);
  }
}

void Television::TuneTo(Channel channel) {
  if (channel.number.empty() && channel.service_id.empty()) {
    Refuse("no channel is named");
    return;
  }
  previous_channel_ = std::exchange(channel_, std::move(channel));
  ShowChannel(Aspect::kChannel, "channel " + Describe(channel_) + " on " + channel_.source);
}

void Television::ShowChannel(Aspect changed, const std::string& text) {
  on_channel_ = true;
  source_ = {channel_.source, "", ""};
  Tell(changed, text);
  ShowFreshPicture();
}

// What stood in the way of the last picture does not concern the next one.
void Television::ShowFreshPicture() {
  SetSignal(true);
  SetRatingLock(false);
  SetPaused(false);
  teletext_shown_ = false;
  analog_clean_view_ = false;
  for (const Banner banner : {Banner::kNoSignal, Banner::kRating, Banner::kLoading}) {
    RemoveBanner(banner);
  }
}

void Television::TunePip(const std::string& number) {
  if (!number.empty()) {
    pip_ = PlainChannel(number);
    Tell(Aspect::kPip, "picture-in-picture on channel " + Describe(*pip_));
    return;
  }
  if (!pip_) return;
  pip_.reset();
  Tell(Aspect::kPip, "picture-in-picture closed");
  FocusPip(false);
}

void Television::TogglePip() {
  if (pip_) return TunePip("");
  const Channel& other = previous_channel_ ? *previous_channel_ : ChannelAfter(channel_.number, 1);
  TunePip(other.number);
}

void Television::SetSignal(bool present) {
  if (std::exchange(has_signal_, present) == present) return;
  if (!present) ++signal_losses_;
  Tell(Aspect::kSignal, present ? "signal present" : "signal lost");
}

void Television::SetRatingLock(bool locked) {
  if (std::exchange(rating_locked_, locked) == locked) return;
  Tell(Aspect::kRating, locked ? "locked by rating" : "unlocked");
}

void Television::FocusPip(bool focused) {
  if (std::exchange(pip_focused_, focused) == focused) return;
  Tell(Aspect::kPip, focused ? "focus on picture-in-picture" : "focus on the main picture");
}

Activity Television::activity() const {
  if (banners_.IsShown(Banner::kLoading)) return Activity::kLoading;
  if (!has_signal_) return Activity::kNoSignal;
  if (rating_locked_) return Activity::kLocked;
  return paused_ ? Activity::kPaused : Activity::kRunning;
}

bool Television::is_channel_information_modified() const {
  const Channel* const known = FindChannelByNumber(channel_.number);
  return on_channel_ && known != nullptr && known->name != channel_.name;
}

// --- Banners

void Television::SetBanner(Banner banner, bool shown, std::vector<std::string> details) {
  if (banner == Banner::kNoSignal) SetSignal(!shown);
  if (banner == Banner::kRating) SetRatingLock(shown);
  if (shown) {
    ShowBanner(banner, std::move(details));
  } else {
    RemoveBanner(banner);
  }
}

void Television::ShowBanner(Banner banner, std::vector<std::string> details) {
  const std::string text = ShownText(banner, details);
  if (banners_.Show(banner, std::move(details)) == BannerBoard::Outcome::kDisabled) {
    Refuse(Named(banner) + " is disabled");
  } else {
    Tell(Aspect::kBanners, text);
  }
}

void Television::RemoveBanner(Banner banner) {
  if (banners_.Hide(banner) == BannerBoard::Outcome::kHidden) {
    Tell(Aspect::kBanners, Named(banner) + " hidden");
  }
}

std::optional<Banner> Television::BannerOrRefusal(const std::string& name) {
  const std::optional<Banner> banner = FindBanner(name);
  if (!banner) Refuse("no banner is called \"" + name + '"');
  return banner;
}

void Television::EnableBanner(const std::string& name) {
  const auto banner = BannerOrRefusal(name);
  if (!banner) return;
  banners_.Enable(*banner);
  Tell(Aspect::kBanners, Named(*banner) + " enabled");
}

void Television::DisableBanner(const std::string& name) {
  const auto banner = BannerOrRefusal(name);
  if (!banner) return;
  const bool was_shown = banners_.Disable(*banner) == BannerBoard::Outcome::kHidden;
  Tell(Aspect::kBanners, Named(*banner) + (was_shown ? " hidden and disabled" : " disabled"));
}

void Television::HideBanner(const std::string& name) {
  if (name == "all") {
    banners_.HideAll();
    Tell(Aspect::kBanners, "all banners hidden");
  } else if (const auto banner = BannerOrRefusal(name)) {
    RemoveBanner(*banner);
  }
}

bool Television::AnswerPopup(bool yes) {
  const auto& shown = banners_.shown();
  const auto last = std::find_if(shown.rbegin(), shown.rend(), [](const ShownBanner& one) {
    return InfoOf(one.banner).kind == BannerKind::kPopup;
  });
  if (last == shown.rend()) return false;
  const Banner banner = last->banner;
  RemoveBanner(banner);
  if (yes && banner == Banner::kReturnPrevChannel) TunePrevious();
  return true;
}

void Television::NextSoundMode() {
  sound_mode_ = (sound_mode_ + 1) % kSoundModes.size();
  SetBanner(Banner::kMts, true, {kSoundModes[sound_mode_]});
}

// --- Windows

bool Television::SetWindowSize(int size) {
  if (size < 0 || size > kLastWindowSize) {
    return Refuse("window sizes are 0 to " + std::to_string(kLastWindowSize));
  }
  window_size_ = size;
  Tell(Aspect::kWindowSize, "window size " + std::to_string(size));
  return true;
}

bool Television::MoveSelectionWindow(Position position) {
  if (!selection_window_.MoveTo(position)) {
    return Refuse(OutOfRange(position, selection_window_.move_range()));
  }
  TellSelectionWindow();
  return true;
}

bool Television::StoreSelectionWindow(Position position) {
  if (!selection_window_.Store(position)) {
    return Refuse(OutOfRange(position, selection_window_.move_range()));
  }
  Tell(Aspect::kSelectionWindow, "selection window stored at " + PositionText(position));
  return true;
}

bool Television::ChangeZoomLevel(int level) {
  if (!selection_window_.ChangeZoomLevel(level)) {
    return Refuse("zoom levels are 0 to " + std::to_string(SelectionWindow::kGreatestZoomLevel));
  }
  TellSelectionWindow();
  return true;
}

void Television::TellSelectionWindow() {
  const Size size = selection_window_.size();
  Tell(Aspect::kSelectionWindow,
       "selection window at " + PositionText(selection_window_.position()) + ", " +
           std::to_string(size.width) + 'x' + std::to_string(size.height));
}

// --- Telling

void Television::PassOn(const std::string& what) {
  Tell(Aspect::kCommand, what);
}

void Television::Tell(Aspect aspect, const std::string& text) const {
  for (const Listener& listener : listeners_) listener({aspect, text});
}

bool Television::Refuse(const std::string& why) const {
  Tell(Aspect::kRefusal, "refused: " + why);
  return false;
}

}  // namespace viewer
