// The state store beside what it is made of - bare LMDB in the same process, a bare inotify wake-up
// and a bare futex wake-up between processes - and beside other stores.
//
//   vconf_bench [get|set|durable|callback|fan-out|burst|growth]   all without an argument
#include <fcntl.h>
#include <glib.h>
#include <kavrel/state_api.h>
#include <linux/futex.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <vconf.h>

#include <optional>
#include <string_view>

#include "fan_out.h"
#include "measure.h"
#include "stores/bare_lmdb.h"
#include "stores/store.h"
#include "table.h"
#include "temporary_directory.h"

using kavrel_bench::AddSamples;
using kavrel_bench::BareLmdb;
using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::FanOut;
using kavrel_bench::KeptAwake;
using kavrel_bench::Kind;
using kavrel_bench::MakeShared;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::PinTo;
using kavrel_bench::ProcessorMicroseconds;
using kavrel_bench::Row;
using kavrel_bench::RunLatencyTable;
using kavrel_bench::Samples;
using kavrel_bench::Store;
using kavrel_bench::StoreKind;
using kavrel_bench::WakeUp;

namespace {

constexpr int kRounds = 7;
constexpr char kKey[] = "memory/kavrel/pip_focus";
constexpr char kDurableKey[] = "db/kavrel/serdes_error";

/// Where everything is, and the other stores.
struct World {
  std::string directory;  ///< in memory where the system has a place for that
  std::string disk;
  std::vector<StoreKind> stores;   ///< not durable where they have the choice
  std::vector<StoreKind> durable;  ///< all of them
};

void Require(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
}

/// One value a round: the time of one of `count` calls.
void TimeCalls(Row& row, int count, const std::function<void(int)>& call) {
  const double processor = ProcessorMicroseconds();
  const auto start = Clock::now();
  for (int i = 0; i < count; ++i) call(i);
  const double each = MicrosecondsSince(start) / count;
  row.p50.push_back(each);
  row.p99.push_back(each);
  row.processor.push_back((ProcessorMicroseconds() - processor) / count);
}

void TimeEachCall(Row& row, int count, const std::function<void(int)>& call) {
  std::vector<double> samples;
  for (int i = 0; i < count; ++i) {
    const auto start = Clock::now();
    call(i);
    samples.push_back(MicrosecondsSince(start));
  }
  AddSamples(row, samples);
}

int keep;  // what the compiler must not leave out

// --- Other stores

/// Measures in a process of its own, which may start threads and forks nothing afterwards.
void MeasureAside(Row& row, const std::function<void(Row&)>& measure) {
  struct Result {
    double p50, p99;
    bool done;
  };
  auto* const result = MakeShared<Result>();
  {
    const Child child([&] {
      Row mine;
      try {
        measure(mine);
      } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%s\n", error.what());
        return;
      }
      *result = {mine.p50.back(), mine.p99.back(), true};
    });
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(child.pid()), &ended, WEXITED | WNOWAIT);
  }
  const Result got = *result;
  munmap(result, sizeof(Result));
  if (!got.done) throw std::runtime_error("its process failed");
  row.p50.push_back(got.p50);
  row.p99.push_back(got.p99);
}

/// A row of another store.
Row StoreRow(const StoreKind& kind, std::function<void(Row&)> measure) {
  if (kind.threads) {
    measure = [measure](Row& row) { MeasureAside(row, measure); };
  }
  Row row{kind.name, measure, Kind::kPeer};
  row.missing = kind.missing;
  return row;
}

/// A row of each store in which `use` is done `count` times by a connected process.
void AddStoreRows(std::vector<Row>& rows, const std::vector<StoreKind>& kinds, int count,
                  void (*use)(Store&, int)) {
  for (const StoreKind& kind : kinds) {
    const auto measure = [kind, count, use](Row& row) {
      const std::unique_ptr<Store> store = kind.open();
      store->Set(1);
      TimeEachCall(row, Samples(count), [&](int i) { use(*store, i); });
    };
    rows.push_back(StoreRow(kind, measure));
  }
}

// --- Reads

/// Another process that gives many keys new values whenever it is asked, so that reads of them find
/// nothing kept.
class OtherWriter {
 public:
  static constexpr int kKeys = 256;

