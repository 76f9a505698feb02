// How long a plug-in takes to start, step by step: to its channel being ready, and to the first
// picture of its window in the viewer. Viewer and plug-ins are processes of their own; this program
// runs itself as them:  plugin_start_bench [host | plain | window]
#include <Ecore.h>
#include <Ecore_Evas.h>
#include <Efreet.h>
#include <Elementary.h>
#include <gio/gio.h>
#include <kavrel/KavrelAPI.h>
#include <lwipc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "child_process.h"
#include "measure.h"
#include "private_bus.h"
#include "shared_connection.h"
#include "temporary_directory.h"

namespace {

using kavrel_test::ChildOptions;
using kavrel_test::ChildProcess;

constexpr const char* kHost = "kavrel";
constexpr const char* kPlugin = "bench";
constexpr std::uint32_t kColor = 0x112233;
constexpr int kStarts = 15;

/// Says that a step is over, and when: all processes of a machine have this clock in common.
void Say(const char* step) {
  std::printf("%s %lld\n", step,
              static_cast<long long>(kavrel_bench::Clock::now().time_since_epoch().count() / 1000));
  (void)std::fflush(stdout);
}

// EFL without what looks for services of a desktop, and its daemon.
void StartEfl() {
  static char name[] = "plugin_start_bench";
  static char* arguments[] = {name, nullptr};
  ecore_app_no_system_modules();
  efreet_cache_disable();
  elm_init(1, arguments);
}

void RunUntilInputEnds() {
  const auto quit = [](void*, Ecore_Fd_Handler*) -> Eina_Bool {
    ecore_main_loop_quit();
    return ECORE_CALLBACK_CANCEL;
  };
  ecore_main_fd_handler_add(0, ECORE_FD_READ, quit, nullptr, nullptr, nullptr);
  ecore_main_loop_begin();
}

// ---- The viewer

bool composed = false;

void LookAtPicture(void* window, Evas*, void*) {
  if (composed) return;
  Ecore_Evas* const canvas =
      ecore_evas_ecore_evas_get(evas_object_evas_get(static_cast<Evas_Object*>(window)));
  const auto* const pixels =
      static_cast<const std::uint32_t*>(ecore_evas_buffer_pixels_get(canvas));
  if (pixels == nullptr || (pixels[0] & 0xffffffU) != kColor) return;
  composed = true;
  Say("composed");
}

void Receive(CMessage& message, void*) {
  if (message.GetKey(0) == "plugin_add") Say("announced");
  if (message.GetKey(0) == "plugin_remove") {
    composed = false;
    Say("removed");
  }
}

int RunHost() {
  StartEfl();
  Evas_Object* const window = elm_win_util_standard_add("viewer", "viewer");
  evas_object_resize(window, 1280, 720);
  evas_object_show(window);
  evas_event_callback_add(evas_object_evas_get(window), EVAS_CALLBACK_RENDER_POST, &LookAtPicture,
                          window);
  IViewerHost* host = nullptr;
  if (!KavrelAPI::CreateViewerHost(window, &host, &Receive, nullptr, kHost)) return 1;
  Say("created");
  RunUntilInputEnds();
  return 0;
}

// ---- The plug-in

void MakePlugin() {
  IViewerPluggable* plugin = nullptr;
  if (!KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES_LAYER_4, kPlugin, &plugin, kHost)) {
    std::exit(1);
  }
  plugin->SetConnectionChangedCallback([](void*) { Say("ready"); }, nullptr, nullptr);
  Say("made");
}

// What CreatePluggable() cannot do without, each by itself.
void MeasureParts() {
  Say("begin");
  LwipcWaitEvent("/tmp/kavrel-host_ready", 10000);
  Say("waited");
  GDBusConnection* const connection = kavrel_test::OpenOwnConnection();
  Say("loggedin");
  g_object_unref(connection);
}

