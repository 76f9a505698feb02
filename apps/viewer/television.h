// The television that clients command: what it shows and does, without any input or output. Whoever
// shows it, logs it or publishes its state listens to its changes and reads its state.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "banners.h"
#include "channels.h"
#include "selection_window.h"

namespace viewer {

/// What a change is about.
enum class Aspect {
  kChannel,
  kPip,
  kSource,
  kSignal,
  kRating,
  kBanners,
  kSelectionWindow,
  kWindowSize,
  kLanguage,
  kApplication,  ///< HbbTV, teletext, hints of the TV service
  kFront,        ///< whether the viewer is seen, has the keys, runs
  kCommand,      ///< keys and commands that only pass through
  kRefusal,      ///< nothing has changed, and why
};

struct Change {
  Aspect aspect;
  std::string text;  ///< for people: "channel 7 News"; may hold what a client sent
};

struct Source {
  std::string type;  ///< "HDMI", "DVB-T", ...
  std::string number;
  std::string label;

  bool operator==(const Source&) const = default;
};

/// "HDMI 2"
std::string Describe(const Source& source);

/// What the viewer is doing; the numbers are those of CheckStateForVistane.
enum class Activity { kRunning = 0, kLoading = 1, kNoSignal = 2, kLocked = 3, kPaused = 4 };

/// "running", "loading", "no-signal", "locked", "paused"
const char* ActivityName(Activity activity);

/// Belongs to the viewer's main thread: clients' requests, listeners and readers all run there.
class Television {
 public:
  using Listener = std::function<void(const Change&)>;
  /// Hands a command to a plug-in; false: there is none of that name that listens.
  using PluginMessenger =
      std::function<bool(const std::string& plugin, const std::string& command)>;

  /// Sizes of the viewer's window: 0 full screen, 1 three quarters, 2 half, 3 a quarter.
  static constexpr int kLastWindowSize = 3;

  /// How many keys clients may have kept for the viewer, and how long a key's name may be.
  static constexpr std::size_t kMostKeptKeys = 32;
  static constexpr std::size_t kLongestKey = 64;

  /// Tuned to the first channel, full screen, nothing shown.
  Television();

  /// `listener` is called after each change, in order of registration, as long as the television is
  /// commanded. It must not command it itself.
  void AddListener(Listener listener) { listeners_.push_back(std::move(listener)); }

  /// Who takes what is for plug-ins; without one plug-ins are off.
  void SetPluginMessenger(PluginMessenger messenger) { messenger_ = std::move(messenger); }

  // Picture. A channel that is not received (channels.h) is tuned as it is named. Each of these
  // ends a rating lock, a lost signal, teletext and the loading screen.
  void ChangeSource(const std::string& type, const std::string& number, const std::string& label);
  void Tune(const std::string& number, const std::string& name, const std::string& source);
  void TuneMajor(int major_number, int minor_number);
  void TuneService(const std::string& service_id);
  /// `wanted` is a channel's name or number, as it was said.
  void TuneByVoice(const std::string& wanted);
  /// The received channel `step` places after this one, in a circle.
  void TuneNext(int step);
  /// The channel before this one.
  void TunePrevious();
  /// The next of the set's inputs, in a circle that begins with the tuner.
  void SelectNextSource();

  /// Opens the picture-in-picture window on a channel; an empty number closes it.
  void TunePip(const std::string& number);
  /// Opens it on the channel before this one, or closes it.
  void TogglePip();

  // Banners. Signal and rating lock follow their banners, shown or disabled.
  void SetBanner(Banner banner, bool shown, std::vector<std::string> details = {});
  void EnableBanner(const std::string& name);
  void DisableBanner(const std::string& name);
  /// Hides one banner, or all of them by the name "all".
  void HideBanner(const std::string& name);
  /// The banner's time on the screen is over. What it stood for, say a lock, goes on.
  void EndBanner(Banner banner) { RemoveBanner(banner); }
  /// Answers the pop-up that is shown last. False: there is none.
  bool AnswerPopup(bool yes);
  /// The next sound mode, with its banner.
  void NextSoundMode();

  // Windows. False: refused, with nothing changed.
  bool SetWindowSize(int size);
  bool MoveSelectionWindow(Position position);
  bool StoreSelectionWindow(Position position);
  bool ChangeZoomLevel(int level);

