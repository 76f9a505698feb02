// What a key and a state cost on their way from the viewer to its plug-ins, beside bare messages of
// the same pairs on the same bus; and what the number of plug-ins costs the viewer. The plug-ins of
// a host live in one process, as do the receivers of bare messages.
#include <gio/gio.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bare_bus.h"
#include "common/glib.h"
#include "legacy/KeyRepository.h"
#include "legacy/ViewerHost.h"
#include "legacy/ViewerPlugin.h"
#include "measure.h"
#include "private_bus.h"
#include "shared.h"
#include "table.h"
#include "temporary_directory.h"

namespace {

using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::GDBusCaller;
using kavrel_bench::Kind;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::Pairs;
using kavrel_bench::ProcessorMicroseconds;
using kavrel_bench::Row;
using kavrel_bench::Samples;
using kavrel_bench::SdBusCaller;

constexpr int kPlugins = 64;
constexpr int kGroups = 5;
constexpr int kKeys = 10;
constexpr int kRounds = 15;
constexpr int kEvents = 200;
constexpr int kBroadcasts = 20;
constexpr int kBurst = 50;
const Pairs kKeyPairs = {
    {"key", "KEY_0_0"}, {"type", "pressed"}, {"device", "IR"}, {"time", "1234567890"}};
const Pairs kStatePairs = {{"state", "RESUME"}};

std::string KeyName(int plugin, int key) {
  return "KEY_" + std::to_string(plugin) + '_' + std::to_string(key);
}

// Where a receiver notes when the last event reached it. Shared by all processes.
class Arrival {
 public:
  void Note() const {
    time_->store(Clock::now().time_since_epoch().count());
    signal_.Tell();
  }
  void Wait(int events = 1) const { signal_.Wait(events); }
  double MicrosecondsAfter(Clock::time_point start) const {
    const Clock::time_point arrived{Clock::duration(time_->load())};
    return std::chrono::duration<double, std::micro>(arrived - start).count();
  }

 private:
  std::atomic<Clock::rep>* const time_ = kavrel_bench::MakeShared<std::atomic<Clock::rep>>();
  kavrel_bench::Signal signal_;
};

// ---- Receivers, a process each

struct Listener : IKeyInputListener, IViewerStateChangeListener {
  explicit Listener(const Arrival& one) : arrival(one) {}
  bool OnKeyPressed(const std::string&, int) override {
    arrival.Note();
    return true;
  }
  bool OnKeyReleased(const std::string&, int) override { return true; }
  void OnViewerStateChanged(int) override { arrival.Note(); }
  const Arrival& arrival;
};

struct Plugin {
  Plugin(int number, const std::string& host, Listener& listener)
      : plugin(VIEWER_PLUGIN_LEAVES, "plugin" + std::to_string(number), host) {
    for (int key = 0; key < kKeys; ++key) keys.AddKey(KeyName(number, key));
    plugin.RegisterKeyInputListener(&listener);
    plugin.RegisterViewerStateChangeListener(&listener);
    plugin.SetConnectionChangedCallback(
        [](void* data) {
          auto& self = *static_cast<Plugin*>(data);
          self.plugin.RegsiterKeyRepository(self.keys);
          self.connected = true;
        },
        nullptr, this);
  }