void OpenWindow() {
  Evas_Object* const window = KavrelAPI::CreatePepperPluginWindow("main", kPlugin, kHost);
  if (window == nullptr) std::exit(1);
  Say("opened");
  Evas_Object* const paint = evas_object_rectangle_add(evas_object_evas_get(window));
  evas_object_color_set(paint, kColor >> 16, kColor >> 8 & 0xff, kColor & 0xff, 255);
  evas_object_size_hint_weight_set(paint, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
  elm_win_resize_object_add(window, paint);
  evas_object_show(paint);
  evas_object_resize(window, 1280, 720);
  evas_object_show(window);
  Say("shown");
}

int RunPlugin(bool with_window) {
  MeasureParts();
  Say("elm");
  StartEfl();
  Say("start");
  MakePlugin();
  if (with_window) OpenWindow();
  RunUntilInputEnds();
  KavrelAPI::DestroyPluggable();
  (void)std::fflush(stdout);
  ::_exit(0);
}

// ---- Measuring

using Times = std::map<std::string, double>;

void TakeUntil(ChildProcess& process, const std::string& last, Times& times) {
  while (const auto line = process.WaitForLine("")) {
    std::istringstream words(*line);
    std::string step;
    double time = 0;
    if (words >> step >> time) times[step] = time;
    if (step == last) return;
  }
  throw std::runtime_error("no \"" + last + "\": " + process.errors());
}

struct Step {
  const char* name;
  const char* from;
  const char* to;
};

void Print(const char* title, const std::vector<Times>& starts, const std::vector<Step>& steps) {
  std::printf("\n%s\n%-58s %10s %10s\n", title, "", "p50 ms", "max ms");
  for (const Step& step : steps) {
    std::vector<double> milliseconds;
    milliseconds.reserve(starts.size());
    for (const Times& times : starts) {
      milliseconds.push_back((times.at(step.to) - times.at(step.from)) / 1000);
    }
    const double median = kavrel_bench::Median(milliseconds);
    std::printf("%-58s %10.2f %10.2f\n", step.name, median,
                kavrel_bench::Percentile(milliseconds, 100));
  }
}

ChildOptions Role(const char* role) {
  ChildOptions options;
  options.arguments = {"/proc/self/exe", role};
  options.environment = {
      {"ELM_ENGINE",
       std::string_view(role) == "host" ? std::optional<std::string>("buffer") : std::nullopt},
      {"DISPLAY", std::nullopt}};
  return options;
}

Times StartPlain() {
  Times times;
  ChildProcess plugin(Role("plain"));
  TakeUntil(plugin, "ready", times);
  plugin.CloseInput();
  plugin.WaitForExit();
  return times;
}

Times StartWithWindow(ChildProcess& host) {
  Times times;
  ChildProcess plugin(Role("window"));
  TakeUntil(plugin, "ready", times);
  TakeUntil(host, "composed", times);
  plugin.CloseInput();
  TakeUntil(host, "removed", times);
  plugin.WaitForExit();
  return times;
}

void Run() {
  ChildProcess host(Role("host"));
  Times ignored;
  TakeUntil(host, "created", ignored);
  std::vector<Times> plain;
  std::vector<Times> with_window;
  for (int start = 0; start < kStarts; ++start) {
    plain.push_back(StartPlain());
    with_window.push_back(StartWithWindow(host));
  }
  Print("From CreatePluggable() to the channel being ready", plain,
        {{"for comparison: looking for the host's event", "begin", "waited"},
         {"for comparison: a bare login to the bus", "waited", "loggedin"},
         {"CreatePluggable() returns after", "start", "made"},
         {"the loop runs and the handshake ends after another", "made", "ready"},
         {"all", "start", "ready"}});
  Print("From CreatePluggable() to the first picture in the viewer (1280x720)", with_window,
        {{"before it: elm_init()", "elm", "start"},
         {"CreatePluggable() returns after", "start", "made"},
         {"CreatePepperPluginWindow() returns after another", "made", "opened"},
         {"the window is filled and shown after another", "opened", "shown"},
         {"EFL draws, and the viewer hears of the window after", "shown", "announced"},
         {"the viewer's picture shows it after another", "announced", "composed"},
         {"all", "start", "composed"}});
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view role = argc > 1 ? argv[1] : "";
  if (role == "host") return RunHost();
  if (!role.empty()) return RunPlugin(role == "window");
  const kavrel_test::PrivateBus bus;
  const kavrel_test::TemporaryDirectory runtime;
  for (const char* name : {"XDG_RUNTIME_DIR", "KAVREL_RUNTIME_DIR", "HOME"}) {
    setenv(name, runtime.path().c_str(), 1);
  }
  setenv("KAVREL_LOG_LEVEL", "none", 1);
  setenv("EINA_LOG_LEVEL", "0", 1);
  try {
    Run();
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "plugin_start_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
