// A plug-in without a window: takes the red key from the viewer, and prints it. It needs nothing of
// the toolkit that windows need.
#include <kavrel/KavrelAPI.h>

#include <csignal>
#include <glib-unix.h>
#include <iostream>

struct Keys : IKeyInputListener {
  bool OnKeyPressed(const std::string& key, int /*device*/) override {
    std::cout << key << " pressed" << std::endl;
    return true;
  }
  bool OnKeyReleased(const std::string& key, int /*device*/) override {
    std::cout << key << " released" << std::endl;
    return true;
  }
  IViewerPluggable* plugin = nullptr;
};

// Each time the viewer is there: one that was restarted has forgotten the keys.
static void Connected(void* keys) {
  CKeyRepository wanted;
  wanted.AddKey("XF86Red");
  static_cast<Keys*>(keys)->plugin->RegsiterKeyRepository(wanted);
  std::cout << "connected" << std::endl;
}

static gboolean Quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_CONTINUE;
}

int main() {
  Keys keys;
  // Waits up to 10 seconds for a viewer.
  if (!KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES, "red", &keys.plugin, "kavrel")) return 1;
  keys.plugin->RegisterKeyInputListener(&keys);
  keys.plugin->SetConnectionChangedCallback(&Connected, nullptr, &keys);
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &Quit, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  KavrelAPI::DestroyPluggable();
}
