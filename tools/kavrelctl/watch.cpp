#include "watch.h"

#include <glib.h>
#include <ready_fd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <glib-unix.h>
#include <memory>

#include "log_tap.h"
#include "output.h"
#include "properties.h"
#include "settings.h"

namespace kavrelctl {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using nlohmann::ordered_json;

/// Watches properties until a signal comes, enough changes were printed or nobody reads them.
/// Main thread only, whose main context delivers the changes.
class Watch {
 public:
  Watch(const WatchArguments& arguments, bool json) : arguments_(arguments), json_(json) {}
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch();

  int Run();

 private:
  /// One watched property with the value that was seen last.
  struct Watched {
    Watch* watch;
    const PropertyInfo* property;
    ordered_json value;
    bool registered = false;
  };

  bool Register(Watched& watched);
  bool AnnounceReady() const;
  void Changed(Watched& watched, const valuenode_s& node);
  void Stop(int exit_code);
  static void OnChanged(valuenode_s* node, void* watched);
  static gboolean OnSignal(gpointer watch);
  static gboolean OnReaderGone(gint fd, GIOCondition condition, gpointer watch);

  const WatchArguments& arguments_;
  bool json_;
  std::vector<std::unique_ptr<Watched>> watched_;
  unsigned printed_ = 0;
  std::optional<int> exit_code_;
};

std::vector<const PropertyInfo*> Chosen(const std::vector<std::string>& names) {
  std::vector<const PropertyInfo*> chosen;
  for (const PropertyInfo& property : kProperties) {
    if (!property.IsWatchable()) continue;
    if (names.empty() || std::find(names.begin(), names.end(), property.name) != names.end()) {
      chosen.push_back(&property);
    }
  }
  return chosen;
}

Watch::~Watch() {
  for (const auto& watched : watched_) {
    if (watched->registered) watched->property->unwatch(&OnChanged);
  }
  while (g_source_remove_by_user_data(this)) {
  }
}

int Watch::Run() {
  for (const PropertyInfo* property : Chosen(arguments_.names)) {
    watched_.push_back(std::make_unique<Watched>(Watched{this, property, nullptr}));
    if (!Register(*watched_.back())) return kFailed;
  }
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &OnSignal, this);
  g_unix_fd_add(STDOUT_FILENO, static_cast<GIOCondition>(G_IO_ERR | G_IO_HUP), &OnReaderGone, this);
  if (!AnnounceReady()) return kFailed;
  while (!exit_code_) g_main_context_iteration(nullptr, TRUE);
  return *exit_code_;
}

// The value first, then the registration: a change between the two is delivered.
bool Watch::Register(Watched& watched) {
  std::string failure;
  const auto value = ReadProperty(*watched.property, failure);
  if (value) watched.value = *value;
  watched.registered = value && watched.property->watch(&OnChanged, &watched) == 0;
  if (watched.registered) return true;
  for (const LogLine& error : LogTap::Instance().TakeErrors()) failure = error.text;
  PrintError("cannot watch " + std::string(watched.property->name) + ": " + failure);
  return false;
}

bool Watch::AnnounceReady() const {
  (void)std::fprintf(stderr, "kavrelctl: watching %zu %s; Ctrl-C ends\n", watched_.size(),
                     watched_.size() == 1 ? "property" : "properties");
  if (!arguments_.ready_fd || kavrel_programs::TellReady(*arguments_.ready_fd)) return true;
  PrintError("cannot write to the descriptor of --ready-fd");
  return false;
}

void Watch::Changed(Watched& watched, const valuenode_s& node) {
  if (exit_code_) return;
  const PropertyInfo& property = *watched.property;
  const ordered_json old_value = std::exchange(watched.value, NodeValue(node));
  const bool printed =
      json_ ? PrintJson({{"name", property.name},
                         {"key", property.key},
                         {"old", old_value},
                         {"new", watched.value}})
            : Print(std::string(property.name) + ": " + ValueText(old_value) + " -> " +
                    ValueText(watched.value) + "  (" + property.key + ")\n");
  if (!printed) {
    Stop(kFailed);
  } else if (++printed_ == arguments_.count) {
    Stop(kDone);
  }
}

void Watch::Stop(int exit_code) {
  exit_code_ = exit_code_.value_or(exit_code);
}

void Watch::OnChanged(valuenode_s* node, void* watched) {
  auto* const self = static_cast<Watched*>(watched);
  try {
    self->watch->Changed(*self, *node);
  } catch (const std::exception& error) {
    PrintError(error.what());
    self->watch->Stop(kFailed);
  }
}

gboolean Watch::OnSignal(gpointer watch) {
  static_cast<Watch*>(watch)->Stop(kDone);
  return G_SOURCE_CONTINUE;
}

gboolean Watch::OnReaderGone(gint /*fd*/, GIOCondition /*condition*/, gpointer watch) {
  static_cast<Watch*>(watch)->Stop(kFailed);
  return G_SOURCE_REMOVE;
}

}  // namespace

int RunWatch(const WatchArguments& arguments, bool json) {
  return Watch(arguments, json).Run();
}

}  // namespace kavrelctl
