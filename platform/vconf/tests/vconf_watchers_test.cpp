// Several processes that watch: many at once, stopped, killed, and racing with the writer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vconf.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vconf-ext.h>
#include <vector>

#include "fresh_store.h"
#include "lmdb_handles.h"
#include "loop.h"
#include "unique_fd.h"

namespace {

using kavrel_test::Loop;
using kavrel_vconf_test::Bell;
using kavrel_vconf_test::Forked;
using kavrel_vconf_test::FreshStoreTest;
using kavrel_vconf_test::Repetitions;
using kavrel_vconf_test::Shared;

constexpr char kKey[] = "memory/kavrel_test/watched";

int IntOf(const char* key) {
  int value = 0;
  const int error = vconf_get_int(key, &value);
  return error != 0 ? error : value;
}

// What a watching process lets the test know.
struct Report {
  Bell news;
  std::atomic<bool> watches = false;
  std::atomic<int> last = 0;
  std::atomic<int> calls = 0;
};

void Note(keynode_t* node, void* user_data) {
  auto* report = static_cast<Report*>(user_data);
  report->last = vconf_keynode_get_int(node);
  ++report->calls;
  report->news.Ring();
}

// Watches the key until killed.
int WatchForEver(Report* report) {
  Loop loop;
  if (vconf_notify_key_changed(kKey, Note, report) != 0) return 1;
  loop.RunReady();
  report->watches = true;
  report->news.Ring();
  for (;;) loop.RunUntil([] { return false; });
}

void AwaitWatching(Report& report) {
  report.news.AwaitUntil([&] { return report.watches.load(); });
}

void AwaitValue(Report& report, int value) {
  report.news.AwaitUntil([&] { return report.last == value; });
}

using Watchers = FreshStoreTest;

TEST_F(Watchers, AllOfACrowdEndWithTheLastValue) {
  constexpr int kWatchers = 30;
  Shared<std::array<Report, kWatchers>> reports;
  std::vector<std::unique_ptr<Forked>> watchers;
  for (Report& report : *reports) {
    watchers.push_back(std::make_unique<Forked>([&] { return WatchForEver(&report); }));
  }
  for (Report& report : *reports) AwaitWatching(report);
  const auto all_have = [&](int value) {
    for (Report& report : *reports) AwaitValue(report, value);
  };
  Run([&] {
    for (int value = 1; value <= 20; ++value) {  // one by one
      ASSERT_EQ(vconf_set_int(kKey, value), 0);
      all_have(value);
    }
    for (int value = 21; value <= 20000; ++value) {  // as fast as it goes
      ASSERT_EQ(vconf_set_int(kKey, value), 0);
    }
    all_have(20000);
  });
  // Set by a process that ends at once.
  Run([] { ASSERT_EQ(vconf_set_int(kKey, 20001), 0); });
  all_have(20001);
  for (const auto& watcher : watchers) watcher->Signal(SIGTERM);
}

TEST_F(Watchers, AStoppedOneCostsNothingAndEndsWithTheLastValue) {
  Shared<Report> report;
  Shared<Report> other;
  Forked stopped([&] { return WatchForEver(&*report); });
  Forked running([&] { return WatchForEver(&*other); });
  AwaitWatching(*report);
  AwaitWatching(*other);
  for (int round = 0; round < Repetitions(20, 1000); ++round) {
    stopped.Stop();
    const int last = (round + 1) * 1000;
    Run([&] {
      for (int value = last - 500; value <= last; ++value) {
        ASSERT_EQ(vconf_set_int(kKey, value), 0);
      }
    });
    AwaitValue(*other, last);
    EXPECT_NE(report->last, last);
    stopped.Continue();
    AwaitValue(*report, last);
  }
  // One that is stopped in the midst of reading keeps all that is set meanwhile, for that time.
  EXPECT_LT(std::filesystem::file_size(MemoryFile(".mdb")), 16u << 20);
}

// Writers leave bytes in the wake file, and anybody of the same user may put more into it.
TEST_F(Watchers, AreWokenAlsoWhenTheWakeFileIsFull) {
  Shared<Report> report;
  Forked watcher([&] { return WatchForEver(&*report); });
  AwaitWatching(*report);
  Run([&] {
    const kavrel_platform::UniqueFd file(
        open(MemoryFile(".wake").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    const std::vector<char> bytes(4096, '!');
    const auto set = [&](int value) {
      ASSERT_EQ(vconf_set_int(kKey, value), 0);
      AwaitValue(*report, value);
    };
    set(1);  // with its first change a writer empties the file whatever is in it
    while (write(file.get(), bytes.data(), bytes.size()) > 0) {
    }
    ASSERT_EQ(errno, EAGAIN);
    for (int value = 2; value <= 20; ++value) set(value);
  });
}

TEST_F(Watchers, AreWokenHoweverOftenOneWriterDoesIt) {
  Shared<Report> report;
  Forked watcher([&] { return WatchForEver(&*report); });
  AwaitWatching(*report);
  Run([&] {
    for (int value = 1; value <= 3000; ++value) {  // more than a writer leaves unread
      ASSERT_EQ(vconf_set_int(kKey, value), 0);
      AwaitValue(*report, value);
    }
  });
}

// Watchers killed at all moments, with changes on their way to them: no place in LMDB's table of
// readers stays taken, no file is left, the writer goes on.
TEST_F(Watchers, KilledOnesLeaveNothingBehind) {
  Run([] {
    ASSERT_EQ(vconf_set_int(kKey, 0), 0);
    std::mt19937 random(5);
    for (int round = 1; round <= Repetitions(150, 10000); ++round) {
      Shared<Report> report;
      Forked watcher([&] { return WatchForEver(&*report); });
      if (round % 3 != 0) AwaitWatching(*report);
      for (unsigned sets = random() % 8; sets > 0; --sets) {
        ASSERT_EQ(vconf_set_int(kKey, round), 0);
      }
      watcher.Kill();
      ASSERT_EQ(vconf_set_int(kKey, round), 0);
    }
  });
  Run([this] {
    EXPECT_GT(IntOf(kKey), 0);  // whoever opens the store clears the table
    int files = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(directory_.Path("run/vconf"))) {
      ++files;
    }
    EXPECT_EQ(files, 4);
  });
  Run([this] {
    std::unique_ptr<kavrel_vconf::Environment> environment;
    ASSERT_EQ(kavrel_vconf::Environment::Open(MemoryFile(".mdb"), MDB_NOSYNC, &environment), 0);
    int lines = 0;
    const auto count = [](const char* text, void* context) {
      for (; *text != '\0'; ++text) *static_cast<int*>(context) += *text == '\n' ? 1 : 0;
      return 0;
    };
    ASSERT_GE(mdb_reader_list(environment->handle(), count, &lines), 0);
    EXPECT_LE(lines, 2);
  });
  EXPECT_LT(std::filesystem::file_size(MemoryFile(".mdb")), 1u << 20);
}

// A change falls anywhere around "get, then register": the watcher knows the last value, from the
// one or from the other.
TEST_F(Watchers, GetThenRegisterMissesNothing) {
  Run([] {
    std::atomic<int> round = 0;
    std::atomic<int> done = 0;
    const int rounds = Repetitions(3000, 1000000);
    std::thread writer([&] {
      std::mt19937 random(23);
      for (int next = 1; next <= rounds; ++next) {
        while (round.load() < next) std::this_thread::yield();
        for (unsigned wait = random() % 2048; wait > 0; --wait) round.load();
        EXPECT_EQ(vconf_set_int(kKey, next), 0);
        done = next;
      }
    });
    Loop loop;
    for (int next = 1; next <= rounds; ++next) {
      Report report;
      round = next;
      const int got = IntOf(kKey);
      EXPECT_EQ(vconf_notify_key_changed(kKey, Note, &report), 0);
      while (done.load() < next) std::this_thread::yield();
      const bool knows = got == next || loop.RunUntil([&] { return report.last == next; });
      EXPECT_TRUE(knows) << "round " << next << ", got " << got << ", told " << report.last;
      EXPECT_EQ(vconf_ignore_key_changed(kKey, Note), 0);
      if (!knows) break;
    }
    round = rounds;
    writer.join();
  });
}

// The same between processes, and with what a watcher is told checked against what was written:
// values only grow, and never one that was not set.
TEST_F(Watchers, AreToldNothingButWhatWasSetInOrder) {
  Shared<std::atomic<int>> written;
  const int last = Repetitions(20000, 1000000);
  Forked writer(Checked([&] {
    for (int value = 1; value <= last; ++value) {
      written->store(value);
      ASSERT_EQ(vconf_set_int(kKey, value), 0);
    }
  }));
  Run([&] {
    struct Seen {
      std::atomic<int>* written;
      int last = 0;
    };
    Seen seen{&*written};
    const auto check = [](keynode_t* node, void* user_data) {
      auto* so_far = static_cast<Seen*>(user_data);
      const int value = vconf_keynode_get_int(node);
      EXPECT_GT(value, so_far->last);
      EXPECT_LE(value, so_far->written->load());
      so_far->last = value;
    };
    while (seen.last < last) {
      Loop loop;
      const int got = IntOf(kKey);
      ASSERT_EQ(vconf_notify_key_changed(kKey, check, &seen), 0);
      if (got == last) break;
      const int enough = seen.last;
      ASSERT_TRUE(loop.RunUntil([&] { return seen.last > enough; }));
      ASSERT_EQ(vconf_ignore_key_changed(kKey, check), 0);
    }
  });
  EXPECT_EQ(writer.Wait(), 0);
}

}  // namespace
