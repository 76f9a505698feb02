// A plug-in: framework_plugin NAME TYPE [host=NAME] [glib] [exclusive] [again] [late]
// [window=RRGGBB] KEY... Each time its channel comes up it asks for its keys and to be shown. With
// "glib" it has no window and runs GLib's loop; with "again" the program runs itself anew when EFL
// ends its loop, as EFL does when the viewer of a window dies; with "late" it is a plug-in from
// "join" on. Commands:
//   keys KEY...   many COUNT   clear   exclusive KEY...   unexclusive KEY...   clearexclusive
//   show   hide   enable WHAT   disable WHAT   send ASYNC KEY VALUE   window RRGGBB   close
//   live COUNT (a whole life of a second plug-in, so many times)   count   join   leave
//   quiet (of keys it tells only that the next one has come)   talk
#include <Ecore_Evas.h>
#include <kavrel/KavrelAPI.h>

#include <cstdlib>
#include <glib-unix.h>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "framework_program.h"

namespace {

using framework_program::Say;

struct Listener : IKeyInputListener, IViewerStateChangeListener, IViewerMessageListener {
  bool OnKeyPressed(const std::string& keyName, int device) override {
    Count("pressed", keyName, device);
    return true;
  }
  bool OnKeyReleased(const std::string& keyName, int device) override {
    Count("released", keyName, device);
    return true;
  }
  void OnViewerStateChanged(int state) override { Say("state " + std::to_string(state)); }
  void OnViewerMessage(CMessage& message) override {
    Say("message" + framework_program::Show(message));
  }

  void ListenTo(IViewerPluggable& plugin) {
    plugin.RegisterKeyInputListener(this);
    plugin.RegisterViewerStateChangeListener(this);
    plugin.RegisterViewerMessageListener(this);
  }

  void Talk(bool wanted) {
    talks = wanted;
    tells_next = !wanted;
  }

  void Count(const std::string& what, const std::string& key, int device) {
    ++keys;
    if (talks) Say(what + ' ' + key + ' ' + std::to_string(device));
    if (std::exchange(tells_next, false)) Say("a key has come");
  }

  int keys = 0;
  bool talks = true;
  bool tells_next = false;
};

struct Program {
  const char* name = nullptr;
  VIEWER_PLUGIN_TYPE type = VIEWER_PLUGIN_STAYS_0;
  std::string host = "kavrel";
  bool glib = false;
  bool exclusive = false;
  bool again = false;
  bool late = false;
  std::optional<unsigned> color;
  CKeyRepository keys;

