// The state store beside what it is made of: bare LMDB in the same process, a bare inotify wake-up
// and a bare futex wake-up between processes.
//
//   vconf_bench [get|set|durable|callback|fan-out|burst]   all without an argument
#include <fcntl.h>
#include <glib.h>
#include <linux/futex.h>
#include <lmdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <vconf.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string_view>

#include "measure.h"
#include "table.h"
#include "temporary_directory.h"

using kavrel_bench::AddSamples;
using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::PinTo;
using kavrel_bench::Row;
using kavrel_bench::RunLatencyTable;

namespace {

constexpr int kRounds = 7;
constexpr char kKey[] = "memory/kavrel/pip_focus";
constexpr char kDurableKey[] = "db/kavrel/serdes_error";

// --- Bare LMDB, with as many keys as a viewer has and records as large as vconf's

class BareLmdb {
 public:
  BareLmdb(const std::string& path, unsigned flags) {
    Check(mdb_env_create(&environment_));
    Check(mdb_env_set_mapsize(environment_, std::size_t{64} << 20));
    Check(mdb_env_open(environment_, path.c_str(), MDB_NOSUBDIR | MDB_NOTLS | flags, 0600));
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment_, nullptr, 0, &transaction));
    Check(mdb_dbi_open(transaction, nullptr, 0, &database_));
    Check(mdb_txn_commit(transaction));
    for (int number = 0; number < 20; ++number)
      Set("memory/kavrel/key" + std::to_string(number), 0);
    Set(kKey, 1);
    Check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_));
    mdb_txn_reset(reader_);
  }
  BareLmdb(const BareLmdb&) = delete;
  BareLmdb& operator=(const BareLmdb&) = delete;
  ~BareLmdb() {
    mdb_txn_abort(reader_);
    mdb_env_close(environment_);
  }

  void Set(std::string_view key, int value) {
    std::array<char, 28> record{};
    std::memcpy(record.data() + 24, &value, sizeof value);
    MDB_val lmdb_key{key.size(), const_cast<char*>(key.data())};
    MDB_val lmdb_value{record.size(), record.data()};
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment_, nullptr, 0, &transaction));
    Check(mdb_put(transaction, database_, &lmdb_key, &lmdb_value, 0));
    Check(mdb_txn_commit(transaction));
  }

  int Get(std::string_view key) {
    Check(mdb_txn_renew(reader_));
    const int value = Find(reader_, key);
    mdb_txn_reset(reader_);
    return value;
  }

  int GetInNewTransaction(std::string_view key) {
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction));
    const int value = Find(transaction, key);
    mdb_txn_abort(transaction);
    return value;
  }

 private:
  static void Check(int result) {
    if (result == 0) return;
    std::fprintf(stderr, "LMDB: %s\n", mdb_strerror(result));
    std::exit(1);
  }

  int Find(MDB_txn* transaction, std::string_view key) {
    MDB_val lmdb_key{key.size(), const_cast<char*>(key.data())};
    MDB_val lmdb_value{};
    Check(mdb_get(transaction, database_, &lmdb_key, &lmdb_value));
    int value = 0;
    std::memcpy(&value, static_cast<const char*>(lmdb_value.mv_data) + 24, sizeof value);
    return value;
  }

  MDB_env* environment_ = nullptr;
  MDB_dbi database_ = 0;
  MDB_txn* reader_ = nullptr;
};

void Require(int result, const char* what) {
  if (result == 0) return;
  std::fprintf(stderr, "%s: %d\n", what, result);
  std::exit(1);
}

