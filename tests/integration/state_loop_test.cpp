// Callbacks on a real main loop over the real store, in one process: what a callback may do while
// changes keep coming, and what threads may.
#include <gtest/gtest.h>
#include <kavrel/state_api.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "loop.h"
#include "temporary_directory.h"

namespace kavrel_test {
namespace {

// The service looks for its directories once a process.
class Directories : public ::testing::Environment {
 public:
  void SetUp() override { settings_ = std::make_unique<Settings>(); }
  void TearDown() override { settings_.reset(); }

 private:
  struct Settings {
    TemporaryDirectory directory;
    ScopedEnvironment runtime{"KAVREL_RUNTIME_DIR", directory.Path("run")};
    ScopedEnvironment state{"KAVREL_STATE_DIR", directory.Path("state")};
    ScopedEnvironment log{"KAVREL_LOG", "none"};
  };
  std::unique_ptr<Settings> settings_;
};

[[maybe_unused]] ::testing::Environment* const the_directories =
    ::testing::AddGlobalTestEnvironment(new Directories);  // owned by GoogleTest

// What the callbacks below have seen; they are told apart by their function alone.
int last_value = 0;
int calls = 0;
int depth = 0;
int deepest = 0;

void Note(valuenode_s* node, void* /*user_data*/) {
  ++calls;
  last_value = node->value.intValue;
}

class StateLoop : public ::testing::Test {
 protected:
  StateLoop() { last_value = calls = depth = deepest = 0; }

  Loop loop_;
};

constexpr int kLast = 1000;

void CountUp(valuenode_s* node, void* user_data) {
  deepest = std::max(deepest, ++depth);
  Note(node, user_data);
  const int result = last_value < kLast ? kavrel_set_pip_focus(last_value + 1) : 0;
  EXPECT_EQ(result, 0);
  --depth;
}

TEST_F(StateLoop, CallbackThatSetsItsOwnKeyIsNeverCalledWithinItself) {
  ASSERT_EQ(kavrel_set_pip_focus(0), 0);
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&CountUp, nullptr), 0);
  ASSERT_EQ(kavrel_set_pip_focus(1), 0);
  EXPECT_TRUE(loop_.RunUntil([] { return last_value == kLast; }));
  EXPECT_EQ(calls, kLast) << "nobody else writes, so that each value is a change of its own";
  EXPECT_EQ(deepest, 1);
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(&CountUp), 0);
}

void LeaveAndJoin(valuenode_s* node, void* user_data) {
  Note(node, user_data);
  EXPECT_EQ(kavrel_unregister_bg_executable_change_cb(&LeaveAndJoin), 0);
  EXPECT_EQ(kavrel_register_bg_executable_change_cb(&LeaveAndJoin, user_data), 0);
}

// The notification is taken away and installed again inside its own delivery, each time.
TEST_F(StateLoop, CallbackMayLeaveAndJoinAtEveryChange) {
  ASSERT_EQ(kavrel_register_bg_executable_change_cb(&LeaveAndJoin, nullptr), 0);
  for (int value = 1; value <= 100; ++value) {
    ASSERT_EQ(kavrel_set_bg_executable(value), 0);
    ASSERT_TRUE(loop_.RunUntil([value] { return last_value == value; }));
    EXPECT_EQ(calls, value);
  }
  EXPECT_EQ(kavrel_unregister_bg_executable_change_cb(&LeaveAndJoin), 0);
}

void LeaveAlone(valuenode_s* node, void* user_data) {
  Note(node, user_data);
  EXPECT_EQ(kavrel_unregister_bg_executable_change_cb(&LeaveAlone), 0);
}

TEST_F(StateLoop, CallbackThatLeavesIsCalledOnce) {
  ASSERT_EQ(kavrel_register_bg_executable_change_cb(&LeaveAlone, nullptr), 0);
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&Note, nullptr), 0);
  ASSERT_EQ(kavrel_set_bg_executable(1), 0);
  EXPECT_TRUE(loop_.RunUntil([] { return calls == 1; }));
  ASSERT_EQ(kavrel_set_bg_executable(2), 0);
  ASSERT_EQ(kavrel_set_pip_focus(-1), 0);
  EXPECT_TRUE(loop_.RunUntil([] { return last_value == -1; }));
  EXPECT_EQ(calls, 2) << "one for each key";
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(&Note), 0);
}

// The change is already pending when the key is given up.
TEST_F(StateLoop, NothingComesAfterLeaving) {
  ASSERT_EQ(kavrel_register_bg_executable_change_cb(&Note, nullptr), 0);
  ASSERT_EQ(kavrel_set_bg_executable(1), 0);
  EXPECT_EQ(kavrel_unregister_bg_executable_change_cb(&Note), 0);
  loop_.RunReady();
  EXPECT_EQ(calls, 0);
}

// Whenever a value is set - before the read, between read and registration, after it - the watcher
// ends with it.
TEST_F(StateLoop, NoChangeFallsBetweenReadAndRegistration) {
  constexpr int kRounds = 2000;
  std::atomic<int> round = 0;
  std::thread writer([&round] {
    for (int value = 1; value <= kRounds; ++value) {
      for (int now = round.load(); now < value; now = round.load()) round.wait(now);
      EXPECT_EQ(kavrel_set_mainscreen_signal_state(value), 0);
    }
  });
  bool is_complete = true;
  for (int value = 1; is_complete && value <= kRounds; ++value) {
    round.store(value);
    round.notify_one();
    kavrel_get_mainscreen_signal_state(&last_value);
    EXPECT_EQ(kavrel_register_mainscreen_signal_state_change_cb(&Note, nullptr), 0);
    is_complete = loop_.RunUntil([value] { return last_value == value; });
    EXPECT_TRUE(is_complete) << "round " << value;
    EXPECT_EQ(kavrel_unregister_mainscreen_signal_state_change_cb(&Note), 0);
  }
  round.store(kRounds);
  round.notify_one();
  writer.join();
}

TEST_F(StateLoop, GettersAndSettersWorkOnAnyThread) {
  constexpr int kThreads = 4;
  constexpr int kSets = 200;
  ASSERT_EQ(kavrel_register_date_service_available_change_cb(&Note, nullptr), 0);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int value = 1; value <= kSets; ++value) {
        int read = -1;
        EXPECT_EQ(kavrel_set_date_service_available(thread * kSets + value), 0);
        EXPECT_EQ(kavrel_get_date_service_available(&read), 0);
        EXPECT_TRUE(read >= 1 && read <= kThreads * kSets) << read;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(kavrel_set_date_service_available(-1), 0);
  EXPECT_TRUE(loop_.RunUntil([] { return last_value == -1; }));
  EXPECT_EQ(kavrel_unregister_date_service_available_change_cb(&Note), 0);
}

}  // namespace
}  // namespace kavrel_test