  Listener listener;
  IViewerPluggable* plugin = nullptr;
  Evas_Object* window = nullptr;
  GMainLoop* loop = nullptr;
  bool leaving = false;
};
Program the_program;

void Connected(void*) {
  if (the_program.keys.Size() > 0) {
    the_program.exclusive ? the_program.plugin->RegisterExclusiveKeyRepository(the_program.keys)
                          : the_program.plugin->RegsiterKeyRepository(the_program.keys);
  }
  the_program.plugin->Show();
  Say("connected");
}

void Disconnected(void*) {
  Say("disconnected");
}

bool Join() {
  Say("waiting");
  if (!KavrelAPI::CreatePluggable(the_program.type, the_program.name, &the_program.plugin,
                                  the_program.host.c_str())) {
    Say("no host");
    return false;
  }
  the_program.listener.ListenTo(*the_program.plugin);
  the_program.plugin->SetConnectionChangedCallback(&Connected, &Disconnected, nullptr);
  Say("made");
  return true;
}

void OpenWindow(unsigned color) {
  the_program.window =
      KavrelAPI::CreatePepperPluginWindow("main", the_program.name, the_program.host.c_str());
  if (the_program.window == nullptr) return Say("no window");
  Evas* const canvas = evas_object_evas_get(the_program.window);
  Say(std::string("engine ") + ecore_evas_engine_name_get(ecore_evas_ecore_evas_get(canvas)));
  Evas_Object* const paint = evas_object_rectangle_add(canvas);
  evas_object_color_set(paint, static_cast<int>(color >> 16 & 0xff),
                        static_cast<int>(color >> 8 & 0xff), static_cast<int>(color & 0xff), 255);
  evas_object_size_hint_weight_set(paint, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
  elm_win_resize_object_add(the_program.window, paint);
  evas_object_show(paint);
  evas_object_resize(the_program.window, 160, 120);
  evas_object_show(the_program.window);
}

// ---- Whole lives

struct Life {
  bool connected = false;
  bool called = false;
  Listener listener;
};

void Iterate(const bool& done) {
  while (!done) g_main_context_iteration(nullptr, TRUE);
}

// From birth to leave, with a key of its own that the viewer presses for it.
void LiveOnce(Life& life) {
  IViewerPluggable* plugin = nullptr;
  if (!KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES, "mayfly", &plugin,
                                  the_program.host.c_str()))
    std::abort();
  life.connected = false;
  life.listener.keys = 0;
  life.listener.talks = false;
  life.listener.ListenTo(*plugin);
  plugin->SetConnectionChangedCallback(
      [](void* data) { static_cast<Life*>(data)->connected = true; }, nullptr, &life);
  Iterate(life.connected);
  CKeyRepository keys;
  keys.AddKey("Life");
  plugin->RegsiterKeyRepository(keys);
  CMessage press;
  press.AddValue("press", "Life");
  plugin->SendMessage(press, 1);
  while (life.listener.keys == 0) g_main_context_iteration(nullptr, TRUE);
  KavrelAPI::DestroyPluggable("mayfly", the_program.host.c_str());
}

void Live(int count) {
  Life life;
  for (int lived = 0; lived < count; ++lived) LiveOnce(life);
  Say("lived " + framework_program::Cost());
}

// ---- Commands

void Leave() {
  the_program.leaving = true;
  if (the_program.glib) {
    g_main_loop_quit(the_program.loop);
  } else {
    ecore_main_loop_quit();
  }
}

CKeyRepository Keys(std::istream& words) {
  CKeyRepository keys;
  for (std::string key; words >> key;) keys.AddKey(key);
  return keys;
}

void RegisterMany(int count) {
  CKeyRepository keys;
  for (int key = 0; key < count; ++key) keys.AddKey("K" + std::to_string(key));
  the_program.plugin->RegsiterKeyRepository(keys);
}

void Send(std::istream& words) {
  int async = 0;
  std::string key;
  std::string value;
  words >> async >> key >> value;
  CMessage message;
  message.AddValue(key.c_str(), value.c_str());
  Say(the_program.plugin->SendMessage(message, async) ? "sent 1" : "sent 0");
}

bool Ask(const std::string& command, std::istream& words) {
  IViewerPluggable& plugin = *the_program.plugin;
  if (command == "clear") return plugin.ClearKeyRepository();
  if (command == "clearexclusive") return plugin.ClearExclusiveKeyRepository();
  CKeyRepository keys = Keys(words);
  if (command == "keys") return plugin.RegsiterKeyRepository(keys);
  if (command == "exclusive") return plugin.RegisterExclusiveKeyRepository(keys);
  return command == "unexclusive" && plugin.UnregisterExclusiveKeyRepository(keys);
}

void Obey(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "leave") return Leave();
  if (command == "join") return static_cast<void>(Join());
  if (command == "show") return the_program.plugin->Show();
  if (command == "hide") return the_program.plugin->Hide();
  if (command == "send") return Send(words);
  if (command == "close") return evas_object_del(the_program.window);
  if (command == "quiet" || command == "talk") {
    return the_program.listener.Talk(command == "talk");
  }
  if (command == "count") return Say("count " + std::to_string(the_program.listener.keys));
  std::string what;
  const auto arguments = words.tellg();
  words >> what;
  if (command == "enable") return the_program.plugin->Enable(what);
  if (command == "disable") return the_program.plugin->Disable(what);
  if (command == "window") return OpenWindow(static_cast<unsigned>(std::stoul(what, nullptr, 16)));
  if (command == "live") return Live(std::stoi(what));
  if (command == "many") return RegisterMany(std::stoi(what));
  words.clear();
  words.seekg(arguments);
  Say(Ask(command, words) ? "asked 1" : "asked 0");
}

void ParseArguments(int argc, char** argv) {
  the_program.name = argv[1];
  the_program.type = static_cast<VIEWER_PLUGIN_TYPE>(std::stoi(argv[2]));
  for (int at = 3; at < argc; ++at) {
    const std::string word = argv[at];
    if (word == "glib") {
      the_program.glib = true;
    } else if (word == "exclusive") {
      the_program.exclusive = true;
    } else if (word == "again") {
      the_program.again = true;
    } else if (word == "late") {
      the_program.late = true;
    } else if (word.starts_with("host=")) {
      the_program.host = word.substr(5);
    } else if (word.starts_with("window=")) {
      the_program.color = static_cast<unsigned>(std::stoul(word.substr(7), nullptr, 16));
    } else {
      the_program.keys.AddKey(word);
    }
  }
}

bool Start() {
  if (!the_program.late && !Join()) return false;
  if (the_program.color) OpenWindow(*the_program.color);
  return true;
}

void RunGlibLoop(framework_program::Commands& commands) {
  the_program.loop = g_main_loop_new(nullptr, FALSE);
  const auto read = [](gint, GIOCondition, gpointer data) -> gboolean {
    if (static_cast<framework_program::Commands*>(data)->Read()) return G_SOURCE_CONTINUE;
    Leave();
    return G_SOURCE_REMOVE;
  };
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), read, &commands);
  g_main_loop_run(the_program.loop);
  g_main_loop_unref(the_program.loop);
}

}  // namespace

int main(int argc, char** argv) {
  ParseArguments(argc, argv);
  framework_program::Commands commands(&Obey);
  if (!the_program.glib) {
    framework_program::StartEfl(argc, argv);
    commands.ReadInEflLoop();
  }
  if (!Start()) return 1;
  the_program.glib ? RunGlibLoop(commands) : ecore_main_loop_begin();
  KavrelAPI::DestroyPluggable();
  Say("left");
  if (the_program.again && !the_program.leaving) ::execv("/proc/self/exe", argv);
  // Not elm_shutdown(): the toolkit's own leftovers are not under test.
  ::_exit(0);
}