  OtherWriter() : ask_(eventfd(0, 0)), done_(eventfd(0, 0)), child_([this] { Serve(); }) {}

  void ChangeAll() {
    eventfd_write(ask_, 1);
    eventfd_t count = 0;
    eventfd_read(done_, &count);
  }
  static std::string KeyOf(int number) { return "memory/kavrel/many/" + std::to_string(number); }

 private:
  void Serve() {
    for (int value = 1;; ++value) {
      eventfd_t count = 0;
      if (eventfd_read(ask_, &count) != 0) return;
      for (int number = 0; number < kKeys; ++number) vconf_set_int(KeyOf(number).c_str(), value);
      eventfd_write(done_, 1);
    }
  }

  int ask_;
  int done_;
  Child child_;
};

/// What every read comes down to: a record that another process may have written, copied.
class SharedRecord {
 public:
  int Get() const {
    Record copy{};
    std::memcpy(&copy, const_cast<const Record*>(record_), sizeof copy);
    asm volatile("" ::: "memory");  // each time anew
    return copy.value;
  }

 private:
  struct Record {
    char bytes[24];
    int value;
  };
  Record* const record_ = MakeShared<Record>();
};

void BenchGet(const World& world) {
  const int reads = Samples(400'000);
  const SharedRecord record;
  BareLmdb bare(world.directory + "/get.mdb", MDB_NOSYNC);
  Require(vconf_set_int(kKey, 1), "vconf_set_int");
  OtherWriter writer;
  std::vector<std::string> keys;
  keys.reserve(OtherWriter::kKeys);
  for (int number = 0; number < OtherWriter::kKeys; ++number) {
    keys.push_back(OtherWriter::KeyOf(number));
  }
  const auto changed = [&](Row& row) {
    writer.ChangeAll();
    TimeCalls(row, OtherWriter::kKeys,
              [&](int i) { vconf_get_int(keys[static_cast<std::size_t>(i)].c_str(), &keep); });
  };
  const auto calls = [reads](const std::function<void(int)>& call) {
    return [reads, call](Row& row) { TimeCalls(row, reads, call); };
  };
  std::vector<Row> rows = {
      {"bare LMDB, transaction renewed", calls([&](int) { keep = bare.Get(kKey); }), Kind::kLimit},
      {"bare LMDB, new transaction", calls([&](int) { keep = bare.GetInNewTransaction(kKey); }),
       Kind::kLimit},
      {"copy of shared memory", calls([&](int) { keep = record.Get(); }), Kind::kLimit},
      {"vconf_get_int, unchanged key", calls([&](int) { vconf_get_int(kKey, &keep); })},
      {"kavrel_get_pip_focus, unchanged", calls([&](int) { kavrel_get_pip_focus(&keep); })},
      {"vconf_get_int, changed by another process", changed}};
  AddStoreRows(rows, world.stores, 4000, [](Store& store, int) { keep = store.Get(); });
  RunLatencyTable("get of an int", std::move(rows), kRounds);
}

// --- Wake-ups between processes

void RunGLibLoop() {
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

WakeUp VconfWakeUp() {
  const auto wait = [](const std::function<void()>& ready, const std::function<void()>& called) {
    const auto callback = [](keynode_t*, void* user_data) {
      (*static_cast<const std::function<void()>*>(user_data))();
    };
    Require(vconf_notify_key_changed(kKey, callback, const_cast<std::function<void()>*>(&called)),
            "vconf_notify_key_changed");
    ready();
    RunGLibLoop();
  };
  return {wait, [value = 0]() mutable { vconf_set_int(kKey, ++value); }};
}

/// The same through the library's own functions.
WakeUp KavrelWakeUp() {
  const auto wait = [](const std::function<void()>& ready, const std::function<void()>& called) {
    const auto callback = [](valuenode_s*, void* user_data) {
      (*static_cast<const std::function<void()>*>(user_data))();
    };
    Require(
        kavrel_register_pip_focus_change_cb(callback, const_cast<std::function<void()>*>(&called)),
        "kavrel_register_pip_focus_change_cb");
    ready();
    RunGLibLoop();
  };
  return {wait, [value = 0]() mutable { kavrel_set_pip_focus(++value); }};
}

WakeUp InotifyWakeUp(const std::string& path) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const auto wait = [path](const std::function<void()>& ready,
                           const std::function<void()>& called) {
    const int watch = inotify_init1(IN_NONBLOCK);
    if (watch < 0 || inotify_add_watch(watch, path.c_str(), IN_MODIFY) < 0) {
      throw std::runtime_error("no inotify watch");
    }
    ready();
    std::array<char, 4096> events;
    for (;;) {
      pollfd waiting{watch, POLLIN, 0};
      poll(&waiting, 1, -1);
      if (read(watch, events.data(), events.size()) > 0) called();
    }
  };
  return {wait, [file] { keep = static_cast<int>(pwrite(file, "!", 1, 0)); }};
}

WakeUp FutexWakeUp() {
  auto* const word = MakeShared<std::atomic<int>>();
  const auto wait = [word](const std::function<void()>& ready,
                           const std::function<void()>& called) {
    int seen = *word;
    ready();
    for (;;) {
      syscall(SYS_futex, word, FUTEX_WAIT, seen, nullptr, nullptr, 0);
      if (*word == seen) continue;
      seen = *word;
      called();
    }
  };
  return {wait, [word] {
            ++*word;
            syscall(SYS_futex, word, FUTEX_WAKE, 1 << 20, nullptr, nullptr, 0);
          }};
}

WakeUp StoreWakeUp(const StoreKind& kind) {
  const auto wait = [&kind](const std::function<void()>& ready,
                            const std::function<void()>& called) {
    kind.open()->Follow(ready, called);
  };
  // Opened by the first wake-up: the watchers have been forked by then.
  return {wait, [&kind, store = std::shared_ptr<Store>(), value = 0]() mutable {
            if (store == nullptr) store = kind.open();
            store->Tell(++value);
          }};
}

/// Where the processes of a table of wake-ups run, and how many there are.
struct Placing {
  int watchers;
  int count;
  int writer_cpu = FanOut::kAnyProcessor;
  int watcher_cpu = FanOut::kAnyProcessor;
};

// The watchers of one kind live for one round: together, those of all kinds would want more inotify
// instances than a user has.
std::function<void(Row&)> MeasureWakeUps(const WakeUp& kind, const Placing& placing) {
  return [kind, placing](Row& row) {
    FanOut fan_out(placing.watchers, placing.watcher_cpu, kind);
    std::vector<double> samples;
    for (int i = 0; i < Samples(placing.count); ++i) {
      samples.push_back(fan_out.Once());
      fan_out.Settle();
    }
    AddSamples(row, samples);
  };
}

void RunFanOut(const World& world, const std::string& title, const Placing& placing) {
  if (placing.writer_cpu != FanOut::kAnyProcessor) PinTo(placing.writer_cpu);
  const WakeUp inotify = InotifyWakeUp(world.directory + "/wake");
  std::vector<Row> rows = {
      {"bare inotify wake-up", MeasureWakeUps(inotify, placing), Kind::kLimit},
      {"bare futex wake-up", MeasureWakeUps(FutexWakeUp(), placing), Kind::kLimit},
      {"vconf, set to callback", MeasureWakeUps(VconfWakeUp(), placing)}};
  if (placing.watchers == 1) {
    rows.push_back({"kavrel_set to its callback", MeasureWakeUps(KavrelWakeUp(), placing)});
  }
  for (const StoreKind& kind : world.stores) {
    Placing fewer = placing;
    if (kind.threads) fewer.count /= 5;
    rows.push_back(StoreRow(kind, MeasureWakeUps(StoreWakeUp(kind), fewer)));
    if (placing.watchers > kind.most_followers) {
      rows.back().missing = "with so many processes it takes too long";
    }
  }
  RunLatencyTable(title, std::move(rows), kRounds);
}

void BenchCallback(const World& world) {
  RunFanOut(world, "set to callback in another process, one core", {1, 300, 0, 0});
  const KeptAwake awake(2);
  RunFanOut(world, "set to callback in another process, two cores kept awake", {1, 300, 0, 1});
}

void RunOnAllCores() {
  cpu_set_t all;
  CPU_ZERO(&all);
  for (unsigned cpu = 0; cpu < static_cast<unsigned>(sysconf(_SC_NPROCESSORS_ONLN)); ++cpu) {
    CPU_SET(cpu, &all);
  }
  sched_setaffinity(0, sizeof all, &all);
}

void BenchFanOut(const World& world) {
  RunOnAllCores();
  RunFanOut(world, "set to the last callback of 10, all cores", {10, 100});
  RunFanOut(world, "set to the last callback of 100, all cores", {100, 25});
  RunFanOut(world, "set to the last callback of 10, one core", {10, 100, 0, 0});
  RunFanOut(world, "set to the last callback of 100, one core", {100, 25, 0, 0});
  RunOnAllCores();
}

// --- Writes

void BenchSet(const World& world) {
  const int sets = Samples(20'000);
  BareLmdb bare(world.directory + "/set.mdb", MDB_NOSYNC);
  BareLmdb mapped(world.directory + "/mapped.mdb", MDB_NOSYNC | MDB_WRITEMAP);
  FanOut inotify(1, 1, InotifyWakeUp(world.directory + "/wake"));
  const auto wake = [&](Row& row) {
    std::vector<double> samples;
    for (int i = 0; i < Samples(300); ++i) {
      double waking = 0;
      inotify.Once(&waking);
      samples.push_back(waking);
      inotify.Settle();
    }
    AddSamples(row, samples);
  };
  const auto calls = [sets](const std::function<void(int)>& call) {
    return [sets, call](Row& row) { TimeCalls(row, sets, call); };
  };
  std::vector<Row> rows = {
      {"bare LMDB without sync", calls([&](int i) { bare.Set(kKey, i); }), Kind::kLimit},
      {"bare LMDB without sync, writable map", calls([&](int i) { mapped.Set(kKey, i); }),
       Kind::kLimit},
      {"bare inotify: waking one sleeper", wake, Kind::kLimit},
      {"vconf_set_int, nobody watches", calls([&](int i) { vconf_set_int(kKey, i); })},
      {"kavrel_set_pip_focus, nobody watches", calls([&](int i) { kavrel_set_pip_focus(i); })}};
  AddStoreRows(rows, world.stores, 1000, [](Store& store, int i) { store.Tell(i); });
  RunLatencyTable("volatile set of an int", std::move(rows), kRounds);
}

void BenchDurable(const World& world) {
  const int sets = Samples(60);
  BareLmdb bare(world.disk + "/durable.mdb", 0);
  const auto calls = [sets](const std::function<void(int)>& call) {
    return [sets, call](Row& row) { TimeEachCall(row, sets, call); };
  };
  std::vector<Row> rows = {
      {"bare LMDB, synced", calls([&](int i) { bare.Set(kKey, i); }), Kind::kLimit},
      {"vconf_set_int", calls([&](int i) { vconf_set_int(kDurableKey, i); })}};
  AddStoreRows(rows, world.durable, 60, [](Store& store, int i) { store.Set(i); });
  RunLatencyTable("durable set of an int", std::move(rows), kRounds);
}

/// One set at a time, so many microseconds apart.
std::function<void(Row&)> SetAtIntervals(std::chrono::microseconds interval, int count) {
  return [interval, count](Row& row) {
    std::vector<double> samples;
    auto next = Clock::now();
    for (int i = 0; i < Samples(count); ++i) {
      next += interval;
      while (Clock::now() < next) {
      }
      const auto start = Clock::now();
      vconf_set_int(kKey, i);
      samples.push_back(MicrosecondsSince(start));
    }
    AddSamples(row, samples);
  };
}

void SetAtFullSpeed(Row& row) {
  TimeCalls(row, Samples(20'000), [](int i) { vconf_set_int(kKey, i); });
}

/// What watchers cost a writer: the time of one set, as fast as it can and at stated rates.
void BenchBurst(const World& /*world*/) {
  for (const int watchers : {0, 1, 10, 100}) {
    FanOut fan_out(watchers, FanOut::kAnyProcessor, VconfWakeUp());
    RunLatencyTable("volatile set, " + std::to_string(watchers) + " watching processes",
                    {{"at full speed", SetAtFullSpeed},
                     {"10,000 a second", SetAtIntervals(std::chrono::microseconds(100), 1000)},
                     {"1,000 a second", SetAtIntervals(std::chrono::microseconds(1000), 200)},
                     {"100 a second", SetAtIntervals(std::chrono::microseconds(10000), 15)}},
                    kRounds);
  }
}

/// What one more watching process costs a writer, and how much of it a bare wake-up costs too.
void BenchGrowth(const World& world) {
  for (const int watchers : {1, 10, 100, 1000}) {
    const auto sized = [watchers](Row row) {
      row.size = watchers;
      return row;
    };
    const WakeUp futex = FutexWakeUp();
    FanOut sleepers(watchers, FanOut::kAnyProcessor, futex);
    FanOut fan_out(watchers, FanOut::kAnyProcessor, VconfWakeUp());
    const auto wake = [&futex](Row& row) {
      std::vector<double> samples;
      for (int i = 0; i < Samples(200); ++i) {
        const auto start = Clock::now();
        futex.wake();
        samples.push_back(MicrosecondsSince(start));
        usleep(1000);
      }
      AddSamples(row, samples);
    };
    std::vector<Row> rows = {sized({"bare futex: waking all sleepers", wake, Kind::kLimit}),
                             sized({"vconf_set_int, at full speed", SetAtFullSpeed}),
                             sized({"vconf_set_int, 1,000 a second",
                                    SetAtIntervals(std::chrono::microseconds(1000), 200)})};
    const StoreKind& redis = world.stores.front();
    std::optional<FanOut> followers;
    if (redis.missing.empty()) {
      followers.emplace(watchers, FanOut::kAnyProcessor, StoreWakeUp(redis));
    }
    AddStoreRows(rows, {redis}, 50, [](Store& store, int i) { store.Tell(i); });
    rows.back().size = watchers;
    RunLatencyTable("Growth: a volatile set with so many watching processes", std::move(rows),
                    kRounds);
  }
}

/// A directory in memory, which is where runtime directories are.
class DirectoryInMemory {
 public:
  const std::string& path() const { return directory_.path(); }

 private:
  static std::optional<std::string> Base() {
    const char* const usual = std::getenv("TMPDIR");
    if (access("/dev/shm", W_OK) == 0) return "/dev/shm";
    return usual != nullptr ? std::optional<std::string>(usual) : std::nullopt;
  }

  const kavrel_test::ScopedEnvironment base_{"TMPDIR", Base()};
  const kavrel_test::TemporaryDirectory directory_;
};

/// Runs a part on stores of its own, in a process of its own: one that has many watchers leaves
/// its store with more free pages than another one should have to sort.
bool RunApart(void (*run)(const World&)) {
  const pid_t part = fork();
  if (part == 0) {
    int result = 1;
    try {
      const kavrel_test::TemporaryDirectory disk;
      const DirectoryInMemory memory;
      setenv("KAVREL_RUNTIME_DIR", (memory.path() + "/run").c_str(), 1);
      setenv("KAVREL_STATE_DIR", disk.Path("state").c_str(), 1);
      const StoreKind settings = kavrel_bench::GSettingsStore(disk.path());
      run({memory.path(),
           disk.path(),
           {kavrel_bench::RedisStore(memory.path(), false),
            kavrel_bench::SqliteStore(memory.path(), false), settings},
           {kavrel_bench::RedisStore(disk.path(), true),
            kavrel_bench::SqliteStore(disk.path(), true), settings}});
      result = 0;
    } catch (const std::exception& error) {
      (void)std::fprintf(stderr, "vconf_bench: %s\n", error.what());
    }
    (void)std::fflush(stdout);
    _exit(result);
  }
  int status = 0;
  return waitpid(part, &status, 0) == part && status == 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view only = argc > 1 ? argv[1] : "";
  const std::pair<std::string_view, void (*)(const World&)> parts[] = {
      {"get", BenchGet},      {"set", BenchSet},        {"durable", BenchDurable},
      {"burst", BenchBurst},  {"fan-out", BenchFanOut}, {"callback", BenchCallback},
      {"growth", BenchGrowth}};
  bool all = true;
  for (const auto& [name, run] : parts) {
    if (only.empty() || only == name) all = RunApart(run) && all;
  }
  return all ? 0 : 1;
}