  CViewerPlugin plugin;
  CKeyRepository keys;
  bool connected = false;
};

// The last key of each plug-in arrives once before anything is measured: the host has them all.
void ServePlugins(const std::string& host, int first, int count, const Arrival& start,
                  const Arrival& arrival) {
  start.Wait();
  Listener listener(arrival);
  std::vector<std::unique_ptr<Plugin>> plugins;
  for (int number = first; number < first + count; ++number) {
    plugins.push_back(std::make_unique<Plugin>(number, host, listener));
    while (!plugins.back()->connected) g_main_context_iteration(nullptr, TRUE);
  }
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

// ---- Who sends

/// Plug-ins that join a host together.
struct Group {
  Group(const std::string& host, int first, int number, const Arrival& arrival)
      : count(number), process([this, host, first, &arrival] {
          ServePlugins(host, first, count, join, arrival);
        }) {}

  int count;
  Arrival join;
  Child process;
};

/// A host and its plug-ins, a process for each group of them. All processes are made before this
/// one has a second thread.
class Viewer {
 public:
  Viewer(std::string name, const std::vector<int>& groups) : name_(std::move(name)) {
    int first = 0;
    for (const int count : groups) {
      groups_.push_back(std::make_unique<Group>(name_, first, count, arrival_));
      first += count;
    }
  }

  /// Lets the next group join.
  void Join() {
    if (!host_) host_ = std::make_unique<CViewerHost>(nullptr, nullptr, nullptr, name_.c_str());
    const Group& group = *groups_[joined_++];
    group.join.Note();
    for (int joined = 0; joined < group.count; ++joined) {
      std::string consumer;
      while (!host_->DispatchInput(KeyName(plugins_, kKeys - 1), 0, 0, consumer)) {
        g_main_context_iteration(nullptr, TRUE);
      }
      arrival_.Wait();
      ++plugins_;
    }
  }

  void SendKeyTo(int plugin) const {
    const std::string key = KeyName(plugin, kKeys - 1);
    std::string consumer;
    if (!host_->DispatchInput(key, 0, 0, consumer)) throw std::runtime_error(key + " not taken");
  }
  void SendKeyToLast() const { SendKeyTo(plugins_ - 1); }
  void Broadcast() const { host_->BroadcastViewerState("RESUME"); }
  const Arrival& arrival() const { return arrival_; }
  int plugins() const { return plugins_; }
  /// The processes of all groups, and `others`.
  std::vector<pid_t> ProcessesAnd(pid_t other) const {
    std::vector<pid_t> pids = {other};
    for (const auto& group : groups_) pids.push_back(group->process.pid());
    return pids;
  }

 private:
  std::string name_;
  Arrival arrival_;
  std::vector<std::unique_ptr<Group>> groups_;
  std::size_t joined_ = 0;
  int plugins_ = 0;
  std::unique_ptr<CViewerHost> host_;
};

/// The receiver of bare messages, a process, and what sends to it.
template <class Caller>
class Bare {
 public:
  using Serve = void (*)(const char*, const std::function<void()>&, const std::function<void()>&);

  Bare(const char* name, Serve serve) : name_(name), serve_(serve) { arrival_.Wait(); }

  void Open() { caller_ = std::make_unique<Caller>(name_); }
  void SendKey() const { caller_->Send(kKeyPairs); }
  void SendStates(int times) const {
    for (int i = 0; i < times; ++i) caller_->Send(kStatePairs);
  }
  const Arrival& arrival() const { return arrival_; }
  pid_t pid() const { return process_.pid(); }

 private:
  const char* name_;
  Serve serve_;
  Arrival arrival_;
  Child process_{[this] {
    const auto note = [this] { arrival_.Note(); };
    serve_(name_, note, note);
  }};
  std::unique_ptr<Caller> caller_;
};

struct Processes {
  explicit Processes(pid_t bus) : daemon(bus) {}

  void Open() {
    gdbus.Open();
    sd_bus.Open();
    other.Join();
  }

  pid_t daemon;
  Bare<GDBusCaller> gdbus{"org.zarnet.bare", kavrel_bench::ServeWithGDBus};
  Bare<SdBusCaller> sd_bus{"org.zarnet.sdbus", kavrel_bench::ServeWithSdBus};
  /// For a key, hosts of other names do what the viewer's does.
  Viewer other{"other", {1}};
  /// Only the host of this name sends states that plug-ins listen to. One viewer grows: the bus
  /// allows a connection no more match rules than a few more plug-ins than these want.
  Viewer kavrel{"kavrel", {1, 3, 6, 22, 32}};
};

// ---- Rows

struct Measured {
  std::string name;
  Kind kind;
  const Arrival& arrival;
  std::vector<pid_t> processes;  ///< whose processor time counts, beside this one's
  std::function<void()> send;
  int arrivals = 1;  ///< of one sending
  int times = kEvents;
};

/// Until the last arrival of each sending.
Row ArrivalRow(const Measured& what) {
  return {what.name,
          [what](Row& row) {
            std::vector<double> samples;
            const double processor = ProcessorMicroseconds(what.processes);
            for (int i = 0; i < Samples(what.times); ++i) {
              const auto start = Clock::now();
              what.send();
              what.arrival.Wait(what.arrivals);
              samples.push_back(what.arrival.MicrosecondsAfter(start));
            }
            row.processor.push_back((ProcessorMicroseconds(what.processes) - processor) /
                                    Samples(what.times));
            kavrel_bench::AddSamples(row, samples);
          },
          what.kind};
}

/// How long the call itself takes. Arrivals are awaited in bursts, so that nothing piles up.
Row CallRow(const Measured& what) {
  return {what.name,
          [what](Row& row) {
            std::vector<double> samples;
            for (int burst = 0; burst < what.times / kBurst; ++burst) {
              for (int i = 0; i < kBurst; ++i) {
                const auto start = Clock::now();
                what.send();
                samples.push_back(MicrosecondsSince(start));
              }
              what.arrival.Wait(kBurst);
            }
            kavrel_bench::AddSamples(row, samples);
          },
          what.kind};
}

/// What it takes to ask this many key sets for a key that only the last one has.
struct LookUp {
  LookUp() {
    for (int number = 0; number < kPlugins; ++number) {
      CKeyRepository keys;
      for (int key = 0; key < kKeys; ++key) keys.AddKey(KeyName(number, key));
      sets.push_back(keys);
    }
  }
  void Measure(Row& row) const {
    std::vector<double> samples;
    for (int i = 0; i < kEvents; ++i) {
      const auto start = Clock::now();
      for (const CKeyRepository& keys : sets) {
        if (keys.IsRegistered(last)) break;
      }
      samples.push_back(MicrosecondsSince(start));
    }
    kavrel_bench::AddSamples(row, samples);
  }
  std::string last = KeyName(kPlugins - 1, kKeys - 1);
  std::vector<CKeyRepository> sets;
};

Measured KeyTo(const Viewer& viewer, std::string name, pid_t daemon) {
  return {std::move(name), Kind::kOurs, viewer.arrival(), viewer.ProcessesAnd(daemon),
          [&viewer] { viewer.SendKeyToLast(); }};
}

template <class Caller>
Measured BareKey(const Bare<Caller>& bare, std::string name, Kind kind, pid_t daemon) {
  return {std::move(name), kind, bare.arrival(), {bare.pid(), daemon}, [&bare] { bare.SendKey(); }};
}

template <class Caller>
Measured BareStates(const Bare<Caller>& bare, const std::string& name, Kind kind, pid_t daemon,
                    int receivers) {
  return {name,
          kind,
          bare.arrival(),
          {bare.pid(), daemon},
          [&bare, receivers] { bare.SendStates(receivers); },
          receivers,
          kBroadcasts};
}

// ---- Tables

void RunKeys(const Processes& all) {
  const pid_t daemon = all.daemon;
  const Viewer& one = all.other;
  const Viewer& many = all.kavrel;
  const Measured gdbus = BareKey(all.gdbus, "bare GDBus one-way message", Kind::kLimit, daemon);
  kavrel_bench::RunLatencyTable(
      "From the viewer to the plug-in's listener, in another process",
      {ArrivalRow(gdbus),
       ArrivalRow(BareKey(all.sd_bus, "bare sd-bus one-way message", Kind::kPeer, daemon)),
       ArrivalRow(KeyTo(one, "DispatchInput, one plug-in", daemon)),
       ArrivalRow(KeyTo(many, "DispatchInput, 64 plug-ins, to the last", daemon))},
      kRounds);
  Measured to_first = KeyTo(many, "64 plug-ins, a key of the first", daemon);
  to_first.send = [&many] { many.SendKeyTo(0); };
  const LookUp look_up;
  kavrel_bench::RunLatencyTable(
      "DispatchInput itself, until it returns; 10 keys a plug-in",
      {CallRow(gdbus),
       CallRow(KeyTo(one, "one plug-in", daemon)),
       CallRow(to_first),
       CallRow(KeyTo(many, "64 plug-ins, a key of the last", daemon)),
       {"of that, asking 64 sets of 10 keys", [&look_up](Row& row) { look_up.Measure(row); }}},
      kRounds);
}

std::vector<Row> OfSize(int size, std::vector<Row> rows) {
  for (Row& row : rows) row.size = size;
  return rows;
}

void RunGrowth(const Processes& all) {
  const Viewer& viewer = all.kavrel;
  const int count = viewer.plugins();
  kavrel_bench::RunLatencyTable(
      "Growth: a key to the last of so many plug-ins",
      OfSize(count, {ArrivalRow(BareKey(all.gdbus, "bare GDBus one-way message", Kind::kLimit,
                                        all.daemon)),
                     ArrivalRow(KeyTo(viewer, "DispatchInput", all.daemon))}),
      kRounds);
  const Measured ours = {"BroadcastViewerState",
                         Kind::kOurs,
                         viewer.arrival(),
                         viewer.ProcessesAnd(all.daemon),
                         [&viewer] { viewer.Broadcast(); },
                         count,
                         kBroadcasts};
  kavrel_bench::RunLatencyTable(
      "Growth: the viewer's state to the last of so many plug-ins",
      OfSize(count, {ArrivalRow(BareStates(all.gdbus, "as many bare GDBus messages", Kind::kLimit,
                                           all.daemon, count)),
                     ArrivalRow(BareStates(all.sd_bus, "as many bare sd-bus messages", Kind::kPeer,
                                           all.daemon, count)),
                     ArrivalRow(ours)}),
      kRounds);
}

}  // namespace

int main() {
  setenv("KAVREL_LOG_LEVEL", "none", 0);
  // Everything on one core, the bus daemon too: what is measured is work, not where it is done.
  kavrel_bench::PinTo(0);
  const kavrel_test::PrivateBus bus;
  const kavrel_test::TemporaryDirectory runtime;
  setenv("KAVREL_RUNTIME_DIR", runtime.path().c_str(), 1);
  try {
    Processes all(bus.pid());
    all.Open();
    for (int group = 0; group < kGroups; ++group) {
      all.kavrel.Join();
      RunGrowth(all);
    }
    RunKeys(all);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "plugin_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
