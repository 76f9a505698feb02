// A viewer in a process of its own: the stub on a GLib main loop, with a service that the test
// writes. It listens when the object is there and dies with it.
#pragma once

#include <glib.h>
#include <kavrel/tidl/KavrelAppApiStub.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace kavrel_test {

using Stub = rpc_port::KavrelAppApiStub::stub::KavrelAppApi;

/// Makes services with a function.
class FunctionFactory final : public Stub::ServiceBase::Factory {
 public:
  using Make = std::function<std::unique_ptr<Stub::ServiceBase>(std::string, std::string)>;
  explicit FunctionFactory(Make make) : make_(std::move(make)) {}

  std::unique_ptr<Stub::ServiceBase> MakeService(std::string sender,
                                                 std::string instance) override {
    return make_(std::move(sender), std::move(instance));
  }

 private:
  Make make_;
};

/// Make it while the calling process has one thread only: it forks.
class ViewerProcess {
 public:
  /// `app_id` is what clients name; `make` runs in the new process.
  ViewerProcess(const std::string& app_id, FunctionFactory::Make make)
      : ViewerProcess(app_id, [&make](const std::function<void()>& ready) {
          Stub stub;
          stub.Listen(std::make_shared<FunctionFactory>(std::move(make)));
          ready();
          g_main_loop_run(g_main_loop_new(nullptr, FALSE));
        }) {}

  /// Runs `body` as the process, which calls its argument when it serves.
  ViewerProcess(const std::string& app_id,
                const std::function<void(const std::function<void()>&)>& body) {
    std::array<int, 2> ready{};
    if (pipe(ready.data()) != 0) throw std::runtime_error("no pipe for a test's viewer");
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(ready[0]);
      setenv("KAVREL_APP_ID", app_id.c_str(), 1);
      body([fd = ready[1]] { close(fd); });
      _exit(0);
    }
    close(ready[1]);
    char byte = 0;
    while (read(ready[0], &byte, 1) < 0 && errno == EINTR) {
    }
    close(ready[0]);
  }
  ViewerProcess(const ViewerProcess&) = delete;
  ViewerProcess& operator=(const ViewerProcess&) = delete;
  ~ViewerProcess() { Kill(); }

  pid_t pid() const { return pid_; }
  void Signal(int signal) const {
    if (pid_ > 0) kill(pid_, signal);  // one that has ended must not become everybody
  }

  /// kill -9 and wait until it is gone.
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
};

}  // namespace kavrel_test
