// Several processes that write: killed at any moment, all at once, stopped.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <random>
#include <string>
#include <vconf-ext.h>

#include "forked.h"
#include "loop.h"
#include "test_directories.h"

namespace {

using kavrel_test::Loop;
using kavrel_vconf_test::Forked;
using kavrel_vconf_test::Repetitions;
using kavrel_vconf_test::Shared;

// A text that tells its number and is easily seen to be whole: the number, then as many equal
// letters as the number says, up to some 12 KB, which takes several pages.
std::string TextOf(int number) {
  const auto length = static_cast<std::size_t>(number * 37 % 12000);
  return std::to_string(number) + ':' + std::string(length, static_cast<char>('a' + number % 26)) +
         '.';
}

int NumberOf(const char* key) {
  char* text = vconf_get_str(key);
  if (text == nullptr) return errno == ENOENT ? 0 : -1;
  const int number = std::stoi(text);
  const bool whole = TextOf(number) == text;
  std::free(text);
  return whole ? number : -2;
}

struct Progress {
  std::atomic<int> begun = 0;
  std::atomic<int> done = 0;
};

// Sets growing numbers until killed.
int WriteForEver(const char* key, Progress* progress) {
  for (;;) {
    const int number = progress->done + 1;
    progress->begun = number;
    if (vconf_set_str(key, TextOf(number).c_str()) != 0) return 1;
    progress->done = number;
  }
}

struct Seen {
  int number = 0;
};

void Note(keynode_t* node, void* user_data) {
  static_cast<Seen*>(user_data)->number = std::stoi(vconf_keynode_get_str(node));
}

class Writers : public testing::TestWithParam<std::string> {
 protected:
  std::string Key(const std::string& name) const { return GetParam() + "/kavrel_test/" + name; }
};

// Each time a writer is killed the key holds what it last set or what it was just setting, and a
// watcher ends with what the key holds, although nobody writes any more.
TEST_P(Writers, KilledAtAnyMomentLeaveAWholeValueAndWakeWatchers) {
  const std::string key = Key("killed");
  const int kills = Repetitions(GetParam() == "db" ? 40 : 200, 1000);
  std::mt19937 random(20240611);
  Loop loop;
  Seen seen;
  ASSERT_EQ(vconf_notify_key_changed(key.c_str(), Note, &seen), 0);
  Shared<Progress> progress;
  for (int kill = 0; kill < kills; ++kill) {
    Forked writer([&] { return WriteForEver(key.c_str(), &*progress); });
    const int enough = progress->done + static_cast<int>(random() % 20);
    while (progress->done < enough) ::sched_yield();
    for (unsigned wait = random() % 4096; wait > 0; --wait) progress->begun.load();
    writer.Kill();

    const int number = NumberOf(key.c_str());
    ASSERT_GE(number, progress->done) << "an acknowledged value is gone after kill " << kill;
    ASSERT_LE(number, progress->begun);
    progress->done = number;
    ASSERT_TRUE(loop.RunUntil([&] { return seen.number == number; }))
        << "watcher stays at " << seen.number << " instead of " << number;
  }
  EXPECT_EQ(vconf_ignore_key_changed(key.c_str(), Note), 0);
}

// Stopped, with the lock or without, it hides no value from readers; when it goes on, so do its
// sets.
TEST_P(Writers, StoppedAtAnyMomentLeaveReadersWholeValuesAndGoOn) {
  const std::string key = Key("stopped");
  const int stops = Repetitions(GetParam() == "db" ? 20 : 50, 1000);
  std::mt19937 random(20240611);
  Shared<Progress> progress;
  const Forked writer([&] { return WriteForEver(key.c_str(), &*progress); });
  for (int stop = 0; stop < stops; ++stop) {
    const int enough = progress->done + 1 + static_cast<int>(random() % 5);
    while (progress->done < enough) ::sched_yield();
    for (unsigned wait = random() % 4096; wait > 0; --wait) progress->begun.load();
    writer.Stop();
    const int number = NumberOf(key.c_str());
    ASSERT_GE(number, progress->done) << "an acknowledged value is gone in stop " << stop;
    ASSERT_LE(number, progress->begun);
    writer.Continue();
  }
}

TEST_P(Writers, FourAtOnceNeverTearATextNorLoseOne) {
  const std::string key = Key("four");
  const int texts = Repetitions(GetParam() == "db" ? 25 : 500, 5000);
  Shared<std::atomic<int>> running;
  *running = 4;
  const auto write = [&](int writer) {
    const std::string own = key + std::to_string(writer);
    for (int number = 1; number <= texts; ++number) {
      const std::string text = TextOf(number * 4 + writer);
      if (vconf_set_str(key.c_str(), text.c_str()) != 0) return 1;
      if (vconf_set_str(own.c_str(), text.c_str()) != 0) return 1;
      if (NumberOf(own.c_str()) != number * 4 + writer) return 2;
    }
    return 0;
  };
  const auto run = [&](int writer) {
    const int result = write(writer);
    --*running;
    return result;
  };
  Forked a([&] { return run(0); });
  Forked b([&] { return run(1); });
  Forked c([&] { return run(2); });
  Forked d([&] { return run(3); });
  while (*running > 0) {
    ASSERT_GE(NumberOf(key.c_str()), 0);
  }
  for (Forked* writer : {&a, &b, &c, &d}) EXPECT_EQ(writer->Wait(), 0);
  for (int writer = 0; writer < 4; ++writer) {
    EXPECT_EQ(NumberOf((key + std::to_string(writer)).c_str()), texts * 4 + writer);
  }
}

// A writer that sets one value a step of the processor's at a time, as far as the test lets it.
class SteppedWriter {
 public:
  SteppedWriter(const std::string& key, int number)
      : writer_([&] {
          if (vconf_set_int((key + "_other").c_str(), number) != 0) return 1;  // opens the store
          if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return 1;
          ::raise(SIGSTOP);
          return vconf_set_str(key.c_str(), TextOf(number).c_str()) == 0 ? 0 : 2;
        }) {
    has_ended_ = !writer_.WaitUntilStopped();
  }

