// A plug-in: framework_plugin NAME TYPE [window] [exclusive] [glib] KEY... says what it is told,
// one line each, until it is killed or its standard input ends.
#include <Ecore_Evas.h>
#include <Elementary.h>
#include <kavrel/KavrelAPI.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <glib-unix.h>
#include <string>
#include <string_view>

namespace {

struct Plugin : IKeyInputListener, IViewerStateChangeListener, IViewerMessageListener {
  bool OnKeyPressed(const std::string& keyName, int device) override {
    Say("pressed " + keyName + ' ' + std::to_string(device));
    return true;
  }
  bool OnKeyReleased(const std::string&, int) override { return true; }
  void OnViewerStateChanged(int state) override { Say("state " + std::to_string(state)); }
  void OnViewerMessage(CMessage& message) override { Say("message " + message.GetKey(0)); }

  static void Say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  }

  static void Connected(void* self) {
    auto& plugin = *static_cast<Plugin*>(self);
    if (plugin.exclusive) {
      plugin.pluggable->RegisterExclusiveKeyRepository(plugin.keys);
    } else {
      plugin.pluggable->RegsiterKeyRepository(plugin.keys);
    }
    plugin.pluggable->Show();
    Say("connected");
  }
  static void Disconnected(void*) { Say("disconnected"); }

  IViewerPluggable* pluggable = nullptr;
  CKeyRepository keys;
  bool exclusive = false;
  bool window = false;
  bool glib = false;
};

void OpenWindow(const char* name) {
  Evas_Object* const window = KavrelAPI::CreatePepperPluginWindow("main", name, "kavrel");
  if (window == nullptr) return Plugin::Say("no window");
  const Ecore_Evas* const evas = ecore_evas_ecore_evas_get(evas_object_evas_get(window));
  Plugin::Say(std::string("engine ") + ecore_evas_engine_name_get(evas));
  evas_object_resize(window, 320, 240);
  evas_object_show(window);
}

}  // namespace

int main(int argc, char** argv) {
  Plugin plugin;
  for (int at = 3; at < argc; ++at) {
    const std::string_view word = argv[at];
    if (word == "window") {
      plugin.window = true;
    } else if (word == "exclusive") {
      plugin.exclusive = true;
    } else if (word == "glib") {
      plugin.glib = true;
    } else {
      plugin.keys.AddKey(argv[at]);
    }
  }
  if (!plugin.glib) elm_init(argc, argv);
  const auto type = static_cast<VIEWER_PLUGIN_TYPE>(std::atoi(argv[2]));
  if (!KavrelAPI::CreatePluggable(type, argv[1], &plugin.pluggable, "kavrel")) return 1;
  plugin.pluggable->RegisterKeyInputListener(&plugin);
  plugin.pluggable->RegisterViewerStateChangeListener(&plugin);
  plugin.pluggable->RegisterViewerMessageListener(&plugin);
  plugin.pluggable->SetConnectionChangedCallback(&Plugin::Connected, &Plugin::Disconnected,
                                                 &plugin);
  if (plugin.window) OpenWindow(argv[1]);
  if (plugin.glib) {
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    g_unix_fd_add(
        STDIN_FILENO, G_IO_IN,
        [](gint, GIOCondition, gpointer the_loop) -> gboolean {
          g_main_loop_quit(static_cast<GMainLoop*>(the_loop));
          return G_SOURCE_REMOVE;
        },
        loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
  } else {
    const auto quit = [](void*, Ecore_Fd_Handler*) -> Eina_Bool {
      ecore_main_loop_quit();
      return ECORE_CALLBACK_CANCEL;
    };
    ecore_main_fd_handler_add(STDIN_FILENO, ECORE_FD_READ, quit, nullptr, nullptr, nullptr);
    ecore_main_loop_begin();
  }
  KavrelAPI::DestroyPluggable();
  Plugin::Say("left");
  ::_exit(0);
}
