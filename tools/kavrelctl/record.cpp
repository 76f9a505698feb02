#include "record.h"

#include <glib.h>
#include <kavrel/state_properties.h>
#include <printable.h>
#include <ready_fd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <fstream>
#include <glib-unix.h>

#include "bus_watch.h"
#include "control_connection.h"
#include "failure_texts.h"
#include "output.h"
#include "scenario_reader.h"
#include "step_text.h"
#include "wait_loop.h"

namespace kavrelctl {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel_programs::Printable;
using nlohmann::ordered_json;

/// The file, which is whole after each step: whatever ends the recording, what is there plays.
/// One thread.
class ScenarioFile {
 public:
  explicit ScenarioFile(const Settings& settings) : json_(settings.json) {}

  bool Open(const std::string& file, const std::string& app_id) {
    file_.open(file, std::ios::binary | std::ios::trunc);
    Write("# Recorded by kavrelctl from " + app_id + ".\nscenario: Recorded session\n\nsteps:\n");
    return file_.good();
  }

  void Step(const ordered_json& step) {
    ++steps_;
    Write("- " + StepText(step) + '\n');
    if (json_ && !PrintJson(step)) has_reader_ = false;
  }

  /// One line, whatever the text holds.
  void Comment(const std::string& text) {
    constexpr std::size_t kLongest = 400;
    Write("# " + Printable(text, kLongest) + '\n');
  }

  bool IsGood() const { return file_.good() && has_reader_; }
  bool HasReader() const { return has_reader_; }
  bool IsFull() const { return steps_ >= kMostSteps || size_ > kLargestScenario / 4 * 3; }
  std::size_t steps() const { return steps_; }

 private:
  void Write(const std::string& text) {
    size_ += text.size();
    file_ << text << std::flush;
  }

  bool json_;
  std::ofstream file_;
  std::size_t steps_ = 0;
  std::size_t size_ = 0;
  bool has_reader_ = true;
};

/// Main thread only, whose main context it runs.
class Recorder {
 public:
  Recorder(const RecordArguments& arguments, const Settings& settings)
      : arguments_(arguments),
        settings_(settings),
        control_(settings),
        bus_(EffectiveTimeoutSeconds(settings)),
        file_(settings) {}
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder();

  int Run();

 private:
  std::string Begin();
  void BeginBus();
  bool WatchState();
  bool IsOver();
  bool IsEnough() const;
  int Finish();
  /// Lets the viewer tell what others have set, and waits until it has.
  void Look();
  void TakeEvents();
  void Take(const ordered_json& event);
  void TakeState(const ordered_json& event, bool replays);
  void AddStep(const ordered_json& step, const ordered_json& event);
  static void OnStateChanged(valuenode_s* node, void* recorder);
  static gboolean OnStop(gpointer recorder);

  const RecordArguments& arguments_;
  const Settings& settings_;
  ControlConnection control_;
  BusWatch bus_;
  ScenarioFile file_;
  std::vector<const PropertyInfo*> watched_;
  std::deque<ordered_json> events_;
  unsigned sequence_ = 0;  // of the last event
  bool state_changed_ = false;
  bool stopped_ = false;
  std::string failure_;
};

Recorder::~Recorder() {
  for (const PropertyInfo* property : watched_) property->unwatch(&Recorder::OnStateChanged);
  while (g_source_remove_by_user_data(this)) {
  }
}

std::string Recorder::Begin() {
  const auto connected = control_.Connect();
  if (connected) return connected->message;
  if (!file_.Open(arguments_.file, settings_.app_id)) {
    return "cannot write \"" + arguments_.file + "\": " + std::strerror(errno);
  }
  const auto followed = control_.Follow([this](ordered_json event) {
    sequence_ = event.value("sequence", sequence_);
    events_.push_back(std::move(event));
  });
  if (const auto* failure = std::get_if<ControlFailure>(&followed)) return failure->message;
  sequence_ = std::get<unsigned>(followed);
  if (!WatchState()) return "cannot watch the viewer's state";
  BeginBus();
  return {};
}

// Only root and the bus's own user may watch a bus; everybody may record the rest.
void Recorder::BeginBus() {
  const std::string failure = bus_.Begin();
  if (!failure.empty()) file_.Comment("bus: not recorded: " + failure);
}

bool Recorder::WatchState() {
  for (const PropertyInfo& property : kProperties) {
    if (!property.IsWatchable()) continue;
    if (property.watch(&Recorder::OnStateChanged, this) != 0) return false;
    watched_.push_back(&property);
  }
  return true;
}

void Recorder::OnStateChanged(valuenode_s* /*node*/, void* recorder) {
  static_cast<Recorder*>(recorder)->state_changed_ = true;
}

gboolean Recorder::OnStop(gpointer recorder) {
  static_cast<Recorder*>(recorder)->stopped_ = true;
  return G_SOURCE_CONTINUE;
}

int Recorder::Run() {
  failure_ = Begin();
  if (!failure_.empty()) {
    PrintError(failure_);
    if (settings_.json) PrintJson({{"summary", true}, {"ok", false}, {"error", failure_}});
    return kFailed;
  }
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &OnStop, this);
  if (arguments_.duration_seconds) {
    g_timeout_add(static_cast<guint>(*arguments_.duration_seconds * 1000), &OnStop, this);
  }
  PrintError("recording to " + arguments_.file + "; Ctrl-C ends");
  if (arguments_.ready_fd && !kavrel_programs::TellReady(*arguments_.ready_fd)) {
    PrintError("cannot write to the descriptor of --ready-fd");
    return kFailed;
  }
  while (!IsOver()) {
    g_main_context_iteration(nullptr, TRUE);
    if (state_changed_) Look();
    TakeEvents();
    bus_.Deliver([this](const BusEvent& event) { file_.Comment("bus: " + EventText(event)); });
  }
  return Finish();
}

