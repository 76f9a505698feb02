#include "bus_monitor.h"

#include <ready_fd.h>
#include <unistd.h>

#include <csignal>
#include <glib-unix.h>
#include <string>

#include "bus_watch.h"
#include "output.h"
#include "settings.h"

namespace kavrelctl {
namespace {

std::string TimeOfDay() {
  GDateTime* const now = g_date_time_new_now_local();
  char* const seconds = g_date_time_format(now, "%H:%M:%S");
  const std::string thousandths = std::to_string(1000 + g_date_time_get_microsecond(now) / 1000);
  std::string text = std::string(seconds) + "." + thousandths.substr(1);
  g_free(seconds);
  g_date_time_unref(now);
  return text;
}

/// Main thread only, whose main context it runs.
class Monitor {
 public:
  Monitor(const BusArguments& arguments, double limit_seconds, bool json)
      : arguments_(arguments), json_(json), watch_(limit_seconds) {}
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;
  ~Monitor() {
    while (g_source_remove_by_user_data(this)) {
    }
  }

  int Run();

 private:
  bool AnnounceReady() const;
  void PrintArrived();
  void PrintEvent(const BusEvent& event);
  void Stop(int exit_code) { exit_code_ = exit_code_.value_or(exit_code); }
  static gboolean OnSignal(gpointer monitor);
  static gboolean OnReaderGone(gint fd, GIOCondition condition, gpointer monitor);

  const BusArguments& arguments_;
  bool json_;
  BusWatch watch_;
  unsigned printed_ = 0;
  std::optional<int> exit_code_;
};

bool Monitor::AnnounceReady() const {
  PrintError("watching the bus; Ctrl-C ends");
  if (!arguments_.ready_fd || kavrel_programs::TellReady(*arguments_.ready_fd)) return true;
  PrintError("cannot write to the descriptor of --ready-fd");
  return false;
}

int Monitor::Run() {
  const std::string failure = watch_.Begin();
  if (!failure.empty()) {
    PrintError(failure);
    return kFailed;
  }
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &OnSignal, this);
  g_unix_fd_add(STDOUT_FILENO, static_cast<GIOCondition>(G_IO_ERR | G_IO_HUP), &OnReaderGone, this);
  if (!AnnounceReady()) return kFailed;
  while (!exit_code_) {
    PrintArrived();
    if (!exit_code_) g_main_context_iteration(nullptr, TRUE);
  }
  return *exit_code_;
}

void Monitor::PrintArrived() {
  const bool is_lost = watch_.IsLost();
  const std::size_t missed = watch_.Deliver([this](const BusEvent& event) {
    if (!exit_code_) PrintEvent(event);
  });
  if (missed != 0) {
    PrintError(std::to_string(missed) + " messages came faster than they could be printed");
  }
  if (!is_lost || exit_code_) return;
  PrintError("the bus has gone");
  Stop(kFailed);
}

void Monitor::PrintEvent(const BusEvent& event) {
  const bool printed =
      json_ ? PrintJson(event) : Print(TimeOfDay() + "  " + EventText(event) + '\n');
  if (!printed) {
    Stop(kFailed);
  } else if (++printed_ == arguments_.count) {
    Stop(kDone);
  }
}

gboolean Monitor::OnSignal(gpointer monitor) {
  static_cast<Monitor*>(monitor)->Stop(kDone);
  return G_SOURCE_CONTINUE;
}

gboolean Monitor::OnReaderGone(gint /*fd*/, GIOCondition /*condition*/, gpointer monitor) {
  static_cast<Monitor*>(monitor)->Stop(kFailed);
  return G_SOURCE_REMOVE;
}

}  // namespace

int RunBusMonitor(const BusArguments& arguments, double limit_seconds, bool json) {
  return Monitor(arguments, limit_seconds, json).Run();
}

}  // namespace kavrelctl
