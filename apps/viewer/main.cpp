// kavrel-viewer: the reference viewer, and the example of how to write one. What a viewer does:
//
//   1. says under which application id it serves (KAVREL_APP_ID, read by the rpc-port service);
//   2. makes a stub and gives it a factory of services (service.h), one service a client;
//   3. runs the GLib main loop, in which the requests arrive;
//   4. publishes what clients may want to watch (state_publisher.h).
#include <glib.h>
#include <kavrel/tidl/KavrelAppApiStub.h>
#include <ready_fd.h>
#include <standard_streams.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <glib-unix.h>
#include <memory>

#include "operation_log.h"
#include "options.h"
#include "reachability.h"
#include "service.h"
#include "state_publisher.h"
#include "television.h"

namespace viewer {
namespace {

/// The main loop, ended by SIGINT and SIGTERM. Main thread only.
class MainLoop {
 public:
  MainLoop() {
    for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &OnSignal, this);
  }
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;
  ~MainLoop() {
    while (g_source_remove_by_user_data(this)) {
    }
  }

  /// Returns when a signal has come, also when it came before.
  void Run() const {
    while (!stopped_) g_main_context_iteration(nullptr, TRUE);
  }

 private:
  static gboolean OnSignal(gpointer self) {
    static_cast<MainLoop*>(self)->stopped_ = true;
    return G_SOURCE_CONTINUE;
  }

  bool stopped_ = false;
};

int CannotListen(const Options& options, const char* reason) {
  std::fprintf(stderr, "kavrel-viewer: cannot listen as \"%s\": %s\n", options.app_id.c_str(),
               reason);
  return kCannotListen;
}

void TellReady(const Options& options) {
  std::fprintf(stderr, "kavrel-viewer: serving as %s\n", options.app_id.c_str());
  if (options.ready_fd && !kavrel_programs::TellReady(*options.ready_fd)) {
    std::perror("kavrel-viewer: --ready-fd");
  }
}

int Serve(const Options& options) {
  MainLoop loop;
  Television television;
  OperationLog log(STDOUT_FILENO,
                   options.json ? OperationLog::Format::kJson : OperationLog::Format::kText);
  television.AddListener([&log](const Change& change) { log.AddEffect(change.text); });
  std::unique_ptr<StatePublisher> publisher;
  stub::KavrelAppApi app_api;
  app_api.Listen(std::make_shared<ServiceFactory>(television, log));
  if (!IsReachable(options.app_id)) {
    return CannotListen(options, "clients cannot connect; the log tells why");
  }
  // Only now: the state of a viewer that serves already is not this one's to write.
  publisher = std::make_unique<StatePublisher>(television);
  TellReady(options);
  loop.Run();
  return kStopped;
}

int Main(int argc, char** argv) {
  kavrel_programs::ProtectStandardStreams();
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