bool Recorder::IsOver() {
  if (control_.IsLost() && failure_.empty()) {
    failure_ = LostText(settings_);
  }
  if (!file_.IsGood() && failure_.empty()) {
    failure_ = file_.HasReader() ? "cannot write \"" + arguments_.file + '"' : "nobody reads";
  }
  return stopped_ || IsEnough() || !failure_.empty();
}

bool Recorder::IsEnough() const {
  const bool is_number_reached = arguments_.count && file_.steps() >= *arguments_.count;
  return is_number_reached || file_.IsFull() || !file_.IsGood();
}

void Recorder::Look() {
  state_changed_ = false;
  const auto answer = control_.Look();
  const auto* const last = std::get_if<unsigned>(&answer);
  if (last == nullptr) return;
  WaitUntil({PatienceSeconds(settings_), false},
            [&] { return control_.IsLost() || sequence_ >= *last; });
}

int Recorder::Finish() {
  // What was set last may not have been told yet.
  if (failure_.empty()) Look();
  TakeEvents();
  if (file_.IsFull()) PrintError("the recording is as long as a scenario may be, and ends");
  if (!failure_.empty() && file_.HasReader()) PrintError(failure_);
  const std::size_t steps = file_.steps();
  const bool printed = settings_.json
                           ? PrintJson({{"summary", true},
                                        {"file", arguments_.file},
                                        {"steps", steps},
                                        {"ok", failure_.empty()}})
                           : Print(std::to_string(steps) + (steps == 1 ? " step\n" : " steps\n"));
  return printed && failure_.empty() ? kDone : kFailed;
}

void Recorder::TakeEvents() {
  for (; !events_.empty() && !IsEnough(); events_.pop_front()) {
    try {
      Take(events_.front());
    } catch (const ordered_json::exception&) {
      file_.Comment("something that cannot be understood: " + events_.front().dump());
    }
  }
}

void Recorder::Take(const ordered_json& event) {
  const std::string kind = event.value("event", "");
  if (kind == "screen") return;
  if (kind == "call") {
    AddStep(CallStep(event), event);
    TakeState(event, true);
  } else if (kind == "key") {
    AddStep(KeyStep(event), event);
    if (event.at("taken_by") == "plugin") {
      file_.Comment("taken by plug-in " + event.at("plugin").get<std::string>());
    }
    TakeState(event, true);
  } else if (kind == "set") {
    AddStep(SetStep(event), event);
  } else {
    file_.Comment(event.dump());
    TakeState(event, false);
  }
}

// What follows from a step is waited for. What a plug-in has brought about is only told: nothing in
// the scenario makes it happen again.
void Recorder::TakeState(const ordered_json& event, bool replays) {
  for (const auto& [name, value] : event.at("state").items()) {
    const ordered_json step = WaitStep(name, value);
    replays ? file_.Step(step) : file_.Comment(StepText(step));
  }
}

void Recorder::AddStep(const ordered_json& step, const ordered_json& event) {
  step.is_null() ? file_.Comment("not played: " + event.dump()) : file_.Step(step);
}

}  // namespace

int RunRecord(const RecordArguments& arguments, const Settings& settings) {
  return Recorder(arguments, settings).Run();
}

}  // namespace kavrelctl
