// Registrations and deliveries within one process.
#include <gtest/gtest.h>
#include <vconf.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vconf-ext.h>
#include <vector>

#include "loop.h"
#include "test_directories.h"

namespace {

using kavrel_test::Loop;

constexpr char kKey[] = "memory/kavrel_test/watched";
constexpr char kOther[] = "memory/kavrel_test/other";

struct Record {
  std::vector<int> integers;
  std::vector<std::uint64_t> revisions;
};

void Keep(keynode_t* node, void* user_data) {
  auto* record = static_cast<Record*>(user_data);
  record->integers.push_back(vconf_keynode_get_int(node));
  record->revisions.push_back(vconf_ext_keynode_get_revision(node));
}

void Count(keynode_t*, void* user_data) {
  ++*static_cast<int*>(user_data);
}

TEST(Watch, RefusesASecondRegistrationOfTheSamePair) {
  Loop loop;
  int first = 0;
  int second = 0;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Count, &first), 0);
  EXPECT_EQ(vconf_notify_key_changed(kKey, Count, &second), -EEXIST);
  EXPECT_EQ(vconf_notify_key_changed(kOther, Count, &second), 0);
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Count), 0);
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Count), -ENOENT);
  EXPECT_EQ(vconf_ignore_key_changed(kOther, Keep), -ENOENT);
  EXPECT_EQ(vconf_ignore_key_changed(kOther, Count), 0);
}

TEST(Watch, TellsRevisionsThatGrowAndMatchTheStore) {
  Loop loop;
  Record record;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Keep, &record), 0);
  for (int value = 1; value <= 5; ++value) {
    ASSERT_EQ(vconf_set_int(kKey, value), 0);
    ASSERT_TRUE(loop.RunUntil([&] { return static_cast<int>(record.integers.size()) == value; }));
    std::uint64_t revision = 0;
    ASSERT_EQ(vconf_ext_get_revision(kKey, &revision), 0);
    EXPECT_EQ(record.revisions.back(), revision);
    EXPECT_TRUE(value == 1 || revision > record.revisions[record.revisions.size() - 2]);
  }
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Keep), 0);
}

TEST(Watch, AnEqualValueIsAChangeToo) {
  Loop loop;
  Record record;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Keep, &record), 0);
  ASSERT_EQ(vconf_set_int(kKey, 4), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return record.integers.size() == 1; }));
  ASSERT_EQ(vconf_set_int(kKey, 4), 0);
  EXPECT_TRUE(loop.RunUntil([&] { return record.integers.size() == 2; }));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Keep), 0);
}

TEST(Watch, DeliversDoublesAndNothingOfOtherTypes) {
  Loop loop;
  double seen = 0;
  const auto keep = [](keynode_t* node, void* user_data) {
    EXPECT_EQ(vconf_keynode_get_type(node), VCONF_TYPE_DOUBLE);
    EXPECT_EQ(vconf_keynode_get_str(node), nullptr);
    EXPECT_EQ(vconf_keynode_get_int(node), 0);
    EXPECT_EQ(vconf_keynode_get_bool(node), 0);
    *static_cast<double*>(user_data) = vconf_keynode_get_dbl(node);
  };
  ASSERT_EQ(vconf_notify_key_changed(kKey, keep, &seen), 0);
  ASSERT_EQ(vconf_ext_set_dbl(kKey, 0.75), 0);
  EXPECT_TRUE(loop.RunUntil([&] { return seen == 0.75; }));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, keep), 0);
}