  // To the next time that it enters or leaves the kernel; false when it has ended instead.
  bool ToTheNextSystemCall() { return Step(PTRACE_SYSCALL); }
  bool ByOneInstruction() { return Step(PTRACE_SINGLESTEP); }
  void Kill() { writer_.Kill(); }

 private:
  bool Step(decltype(PTRACE_SYSCALL) how) {
    if (has_ended_ || ::ptrace(how, writer_.pid(), nullptr, nullptr) != 0) return false;
    has_ended_ = !writer_.WaitUntilStopped();
    return !has_ended_;
  }

  Forked writer_;
  bool has_ended_ = false;
};

// What a writer that was killed leaves: what was there, or what it was about to set; and the next
// one goes on at once. What was told to the watcher last is what is there.
class WritersKilledInASet : public Writers {
 protected:
  void SetUp() override {
    ASSERT_EQ(vconf_set_str(key_.c_str(), TextOf(number_).c_str()), 0);
    ASSERT_EQ(vconf_notify_key_changed(key_.c_str(), Note, &seen_), 0);
  }
  void TearDown() override { EXPECT_EQ(vconf_ignore_key_changed(key_.c_str(), Note), 0); }

  void ExpectOldOrNew() {
    const int left = NumberOf(key_.c_str());
    ASSERT_TRUE(left == number_ || left == number_ + 1) << left << " instead of " << number_;
    if (left == number_ + 1) {
      ASSERT_TRUE(loop_.RunUntil([&] { return seen_.number == left; }));
    }
    number_ += 2;
    ASSERT_EQ(vconf_set_str(key_.c_str(), TextOf(number_).c_str()), 0);
    ASSERT_TRUE(loop_.RunUntil([&] { return seen_.number == number_; }));
  }

  const std::string key_ = Key("stepped");
  int number_ = 1;
  Loop loop_;
  Seen seen_;
};

TEST_P(WritersKilledInASet, AtEverySystemCall) {
  int calls = 0;
  for (bool has_ended = false; !has_ended; ++calls) {
    SCOPED_TRACE("killed after " + std::to_string(calls) + " entries and exits");
    SteppedWriter writer(key_, number_ + 1);
    for (int call = 0; call < calls && !has_ended; ++call) {
      has_ended = !writer.ToTheNextSystemCall();
    }
    writer.Kill();
    ExpectOldOrNew();
    if (HasFatalFailure()) return;
  }
  RecordProperty("calls", calls);
  EXPECT_GT(calls, 4) << "writing and waking";
}

TEST_P(WritersKilledInASet, BetweenAnyTwoInstructions) {
  constexpr unsigned kMostCalls = 24;
  constexpr unsigned kMostInstructions = 2000;
  std::mt19937 random(18);
  const int kills = Repetitions(20, 10000);
  for (int kill = 0; kill < kills; ++kill) {
    SCOPED_TRACE("kill " + std::to_string(kill));
    SteppedWriter writer(key_, number_ + 1);
    bool goes_on = true;
    for (auto call = random() % kMostCalls; call > 0 && goes_on; --call) {
      goes_on = writer.ToTheNextSystemCall();
    }
    for (auto step = random() % kMostInstructions; step > 0 && goes_on; --step) {
      goes_on = writer.ByOneInstruction();
    }
    writer.Kill();
    ExpectOldOrNew();
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Families, WritersKilledInASet, testing::Values("memory", "db"),
                         [](const auto& family) { return family.param; });

INSTANTIATE_TEST_SUITE_P(Families, Writers, testing::Values("memory", "db"),
                         [](const auto& family) { return family.param; });

}  // namespace