  // The viewer's place on the device, as its user and window system have it.
  void SetPaused(bool paused);
  void SetFocused(bool focused);
  void SetVisible(bool visible);

  // Settings and commands.
  /// Back to how it was switched on: nothing shown, no picture-in-picture, full screen, the
  /// selection window where it was stored. Channel, language and what is disabled stay.
  void Initialise(const std::string& argument);
  void SetLanguage(const std::string& language);
  void SetHbbtvState(const std::string& state);
  void SetServiceHint(const std::string& hint);
  void LeaveTeletext(const std::string& reason);
  /// Known: "pip-focus" with "main" or "pip"; "pause" with "on" or "off"; "keep-key" and
  /// "leave-key" with the name of a key that plug-ins shall not get. Others pass through.
  void Command(const std::string& command, const std::string& argument);
  /// Known: "teletext" and "analog-clean-view" with "on" or "off". Others pass through.
  void DiscreteCommand(const std::string& command, const std::string& argument);
  /// Action 0 hides the banner of that name.
  void ActOnNotification(const std::string& notification, int action);
  void CommandPlugin(const std::string& plugin, const std::string& command);
  /// A key or command for something else than the viewer: `what` says it in full.
  void PassOn(const std::string& what);

  Activity activity() const;
  const Channel& channel() const { return channel_; }
  const std::optional<Channel>& previous_channel() const { return previous_channel_; }
  const std::optional<Channel>& pip() const { return pip_; }
  bool is_pip_focused() const { return pip_focused_; }
  /// Whether the picture is the channel's, not another source's.
  bool is_on_channel() const { return on_channel_; }
  /// Whether the channel was tuned under a name that is not the received one.
  bool is_channel_information_modified() const;
  /// Times that the signal was lost.
  int signal_losses() const { return signal_losses_; }
  bool is_focused() const { return focused_; }
  bool is_visible() const { return visible_; }
  bool is_analog_clean_view() const { return analog_clean_view_; }
  /// The keys that the viewer wants for itself now: the arrows, Return and XF86Back while a pop-up
  /// is shown, and those that it was told to keep.
  std::set<std::string> kept_keys() const;
  const Source& source() const { return source_; }
  bool has_signal() const { return has_signal_; }
  bool is_rating_locked() const { return rating_locked_; }
  /// What the picture carries now: nothing of the channel's while another source is watched.
  Services services() const { return on_channel_ ? channel_.services : Services{}; }
  const BannerBoard& banners() const { return banners_; }
  const SelectionWindow& selection_window() const { return selection_window_; }
  int window_size() const { return window_size_; }
  const std::string& language() const { return language_; }
  const std::string& hbbtv_state() const { return hbbtv_state_; }
  const std::string& service_hint() const { return service_hint_; }
  bool is_teletext_shown() const { return teletext_shown_; }

 private:
  void TuneTo(Channel channel);
  void KeepKey(const std::string& key, bool keep);
  void ShowChannel(Aspect changed, const std::string& text);
  void ShowFreshPicture();
  void SetSignal(bool present);
  void SetRatingLock(bool locked);
  void FocusPip(bool focused);
  void ShowBanner(Banner banner, std::vector<std::string> details);
  void RemoveBanner(Banner banner);
  std::optional<Banner> BannerOrRefusal(const std::string& name);
  void TellSelectionWindow();
  void Tell(Aspect aspect, const std::string& text) const;
  bool Refuse(const std::string& why) const;

  std::vector<Listener> listeners_;
  PluginMessenger messenger_;
  Channel channel_;
  std::optional<Channel> previous_channel_;
  std::optional<Channel> pip_;
  bool pip_focused_ = false;
  Source source_;
  bool on_channel_ = true;
  bool has_signal_ = true;
  bool rating_locked_ = false;
  BannerBoard banners_;
  SelectionWindow selection_window_;
  int window_size_ = 0;
  std::string language_ = "en_GB";
  std::string hbbtv_state_;
  std::string service_hint_;
  bool teletext_shown_ = false;
  bool analog_clean_view_ = false;
  bool paused_ = false;
  bool focused_ = true;
  bool visible_ = true;
  int signal_losses_ = 0;
  std::size_t sound_mode_ = 0;
  std::set<std::string> kept_keys_;
};

}  // namespace viewer