// A change between this thread's last look and the registration belongs to the watcher; one before
// the last look, or before any look, does not.
TEST(Watch, DeliversWhatChangedSinceTheLastLook) {
  Loop loop;
  Record record;
  int value = 0;
  ASSERT_EQ(vconf_set_int(kKey, 1), 0);
  ASSERT_EQ(vconf_get_int(kKey, &value), 0);
  std::thread([] { ASSERT_EQ(vconf_set_int(kKey, 2), 0); }).join();
  ASSERT_EQ(vconf_notify_key_changed(kKey, Keep, &record), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return !record.integers.empty(); }));
  EXPECT_EQ(record.integers, std::vector<int>{2});
  ASSERT_EQ(vconf_ignore_key_changed(kKey, Keep), 0);
  // The delivery was a look: registering again finds nothing new.
  ASSERT_EQ(vconf_notify_key_changed(kKey, Keep, &record), 0);
  loop.RunReady();
  EXPECT_EQ(record.integers.size(), 1u);
  ASSERT_EQ(vconf_ignore_key_changed(kKey, Keep), 0);
}

TEST(Watch, DeliversAKeyThatWasMissingAtTheLastLook) {
  static constexpr char kNew[] = "memory/kavrel_test/new";
  Loop loop;
  Record record;
  int value = 0;
  ASSERT_EQ(vconf_get_int(kNew, &value), -ENOENT);
  std::thread([] { ASSERT_EQ(vconf_set_int(kNew, 2), 0); }).join();
  ASSERT_EQ(vconf_notify_key_changed(kNew, Keep, &record), 0);
  EXPECT_TRUE(loop.RunUntil([&] { return !record.integers.empty(); }));
  ASSERT_EQ(vconf_ignore_key_changed(kNew, Keep), 0);
}

TEST(Watch, TellsNothingWhenAKeyIsRemovedButOfItsReturn) {
  Loop loop;
  Record record;
  int others = 0;
  ASSERT_EQ(vconf_set_int(kKey, 1), 0);
  ASSERT_EQ(vconf_notify_key_changed(kKey, Keep, &record), 0);
  ASSERT_EQ(vconf_notify_key_changed(kOther, Count, &others), 0);
  ASSERT_EQ(vconf_ext_unset(kKey), 0);
  ASSERT_EQ(vconf_set_int(kOther, 1), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return others == 1; }));
  EXPECT_TRUE(record.integers.empty());
  ASSERT_EQ(vconf_set_int(kKey, 1), 0);
  EXPECT_TRUE(loop.RunUntil([&] { return record.integers.size() == 1; }));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Keep), 0);
  EXPECT_EQ(vconf_ignore_key_changed(kOther, Count), 0);
}

TEST(Watch, DeliversOnTheContextOfTheRegisteringThread) {
  std::atomic<bool> registered = false;
  std::atomic<bool> called = false;
  struct Where {
    std::thread::id thread;
    std::atomic<bool>* called;
  } where{{}, &called};
  std::thread watcher([&] {
    Loop loop;
    const auto note = [](keynode_t*, void* user_data) {
      static_cast<Where*>(user_data)->thread = std::this_thread::get_id();
      static_cast<Where*>(user_data)->called->store(true);
    };
    ASSERT_EQ(vconf_notify_key_changed(kKey, note, &where), 0);
    registered = true;
    EXPECT_TRUE(loop.RunUntil([&] { return called.load(); }));
    EXPECT_EQ(where.thread, std::this_thread::get_id());
    EXPECT_EQ(vconf_ignore_key_changed(kKey, note), 0);
  });
  while (!registered) std::this_thread::yield();
  Loop loop;
  ASSERT_EQ(vconf_set_int(kKey, 3), 0);
  loop.RunReady();
  watcher.join();
}

TEST(Watch, AThreadCanEndAnothersRegistration) {
  Loop loop;
  int calls = 0;
  int others = 0;
  ASSERT_EQ(vconf_notify_key_changed(kKey, Count, &calls), 0);
  std::thread([&] {
    ASSERT_EQ(vconf_set_int(kKey, 1), 0);
    ASSERT_EQ(vconf_ignore_key_changed(kKey, Count), 0);
  }).join();
  ASSERT_EQ(vconf_notify_key_changed(kOther, Count, &others), 0);
  ASSERT_EQ(vconf_set_int(kOther, 1), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return others == 1; }));
  EXPECT_EQ(calls, 0);
  ASSERT_EQ(vconf_ignore_key_changed(kOther, Count), 0);
}

