// kavrel-plugin-panel: a plug-in with a window, which shows the keys and the viewer's states that
// it gets. What such a plug-in does:
//
//   1. starts EFL, makes itself known (CreatePluggable) and says who listens;
//   2. asks for keys in the connected callback, because a restarted viewer knows none of them;
//   3. opens its window in the viewer, under its own name, and runs EFL's main loop;
//   4. lets go of exclusive keys before it ends: the viewer would keep them for it;
//   5. starts anew when the viewer has ended: EFL cannot open windows on a second display.
//
// XF86Back, if it is among its keys, lets go of the exclusive keys and has the window hidden;
// XF86Menu takes both back.
#include <kavrel/KavrelAPI.h>
#include <plugin_options.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <utility>
#include <variant>

#include "panel_window.h"

namespace {

using plugins::Say;

/// Everything happens on the main thread.
class Panel final : public IKeyInputListener, public IViewerStateChangeListener {
 public:
  explicit Panel(plugins::Options options) : options_(std::move(options)) {}

  bool Join() {
    const char* const name = options_.name.c_str();
    const char* const host = options_.host.c_str();
    if (!KavrelAPI::CreatePluggable(options_.type, name, &plugin_, host)) return false;
    plugin_->RegisterKeyInputListener(this);
    plugin_->RegisterViewerStateChangeListener(this);
    plugin_->SetConnectionChangedCallback(&Panel::Connected, &Panel::Disconnected, this);
    Evas_Object* const window = KavrelAPI::CreatePepperPluginWindow("panel", name, host);
    if (window == nullptr) return false;
    window_.Fill(window, options_.name, options_.colour);
    return true;
  }

  void Leave() {
    plugin_->ClearExclusiveKeyRepository();
    KavrelAPI::DestroyPluggable(options_.name.c_str(), options_.host.c_str());
    Say("left");
  }

  bool OnKeyPressed(const std::string& key, int /*device*/) override {
    window_.ShowKey(key + " pressed");
    Say("pressed " + key);
    return true;
  }
  // What a key does, it does here: a press that comes late is dropped, a release never.
  bool OnKeyReleased(const std::string& key, int /*device*/) override {
    if (key == "XF86Back") {
      plugin_->ClearExclusiveKeyRepository();
      plugin_->Hide();
    } else if (key == "XF86Menu") {
      plugin_->RegisterExclusiveKeyRepository(options_.exclusive_keys);
      plugin_->Show();
    }
    window_.ShowKey(key + " released");
    Say("released " + key);
    return true;
  }
  void OnViewerStateChanged(int state) override {
    window_.ShowState(plugins::StateName(state));
    Say(std::string("state ") + plugins::StateName(state));
  }

 private:
  static void Connected(void* data) {
    auto& self = *static_cast<Panel*>(data);
    plugins::Options& wanted = self.options_;
    if (wanted.keys.Size() > 0) self.plugin_->RegsiterKeyRepository(wanted.keys);
    if (wanted.exclusive_keys.Size() > 0) {
      self.plugin_->RegisterExclusiveKeyRepository(wanted.exclusive_keys);
    }
    self.plugin_->Show();
    Say("connected");
  }
  static void Disconnected(void* /*data*/) { Say("disconnected"); }

  plugins::Options options_;
  IViewerPluggable* plugin_ = nullptr;
  PanelWindow window_;
};

// EFL ends its loop on a signal, and by itself ("quit") when the window's display has gone.
Eina_Bool NoteEnd(void* has_viewer_ended, int /*event*/, void* end) {
  *static_cast<bool*>(has_viewer_ended) = static_cast<Ecore_Event_Signal_Exit*>(end)->quit != 0;
  return ECORE_CALLBACK_PASS_ON;
}

}  // namespace

int main(int argc, char** argv) {
  const auto parsed = plugins::ParseOptions(
      {"kavrel-plugin-panel", "A plug-in with a window: shows the keys and states that it gets.",
       "panel", VIEWER_PLUGIN_LEAVES_LAYER_4, true},
      argc, argv);
  if (const int* exit_code = std::get_if<int>(&parsed)) return *exit_code;
  efreet_cache_disable();  // no daemon that looks for menus and icons
  elm_init(argc, argv);
  Panel panel(std::get<plugins::Options>(parsed));
  if (!panel.Join()) return 1;
  bool has_viewer_ended = false;
  (void)std::signal(SIGQUIT, SIG_DFL);  // which EFL would call "quit" too
  ecore_event_handler_add(ECORE_EVENT_SIGNAL_EXIT, &NoteEnd, &has_viewer_ended);
  elm_run();  // ends by SIGINT, by SIGTERM, and when the viewer ends
  panel.Leave();
  elm_shutdown();
  // Waits for the next viewer as it did for the first.
  if (has_viewer_ended) ::execv("/proc/self/exe", argv);
}
