// The viewer's place on the device, settings, and commands.
#include <utility>

#include "television.h"

namespace viewer {
namespace {

std::string Quoted(const std::string& text) {
  return '"' + text + '"';
}

std::optional<bool> OnOrOff(const std::string& text) {
  if (text == "on") return true;
  if (text == "off") return false;
  return std::nullopt;
}

}  // namespace

void Television::SetPaused(bool paused) {
  if (std::exchange(paused_, paused) == paused) return;
  Tell(Aspect::kFront, paused ? "paused" : "the picture goes on");
}

void Television::SetFocused(bool focused) {
  if (std::exchange(focused_, focused) == focused) return;
  Tell(Aspect::kFront, focused ? "the viewer has the focus" : "the viewer has lost the focus");
}

void Television::SetVisible(bool visible) {
  if (std::exchange(visible_, visible) == visible) return;
  Tell(Aspect::kFront, visible ? "in the foreground" : "in the background");
}

std::set<std::string> Television::kept_keys() const {
  std::set<std::string> keys = kept_keys_;
  if (banners_.IsAnyShown(BannerKind::kPopup)) {
    keys.insert({"Up", "Down", "Left", "Right", "Return", "XF86Back"});
  }
  return keys;
}

void Television::KeepKey(const std::string& key, bool keep) {
  if (!keep) {
    kept_keys_.erase(key);
    Tell(Aspect::kCommand, "key " + Quoted(key) + " left to plug-ins");
  } else if (key.empty() || key.size() > kLongestKey) {
    Refuse("a key has 1 to " + std::to_string(kLongestKey) + " letters");
  } else if (kept_keys_.size() >= kMostKeptKeys && !kept_keys_.contains(key)) {
    Refuse("no more than " + std::to_string(kMostKeptKeys) + " keys can be kept");
  } else {
    kept_keys_.insert(key);
    Tell(Aspect::kCommand, "key " + Quoted(key) + " kept for the viewer");
  }
}

void Television::CommandPlugin(const std::string& plugin, const std::string& command) {
  if (!messenger_) {
    Refuse("plug-ins are off");
  } else if (!messenger_(plugin, command)) {
    Refuse("plug-in " + Quoted(plugin) + " cannot be reached");
  } else {
    PassOn("command " + Quoted(command) + " given to plug-in " + plugin);
  }
}

void Television::Initialise(const std::string& argument) {
  banners_.HideAll();
  TunePip("");
  window_size_ = 0;
  selection_window_.Restore();
  Tell(Aspect::kBanners, argument.empty() ? "initialised" : "initialised: " + argument);
}

void Television::SetLanguage(const std::string& language) {
  if (language.empty()) {
    Refuse("no language is named");
    return;
  }
  language_ = language;
  Tell(Aspect::kLanguage, "language " + language);
}

void Television::SetHbbtvState(const std::string& state) {
  hbbtv_state_ = state;
  Tell(Aspect::kApplication, "HbbTV " + state);
}

void Television::SetServiceHint(const std::string& hint) {
  service_hint_ = hint;
  Tell(Aspect::kApplication, "hint of the TV service " + Quoted(hint));
}

void Television::LeaveTeletext(const std::string& reason) {
  if (!std::exchange(teletext_shown_, false)) {
    Refuse("teletext is not shown");
    return;
  }
  Tell(Aspect::kApplication, "teletext left" + (reason.empty() ? "" : ": " + reason));
}

void Television::Command(const std::string& command, const std::string& argument) {
  if (command == "keep-key" || command == "leave-key") {
    KeepKey(argument, command == "keep-key");
  } else if (command == "pause") {
    if (const auto paused = OnOrOff(argument)) {
      SetPaused(*paused);
    } else {
      Refuse("pause is \"on\" or \"off\"");
    }
  } else if (command != "pip-focus") {
    PassOn("command " + Quoted(command) + ' ' + Quoted(argument));
  } else if (argument == "main") {
    FocusPip(false);
  } else if (argument == "pip" && pip_) {
    FocusPip(true);
  } else {
    Refuse(argument == "pip" ? "there is no picture-in-picture"
                             : "pip-focus is \"main\" or \"pip\"");
  }
}

void Television::DiscreteCommand(const std::string& command, const std::string& argument) {
  if (command == "analog-clean-view") {
    if (const auto on = OnOrOff(argument)) {
      analog_clean_view_ = *on;
      Tell(Aspect::kApplication, "clean view of analogue channels " + argument);
    } else {
      Refuse("analog-clean-view is \"on\" or \"off\"");
    }
  } else if (command != "teletext") {
    PassOn("discrete command " + Quoted(command) + ' ' + Quoted(argument));
  } else if (argument == "on" && services().teletext) {
    teletext_shown_ = true;
    Tell(Aspect::kApplication, "teletext shown");
  } else if (argument == "off") {
    LeaveTeletext("");
  } else {
    Refuse(argument == "on" ? "the channel carries no teletext" : "teletext is \"on\" or \"off\"");
  }
}

void Television::ActOnNotification(const std::string& notification, int action) {
  if (action == 0) {
    HideBanner(notification);
  } else {
    PassOn("action " + std::to_string(action) + " of notification " + Quoted(notification));
  }
}

}  // namespace viewer