// A context that is gone must not be taken for a new one at its address.
TEST(Watch, SurvivesAContextThatEndsWithRegistrations) {
  for (int round = 0; round < 20; ++round) {
    const std::string key = "memory/kavrel_test/left" + std::to_string(round);
    static int calls;
    calls = 0;
    {
      Loop left;
      ASSERT_EQ(vconf_notify_key_changed(key.c_str(), Count, &calls), 0);
    }
    Loop loop;
    int others = 0;
    ASSERT_EQ(vconf_notify_key_changed(kOther, Count, &others), 0);
    ASSERT_EQ(vconf_set_int(key.c_str(), round), 0);
    ASSERT_EQ(vconf_set_int(kOther, round), 0);
    ASSERT_TRUE(loop.RunUntil([&] { return others == 1; }));
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(vconf_ignore_key_changed(kOther, Count), 0);
    ASSERT_EQ(vconf_ignore_key_changed(key.c_str(), Count), 0);
  }
}

TEST(Watch, AnExceptionInACallbackHarmsNobodyElse) {
  Loop loop;
  int calls = 0;
  const auto thrower = [](keynode_t*, void*) { throw 1; };
  ASSERT_EQ(vconf_notify_key_changed(kKey, thrower, nullptr), 0);
  ASSERT_EQ(vconf_notify_key_changed(kKey, Count, &calls), 0);
  ASSERT_EQ(vconf_set_int(kKey, 1), 0);
  EXPECT_TRUE(loop.RunUntil([&] { return calls == 1; }));
  EXPECT_EQ(vconf_ignore_key_changed(kKey, thrower), 0);
  EXPECT_EQ(vconf_ignore_key_changed(kKey, Count), 0);
}

// --- What callbacks do to the list that is being delivered
//
// Three callbacks, numbered by the user data's index; each may act once when it is called.

class Reentrancy : public testing::Test {
 protected:
  static inline Reentrancy* current_ = nullptr;
  static constexpr int kCallbacks = 4;  // the last one is not registered at first
  using Act = std::function<void()>;

  void SetUp() override {
    current_ = this;
    for (int index = 0; index < kCallbacks - 1; ++index) Register(index);
  }
  void TearDown() override {
    for (int index = 0; index < kCallbacks; ++index) Ignore(index);
  }

  template <int index>
  static void Callback(keynode_t* node, void*) {
    current_->Called(index, node);
  }
  static vconf_callback_fn CallbackOf(int index) {
    constexpr vconf_callback_fn callbacks[kCallbacks] = {Callback<0>, Callback<1>, Callback<2>,
                                                         Callback<3>};
    return callbacks[index];
  }

  static int Register(int index) {
    return vconf_notify_key_changed(kKey, CallbackOf(index), nullptr);
  }
  static int Ignore(int index) { return vconf_ignore_key_changed(kKey, CallbackOf(index)); }

  void Called(int index, keynode_t* node) {
    calls_[index].push_back(vconf_keynode_get_int(node));
    if (index != actor_ || acted_) return;
    acted_ = true;
    act_();
    EXPECT_EQ(std::string(vconf_keynode_get_name(node)), kKey);
  }

  // Sets the key to 1 with callback `actor` doing `act` when told, then to 2, which everybody still
  // registered is told of; returns who was called with 1.
  std::vector<int> Run(int actor, const Act& act) {
    actor_ = actor;
    act_ = act;
    EXPECT_EQ(vconf_set_int(kKey, 1), 0);
    EXPECT_TRUE(loop_.RunUntil([&] { return acted_; }));
    loop_.RunReady();
    std::vector<int> called;
    for (int index = 0; index < kCallbacks; ++index) {
      const auto& values = calls_[index];
      if (!values.empty() && values.front() == 1) called.push_back(index);
    }
    return called;
  }

