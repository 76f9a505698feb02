// kavrel-plugin-listener: a plug-in without a window, which prints the keys, the viewer's states
// and the messages that it gets. It needs no EFL: GLib's main loop is all that the library wants.
//
// As in every plug-in, keys are asked for in the connected callback, because a restarted viewer
// knows none of them; and exclusive keys are let go of before the end, because the viewer keeps
// them for a plug-in that just goes.
#include <kavrel/KavrelAPI.h>
#include <plugin_options.h>

#include <csignal>
#include <glib-unix.h>
#include <string>
#include <utility>
#include <variant>

namespace {

using plugins::Say;

/// Everything happens on the main thread.
class Listener final : public IKeyInputListener,
                       public IViewerStateChangeListener,
                       public IViewerMessageListener {
 public:
  explicit Listener(plugins::Options options) : options_(std::move(options)) {}

  bool Join() {
    if (!KavrelAPI::CreatePluggable(options_.type, options_.name.c_str(), &plugin_,
                                    options_.host.c_str())) {
      return false;
    }
    plugin_->RegisterKeyInputListener(this);
    plugin_->RegisterViewerStateChangeListener(this);
    plugin_->RegisterViewerMessageListener(this);
    plugin_->SetConnectionChangedCallback(&Listener::Connected, &Listener::Disconnected, this);
    return true;
  }

  void Leave() {
    plugin_->ClearExclusiveKeyRepository();
    KavrelAPI::DestroyPluggable(options_.name.c_str(), options_.host.c_str());
    Say("left");
  }

  bool OnKeyPressed(const std::string& key, int /*device*/) override {
    Say("pressed " + key);
    return true;
  }
  bool OnKeyReleased(const std::string& key, int /*device*/) override {
    Say("released " + key);
    return true;
  }
  void OnViewerStateChanged(int state) override {
    Say(std::string("state ") + plugins::StateName(state));
  }
  void OnViewerMessage(CMessage& message) override {
    Say("message " + message.GetKey(0) + ' ' + message.GetValue(0));
  }

 private:
  static void Connected(void* data) {
    auto& self = *static_cast<Listener*>(data);
    plugins::Options& wanted = self.options_;
    if (wanted.keys.Size() > 0) self.plugin_->RegsiterKeyRepository(wanted.keys);
    if (wanted.exclusive_keys.Size() > 0) {
      self.plugin_->RegisterExclusiveKeyRepository(wanted.exclusive_keys);
    }
    // A message of its own; the viewer need not know what it means.
    CMessage message;
    message.AddValue("listening", wanted.name.c_str());
    self.plugin_->SendMessage(message, 1);
    Say("connected");
  }
  static void Disconnected(void* /*data*/) { Say("disconnected"); }

  plugins::Options options_;
  IViewerPluggable* plugin_ = nullptr;
};

gboolean Quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  const auto parsed = plugins::ParseOptions(
      {"kavrel-plugin-listener", "A plug-in without a window: prints what it gets.", "listener",
       VIEWER_PLUGIN_LEAVES, false},
      argc, argv);
  if (const int* exit_code = std::get_if<int>(&parsed)) return *exit_code;
  Listener listener(std::get<plugins::Options>(parsed));
  if (!listener.Join()) return 1;
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &Quit, loop);
  g_main_loop_run(loop);
  listener.Leave();
  g_main_loop_unref(loop);
}