/// One value a round: the time of one of `count` calls.
void TimeCalls(Row& row, int count, const std::function<void(int)>& call) {
  const auto start = Clock::now();
  for (int i = 0; i < count; ++i) call(i);
  const double each = MicrosecondsSince(start) / count;
  row.p50.push_back(each);
  row.p99.push_back(each);
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

void BenchGet(const std::string& directory) {
  constexpr int kReads = 1'000'000;
  BareLmdb bare(directory + "/get.mdb", MDB_NOSYNC);
  Require(vconf_set_int(kKey, 1), "vconf_set_int");
  OtherWriter writer;
  std::vector<std::string> keys;
  for (int number = 0; number < OtherWriter::kKeys; ++number) {
    keys.push_back(OtherWriter::KeyOf(number));
  }
  const auto changed = [&](Row& row) {
    writer.ChangeAll();
    TimeCalls(row, OtherWriter::kKeys,
              [&](int i) { vconf_get_int(keys[static_cast<std::size_t>(i)].c_str(), &keep); });
  };
  RunLatencyTable(
      "get of an int",
      {{"bare LMDB, transaction renewed",
        [&](Row& row) { TimeCalls(row, kReads, [&](int) { keep = bare.Get(kKey); }); }},
       {"bare LMDB, new transaction",
        [&](Row& row) {
          TimeCalls(row, kReads, [&](int) { keep = bare.GetInNewTransaction(kKey); });
        }},
       {"vconf_get_int, unchanged key",
        [&](Row& row) { TimeCalls(row, kReads, [&](int) { vconf_get_int(kKey, &keep); }); }},
       {"vconf_get_int, changed by another process", changed}},
      kRounds);
}

// --- Wake-ups between processes

/// What the processes of one measurement share.
struct Shared {
  std::atomic<Clock::rep> start;
  std::atomic<Clock::rep> last;
  std::atomic<int> called;
  std::atomic<int> ready;
  std::atomic<int> word;
};

Shared* MakeShared() {
  void* memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return new (memory) Shared();
}

Clock::rep Now() {
  return Clock::now().time_since_epoch().count();
}

/// Some watching processes and one that wakes them. A kind of wake-up is a function that waits for
/// ever and calls `called` each time, and one that wakes everybody.
class FanOut {
 public:
  using WaitFunction = std::function<void(const std::function<void()>& called)>;

  FanOut(int watchers, int cpu, WaitFunction wait, std::function<void()> wake)
      : watchers_(watchers), done_(eventfd(0, 0)), shared_(MakeShared()), wake_(std::move(wake)) {
    for (int i = 0; i < watchers; ++i) {
      children_.push_back(std::make_unique<Child>([&, cpu] {
        if (cpu >= 0) PinTo(cpu);
        ++shared_->ready;
        wait([this] { Called(); });
      }));
    }
    while (shared_->ready < watchers) usleep(1000);
    usleep(200'000);  // until all of them sleep
  }
  FanOut(const FanOut&) = delete;
  FanOut& operator=(const FanOut&) = delete;

  /// Microseconds from the wake-up's begin to the last watcher; `waking` to its return.
  double Once(double* waking = nullptr) {
    shared_->called = 0;
    const Clock::rep start = Now();
    wake_();
    const Clock::rep returned = Now();
    eventfd_t count = 0;
    eventfd_read(done_, &count);
    if (waking != nullptr) *waking = static_cast<double>(returned - start) / 1000;
    return static_cast<double>(shared_->last - start) / 1000;
  }

  /// Waits until every watcher has slept again after the last round.
  void Settle() const { usleep(static_cast<unsigned>(watchers_) * 20); }

 private:
  void Called() {
    const Clock::rep now = Now();
    if (++shared_->called != watchers_) return;
    shared_->last = now;
    eventfd_write(done_, 1);
  }

  const int watchers_;
  const int done_;
  Shared* const shared_;
  const std::function<void()> wake_;
  std::vector<std::unique_ptr<Child>> children_;
};

void WaitForVconf(const std::function<void()>& called) {
  const auto callback = [](keynode_t*, void* user_data) {
    (*static_cast<const std::function<void()>*>(user_data))();
  };
  Require(vconf_notify_key_changed(kKey, callback, const_cast<std::function<void()>*>(&called)),
          "vconf_notify_key_changed");
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(loop);
}

void WakeVconf() {
  static int value;
  vconf_set_int(kKey, ++value);
}

FanOut::WaitFunction WaitForInotify(const std::string& path) {
  return [path](const std::function<void()>& called) {
    const int watch = inotify_init1(IN_NONBLOCK);
    inotify_add_watch(watch, path.c_str(), IN_MODIFY);
    std::array<char, 4096> events;
    for (;;) {
      pollfd waiting{watch, POLLIN, 0};
      poll(&waiting, 1, -1);
      if (read(watch, events.data(), events.size()) > 0) called();
    }
  };
}

std::function<void()> WakeInotify(const std::string& path) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT, 0600);
  return [file] { keep = static_cast<int>(pwrite(file, "!", 1, 0)); };
}

std::atomic<int>* futex_word;

void WaitForFutex(const std::function<void()>& called) {
  for (int seen = *futex_word;;) {
    syscall(SYS_futex, futex_word, FUTEX_WAIT, seen, nullptr, nullptr, 0);
    if (*futex_word == seen) continue;
    seen = *futex_word;
    called();
  }
}

void WakeFutex() {
  ++*futex_word;
  syscall(SYS_futex, futex_word, FUTEX_WAKE, 1 << 20, nullptr, nullptr, 0);
}

// The watchers of one kind live for one round: together, those of all kinds would want more inotify
// instances than a user has.
struct WakeUp {
  const char* name;
  FanOut::WaitFunction wait;
  std::function<void()> wake;
};

void RunFanOut(const char* title, const std::string& directory, int watchers, int count,
               int writer_cpu, int watcher_cpu) {
  const std::string path = directory + "/wake";
  if (writer_cpu >= 0) PinTo(writer_cpu);
  const WakeUp kinds[] = {{"bare inotify wake-up", WaitForInotify(path), WakeInotify(path)},
                          {"bare futex wake-up", WaitForFutex, WakeFutex},
                          {"vconf, set to callback", WaitForVconf, WakeVconf}};
  std::vector<Row> rows;
  for (const WakeUp& kind : kinds) {
    const auto measure = [&kind, watchers, watcher_cpu, count](Row& row) {
      FanOut fan_out(watchers, watcher_cpu, kind.wait, kind.wake);
      std::vector<double> samples;
      for (int i = 0; i < count; ++i) {
        samples.push_back(fan_out.Once());
        fan_out.Settle();
      }
      AddSamples(row, samples);
    };
    rows.push_back({kind.name, measure});
  }
  RunLatencyTable(title, std::move(rows), kRounds);
}

