// kavrel-viewer: the reference viewer, and the example of how to write one. What a viewer does:
//
//   1. says under which application id it serves (KAVREL_APP_ID, read by the rpc-port service);
//   2. makes a stub and gives it a factory of services (service.h), one service a client;
//   3. opens its window and shows what it is commanded to show (window.h, screen.h);
//   4. makes itself host of plug-ins (plugin_host.h), and offers them the keys of its remote
//      control before it acts on them itself (remote_control.h);
//   5. publishes what clients may want to watch (state_publisher.h);
//   6. runs EFL's main loop, in which everything of the above arrives (main_loop.h).
//
// The control port (control_port.h) is this viewer's own; no viewer needs one.
#include <kavrel/tidl/KavrelAppApiStub.h>
#include <printable.h>
#include <ready_fd.h>
#include <standard_streams.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>

#include "banner_clock.h"
#include "compositor_obstacle.h"
#include "control_port.h"
#include "journal.h"
#include "keyboard.h"
#include "main_loop.h"
#include "operation_log.h"
#include "options.h"
#include "plugin_host.h"
#include "png_file.h"
#include "reachability.h"
#include "remote_control.h"
#include "remote_panel.h"
#include "screen.h"
#include "service.h"
#include "state_publisher.h"
#include "system_bus.h"
#include "television.h"
#include "toolkit_log.h"
#include "window.h"

namespace viewer {
namespace {

int CannotListen(const Options& options, const char* reason) {
  (void)std::fprintf(stderr, "kavrel-viewer: cannot listen as \"%s\": %s\n", options.app_id.c_str(),
                     reason);
  return kCannotListen;
}

void TellReady(const Options& options) {
  (void)std::fprintf(stderr, "kavrel-viewer: serving as %s\n", options.app_id.c_str());
  if (options.ready_fd && !kavrel_programs::TellReady(*options.ready_fd)) {
    std::perror("kavrel-viewer: --ready-fd");
  }
}

// Null, with a word to the person who started it, when there can be no plug-ins: everything else
// works without them.
std::unique_ptr<PluginHost> MakePluginHost(const Window& window, Television& television,
                                           OperationLog& log) {
  const std::string obstacle = PluginObstacle();
  if (!obstacle.empty()) {
    (void)std::fprintf(stderr, "kavrel-viewer: plug-ins are off: %s\n",
                       kavrel_programs::Printable(obstacle).c_str());
    return nullptr;
  }
  auto host = std::make_unique<PluginHost>(window, television, log);
  if (!host->HasCompositor()) {
    (void)std::fprintf(stderr, "kavrel-viewer: plug-ins have no windows: %s\n",
                       kavrel_programs::Printable(CompositorObstacle()).c_str());
  }
  return host;
}

// The window's place among others is a state that plug-ins learn.
void FollowWindow(Window& window, Television& television, OperationLog& log) {
  window.OnFocus([&](bool focused) {
    television.SetFocused(focused);
    log.WriteEvent(focused ? "window entered" : "window left", "focus", {{"focused", focused}});
  });
  window.OnVisible([&](bool visible) {
    television.SetVisible(visible);
    log.WriteEvent(visible ? "window opened" : "window made an icon", "visible",
                   {{"visible", visible}});
  });
}

void SaveScreenshot(const std::string& path, Screen& screen, const Window& window) {
  if (path.empty()) return;
  try {
    screen.Draw();
    WriteFile(path, EncodePng(window.Capture()));
  } catch (const std::runtime_error& error) {
    (void)std::fprintf(stderr, "kavrel-viewer: --screenshot: %s\n", error.what());
  }
}

// The viewer with its screen, from the moment at which clients can connect.
int Show(const Options& options, Television& television, OperationLog& log,
         const ClientList& clients) {
  Window window(options.headless, options.remote);
  MainLoop loop;
  window.OnClose([&loop] { loop.Stop(); });
  Screen screen(window, television);
  log.SetTextListener([&screen](const std::string& line) { screen.AddCall(line); });
  const BannerClock clock(television, log, options.banner_seconds);
  const std::unique_ptr<PluginHost> plugins = MakePluginHost(window, television, log);
  RemoteControl remote_control(plugins.get(), television, log);
  const Keyboard keyboard(remote_control);
  std::optional<RemotePanel> panel;
  if (window.has_panel()) panel.emplace(window, remote_control);
  window.OnResize([&] {
    screen.Invalidate();
    if (plugins) plugins->PlaceWindows();
    if (panel) panel->Draw();
  });
  FollowWindow(window, television, log);
  StatePublisher publisher(television, window.number());
  Journal journal(log, television);
  publisher.OnWrite([&journal](const char* key) { journal.Published(key); });
  const ControlPort control(
      {plugins.get(), remote_control, television, screen, window, journal, clients});
  TellReady(options);
  loop.Run(plugins != nullptr);
  SaveScreenshot(options.screenshot, screen, window);
  log.SetTextListener(nullptr);
  return kStopped;
}

int Serve(const Options& options) {
  Television television;
  OperationLog log(STDOUT_FILENO,
                   options.json ? OperationLog::Format::kJson : OperationLog::Format::kText);
  television.AddListener([&log](const Change& change) { log.AddEffect(change.text); });
  ClientList clients;
  stub::KavrelAppApi app_api;
  app_api.Listen(std::make_shared<ServiceFactory>(television, log, clients));
  if (!IsReachable(options.app_id)) {
    return CannotListen(options, "clients cannot connect; the log tells why");
  }
  // Only now: the state of a viewer that serves already is not this one's to write.
  return Show(options, television, log, clients);
}

int Main(int argc, char** argv) {
  kavrel_programs::ProtectStandardStreams();
  LogForToolkit();
  const auto parsed = ParseOptions(argc, argv);
  if (const int* exit_code = std::get_if<int>(&parsed)) return *exit_code;
  const Options& options = std::get<Options>(parsed);
  ::setenv("KAVREL_APP_ID", options.app_id.c_str(), 1);
  try {
    return Serve(options);
  } catch (const stub::InvalidIOException&) {
    return CannotListen(options, SomebodyServes(options.app_id)
                                     ? "another viewer serves under this id in the same runtime "
                                       "directory; stop it, or choose another --app-id"
                                     : "the log tells why");
  } catch (const std::exception& error) {
    return CannotListen(options, error.what());
  }
}

}  // namespace
}  // namespace viewer

int main(int argc, char** argv) {
  return viewer::Main(argc, argv);
}