  bool ToldOf(int index, int value) const {
    const auto found = calls_.find(index);
    if (found == calls_.end()) return false;
    return std::find(found->second.begin(), found->second.end(), value) != found->second.end();
  }

  Loop loop_;
  int actor_ = -1;
  bool acted_ = false;
  Act act_;
  std::map<int, std::vector<int>> calls_;
};

TEST_F(Reentrancy, EveryCallbackMayRemoveEveryOther) {
  for (int actor = 0; actor < 3; ++actor) {
    for (int victim = 0; victim < 3; ++victim) {
      SCOPED_TRACE(std::to_string(actor) + " removes " + std::to_string(victim));
      calls_.clear();
      acted_ = false;
      std::vector<int> expected = {0, 1, 2};
      if (victim > actor) expected.erase(expected.begin() + victim);
      EXPECT_EQ(Run(actor, [&] { EXPECT_EQ(Ignore(victim), 0); }), expected);
      ASSERT_EQ(vconf_set_int(kKey, 2), 0);
      const int survivor = victim == 0 ? 1 : 0;
      EXPECT_TRUE(loop_.RunUntil([&] { return ToldOf(survivor, 2); }));
      EXPECT_FALSE(ToldOf(victim, 2));
      // Back in the old order for the next pair.
      for (int index = 0; index < 3; ++index) Ignore(index);
      for (int index = 0; index < 3; ++index) ASSERT_EQ(Register(index), 0);
    }
  }
}

TEST_F(Reentrancy, ACallbackMayRemoveAll) {
  EXPECT_EQ(Run(0,
                [&] {
                  for (int index = 0; index < 3; ++index) EXPECT_EQ(Ignore(index), 0);
                }),
            std::vector<int>{0});
}

TEST_F(Reentrancy, AnAddedCallbackIsCalledFromTheNextChangeOn) {
  EXPECT_EQ(Run(1, [&] { EXPECT_EQ(Register(3), 0); }), (std::vector<int>{0, 1, 2}));
  ASSERT_EQ(vconf_set_int(kKey, 2), 0);
  EXPECT_TRUE(loop_.RunUntil([&] { return ToldOf(3, 2) && ToldOf(2, 2); }));
  EXPECT_FALSE(ToldOf(3, 1));
}