void BenchCallback(const std::string& directory) {
  RunFanOut("set to callback in another process, one core", directory, 1, 500, 0, 0);
  RunFanOut("set to callback in another process, two cores", directory, 1, 500, 0, 1);
}

void BenchFanOut(const std::string& directory) {
  cpu_set_t all;
  CPU_ZERO(&all);
  for (unsigned cpu = 0; cpu < static_cast<unsigned>(sysconf(_SC_NPROCESSORS_ONLN)); ++cpu) {
    CPU_SET(cpu, &all);
  }
  sched_setaffinity(0, sizeof all, &all);
  for (const int watchers : {1, 10, 100}) {
    const std::string title = "set to the last callback of " + std::to_string(watchers);
    RunFanOut((title + ", all cores").c_str(), directory, watchers, 50, -1, -1);
  }
  RunFanOut("set to the last callback of 100, one core", directory, 100, 50, 0, 0);
}

// --- Writes

void BenchSet(const std::string& directory) {
  constexpr int kSets = 20'000;
  BareLmdb bare(directory + "/set.mdb", MDB_NOSYNC);
  BareLmdb mapped(directory + "/mapped.mdb", MDB_NOSYNC | MDB_WRITEMAP);
  const std::string path = directory + "/wake";
  FanOut inotify(1, 1, WaitForInotify(path), WakeInotify(path));
  const auto wake = [&](Row& row) {
    std::vector<double> samples;
    for (int i = 0; i < 500; ++i) {
      double waking = 0;
      inotify.Once(&waking);
      samples.push_back(waking);
      inotify.Settle();
    }
    AddSamples(row, samples);
  };
  RunLatencyTable(
      "volatile set of an int",
      {{"bare LMDB without sync",
        [&](Row& row) { TimeCalls(row, kSets, [&](int i) { bare.Set(kKey, i); }); }},
       {"bare LMDB without sync, writable map",
        [&](Row& row) { TimeCalls(row, kSets, [&](int i) { mapped.Set(kKey, i); }); }},
       {"bare inotify: waking one sleeper", wake},
       {"vconf_set_int, nobody watches",
        [&](Row& row) { TimeCalls(row, kSets, [&](int i) { vconf_set_int(kKey, i); }); }}},
      kRounds);
}

void BenchDurable(const std::string& directory) {
  constexpr int kSets = 100;
  BareLmdb bare(directory + "/durable.mdb", 0);
  RunLatencyTable("durable set of an int",
                  {{"bare LMDB, synced",
                    [&](Row& row) { TimeEachCall(row, kSets, [&](int i) { bare.Set(kKey, i); }); }},
                   {"vconf_set_int",
                    [&](Row& row) {
                      TimeEachCall(row, kSets, [&](int i) { vconf_set_int(kDurableKey, i); });
                    }}},
                  kRounds);
}

/// What watchers cost a writer: the time of one set, as fast as it can and at stated rates.
void BenchBurst(const std::string&) {
  const auto at_full_speed = [](Row& row) {
    TimeCalls(row, 20'000, [](int i) { vconf_set_int(kKey, i); });
  };
  const auto at_interval = [](std::chrono::microseconds interval, int count) {
    return [interval, count](Row& row) {
      std::vector<double> samples;
      auto next = Clock::now();
      for (int i = 0; i < count; ++i) {
        next += interval;
        while (Clock::now() < next) {
        }
        const auto start = Clock::now();
        vconf_set_int(kKey, i);
        samples.push_back(MicrosecondsSince(start));
      }
      AddSamples(row, samples);
    };
  };
  for (const int watchers : {0, 1, 10, 100}) {
    FanOut fan_out(watchers, -1, WaitForVconf, WakeVconf);
    const std::string title = "volatile set, " + std::to_string(watchers) + " watching processes";
    RunLatencyTable(title.c_str(),
                    {{"at full speed", at_full_speed},
                     {"10,000 a second", at_interval(std::chrono::microseconds(100), 5000)},
                     {"1,000 a second", at_interval(std::chrono::microseconds(1000), 500)},
                     {"100 a second", at_interval(std::chrono::microseconds(10000), 50)}},
                    kRounds);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const kavrel_test::TemporaryDirectory directory;
  setenv("KAVREL_RUNTIME_DIR", directory.Path("run").c_str(), 1);
  setenv("KAVREL_STATE_DIR", directory.Path("state").c_str(), 1);
  futex_word = &MakeShared()->word;
  const std::string_view only = argc > 1 ? argv[1] : "";
  const auto wanted = [only](std::string_view name) { return only.empty() || only == name; };
  if (wanted("get")) BenchGet(directory.path());
  if (wanted("set")) BenchSet(directory.path());
  if (wanted("durable")) BenchDurable(directory.path());
  if (wanted("burst")) BenchBurst(directory.path());
  if (wanted("fan-out")) BenchFanOut(directory.path());
  if (wanted("callback")) BenchCallback(directory.path());
}