TEST_F(Reentrancy, ACallbackMayReplaceItselfEachTimeWithoutBeingCalledForEver) {
  EXPECT_EQ(Run(2,
                [&] {
                  EXPECT_EQ(Ignore(2), 0);
                  EXPECT_EQ(Register(2), 0);
                }),
            (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(calls_[2].size(), 1u);
}

TEST_F(Reentrancy, ACallbackMaySetTheSameKey) {
  Run(0, [&] { EXPECT_EQ(vconf_set_int(kKey, 5), 0); });
  EXPECT_TRUE(loop_.RunUntil([&] { return ToldOf(0, 5) && ToldOf(1, 5) && ToldOf(2, 5); }));
}

// Nothing is delivered in the callback's own loop, which comes to rest all the same: what happened
// meanwhile does not keep it busy.
TEST_F(Reentrancy, ACallbackMayRunItsContext) {
  bool is_inside = false;
  Run(0, [&] {
    is_inside = true;
    EXPECT_EQ(vconf_set_int(kKey, 7), 0);
    int third = 0;
    EXPECT_EQ(vconf_notify_key_changed("memory/kavrel_test/third", Count, &third), 0);
    EXPECT_EQ(vconf_set_int("memory/kavrel_test/third", 1), 0);
    loop_.RunReady();
    EXPECT_FALSE(ToldOf(0, 7) || ToldOf(1, 7) || ToldOf(2, 7));
    EXPECT_EQ(third, 0);
    EXPECT_EQ(vconf_ignore_key_changed("memory/kavrel_test/third", Count), 0);
  });
  EXPECT_TRUE(is_inside);
  EXPECT_TRUE(loop_.RunUntil([&] { return ToldOf(0, 7) && ToldOf(1, 7) && ToldOf(2, 7); }));
}

TEST_F(Reentrancy, ACallbackMaySetRemoveAndAddOtherKeys) {
  int others = 0;
  ASSERT_EQ(vconf_notify_key_changed(kOther, Count, &others), 0);
  Run(0, [&] {
    EXPECT_EQ(vconf_set_int(kOther, 6), 0);
    EXPECT_EQ(vconf_ignore_key_changed(kOther, Count), 0);
    EXPECT_EQ(vconf_notify_key_changed("memory/kavrel_test/third", Count, &others), 0);
    EXPECT_EQ(vconf_set_int("memory/kavrel_test/third", 6), 0);
  });
  EXPECT_TRUE(loop_.RunUntil([&] { return others == 1; }));
  EXPECT_EQ(vconf_ignore_key_changed("memory/kavrel_test/third", Count), 0);
}

// A callback that changes its key each time is called again and again, by the loop and not by
// itself: whatever else the context has to do gets its turn.
TEST_F(Reentrancy, ASelfChangingKeyStarvesNobody) {
  const auto repeat = [](keynode_t* node, void*) {
    vconf_set_int(kOther, vconf_keynode_get_int(node) + 1);
  };
  ASSERT_EQ(vconf_notify_key_changed(kOther, repeat, nullptr), 0);
  ASSERT_EQ(vconf_set_int(kOther, 0), 0);
  ASSERT_EQ(vconf_set_int(kKey, 9), 0);
  EXPECT_TRUE(loop_.RunUntil([&] { return ToldOf(2, 9); }));
  int value = 0;
  EXPECT_TRUE(loop_.RunUntil([&] { return vconf_get_int(kOther, &value) == 0 && value > 100; }));
  EXPECT_EQ(vconf_ignore_key_changed(kOther, repeat), 0);
}

// --- Threads

TEST(WatchThreads, ManyThreadsGetSetAndWatchAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 300;
  const auto run = [&](int number) {
    const std::string own = "memory/kavrel_test/thread" + std::to_string(number);
    Loop loop;
    Record record;
    ASSERT_EQ(vconf_notify_key_changed(own.c_str(), Keep, &record), 0);
    for (int round = 1; round <= kRounds; ++round) {
      int value = 0;
      ASSERT_EQ(vconf_set_int(kKey, round), 0);
      ASSERT_EQ(vconf_set_int(own.c_str(), round), 0);
      ASSERT_EQ(vconf_get_int(own.c_str(), &value), 0);
      ASSERT_EQ(value, round);
      ASSERT_EQ(vconf_get_int(kKey, &value), 0);
      loop.RunReady();
    }
    ASSERT_TRUE(loop.RunUntil(
        [&] { return !record.integers.empty() && record.integers.back() == kRounds; }));
    ASSERT_EQ(vconf_ignore_key_changed(own.c_str(), Keep), 0);
  };
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int number = 0; number < kThreads; ++number) threads.emplace_back(run, number);
  for (std::thread& thread : threads) thread.join();
}

TEST(WatchThreads, EndingARegistrationRacesWithItsDelivery) {
  std::atomic<bool> ends = false;
  std::atomic<int> calls = 0;
  const auto count = [](keynode_t*, void* user_data) {
    ++*static_cast<std::atomic<int>*>(user_data);
  };
  Loop loop;
  std::thread other([&] {
    int value = 0;
    while (!ends) {
      vconf_set_int(kKey, ++value);
      vconf_ignore_key_changed(kKey, count);
    }
  });
  for (int round = 0; round < 500; ++round) {
    const int result = vconf_notify_key_changed(kKey, count, &calls);
    EXPECT_TRUE(result == 0 || result == -EEXIST);
    loop.RunReady();
  }
  ends = true;
  other.join();
  vconf_ignore_key_changed(kKey, count);
}

}  // namespace
