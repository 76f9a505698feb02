// What is left behind when memory runs out anywhere in a function of the state API: nothing.
#include <dlog.h>
#include <gtest/gtest.h>
#include <kavrel/state_api.h>

#include <new>
#include <optional>
#include <string>

#include "app_api/KavrelVconfInternal.h"
#include "failing_allocations.h"
#include "fake_vconf.h"
#include "live_texts.h"

namespace {

bool copies_fail = false;

}  // namespace

extern "C" {

// A log that allocates nothing.
int dlog_print(int /*priority*/, const char* /*tag*/, const char* /*format*/, ...) {
  return 0;
}

// The linker puts this in the place of strdup.
char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text);

char* __wrap_strdup(const char* text) {
  if (kavrel_test::FakeAtWork::Any()) return __real_strdup(text);
  return copies_fail ? nullptr : kavrel_test::CountText(__real_strdup(text));
}

}  // extern "C"

namespace kavrel_test {
namespace {

constexpr const char* kKey = "memory/kavrel/pip_focus";

int first_calls = 0;
int second_calls = 0;

void First(valuenode_s* /*node*/, void* /*user_data*/) {
  ++first_calls;
}

void Second(valuenode_s* /*node*/, void* /*user_data*/) {
  ++second_calls;
}

class StateMemory : public ::testing::Test {
 protected:
  StateMemory() { first_calls = second_calls = 0; }
  ~StateMemory() override {
    kavrel_unregister_pip_focus_change_cb(&First);
    kavrel_unregister_pip_focus_change_cb(&Second);
  }

  // The function's result, or nothing when the `nth` allocation was one that it made and failed.
  template <class Function>
  std::optional<int> CallWithFailure(int nth, const Function& function) {
    const FailingAllocation failing(nth);
    try {
      const int result = function();
      allocations_ = failing.count();
      return result;
    } catch (const std::bad_alloc&) {
      return std::nullopt;
    }
  }

  FakeVconf store_;
  int allocations_ = 0;  // of the call that succeeded
};

TEST_F(StateMemory, FailedFirstRegistrationLeavesTheKeyUnwatched) {
  const auto register_first = [] { return kavrel_register_pip_focus_change_cb(&First, nullptr); };
  int nth = 1;
  for (; !CallWithFailure(nth, register_first); ++nth) {
    EXPECT_TRUE(store_.registrations().empty());
    FakeVconf::DeliverLate(&kavrel::state::KavrelVconfCb, nullptr, kKey, VconfValue::Int(1));
    EXPECT_EQ(first_calls, 0);
  }
  EXPECT_EQ(nth, allocations_ + 1) << "each allocation has failed once";
  EXPECT_GE(allocations_, 3) << "key, list and entry";
  EXPECT_EQ(store_.Deliver(kKey, VconfValue::Int(1)), 1U);
  EXPECT_EQ(first_calls, 1);
}

TEST_F(StateMemory, FailedFurtherRegistrationLeavesTheOthers) {
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&First, nullptr), 0);
  const auto register_second = [] { return kavrel_register_pip_focus_change_cb(&Second, nullptr); };
  int nth = 1;
  for (; !CallWithFailure(nth, register_second); ++nth) {
    store_.Deliver(kKey, VconfValue::Int(1));
    EXPECT_EQ(first_calls, nth);
    EXPECT_EQ(second_calls, 0);
  }
  EXPECT_EQ(nth, allocations_ + 1);
  EXPECT_GE(allocations_, 2) << "key and entry";
  store_.Deliver(kKey, VconfValue::Int(1));
  EXPECT_EQ(second_calls, 1);
}

TEST_F(StateMemory, FailedRemovalLeavesTheRegistration) {
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&First, nullptr), 0);
  const auto unregister_first = [] { return kavrel_unregister_pip_focus_change_cb(&First); };
  int nth = 1;
  for (; !CallWithFailure(nth, unregister_first); ++nth) {
    store_.Deliver(kKey, VconfValue::Int(1));
    EXPECT_EQ(first_calls, nth);
  }
  EXPECT_EQ(nth, allocations_ + 1);
  EXPECT_GE(allocations_, 1) << "the key";
  EXPECT_TRUE(store_.registrations().empty());
}

// A change that arrives cannot be refused, so telling of it must not need memory.
TEST_F(StateMemory, DeliveryAllocatesNothing) {
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&First, nullptr), 0);
  keynode_t node{kKey, VCONF_TYPE_INT, 1};
  const FailingAllocation failing(1);
  kavrel::state::KavrelVconfCb(&node, nullptr);
  EXPECT_FALSE(failing.has_failed());
  EXPECT_EQ(first_calls, 1);
}

void LeaveAndJoin(valuenode_s* node, void* user_data) {
  Second(node, user_data);
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(&LeaveAndJoin), 0);
  EXPECT_EQ(kavrel_register_pip_focus_change_cb(&LeaveAndJoin, user_data), 0);
}

// What leaves during a delivery is kept until its end, and no longer.
TEST_F(StateMemory, LeavingAndJoiningAtEveryChangeKeepsMemoryAsItIs) {
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&First, nullptr), 0);
  ASSERT_EQ(kavrel_register_pip_focus_change_cb(&LeaveAndJoin, nullptr), 0);
  keynode_t node{kKey, VCONF_TYPE_INT, 1};
  const auto live_after_a_change = [&] {
    kavrel::state::KavrelVconfCb(&node, nullptr);
    store_.TakeCalls();
    return LiveAllocations();
  };
  const long before = live_after_a_change();
  for (int change = 0; change < 100; ++change) EXPECT_EQ(live_after_a_change(), before);
  EXPECT_EQ(second_calls, 101);
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(&LeaveAndJoin), 0);
}

TEST_F(StateMemory, TextsThatNobodyGetsAreFreed) {
  for (const char* key : {"memory/kavrel/viewer_state", "memory/kavrel/rating_locked"}) {
    for (const char* text : {"locked", ""}) {
      store_.values()[key] = VconfValue::String(text);
      bool locked = false;
      kavrel_get_kavrel_state();
      kavrel_get_rating_locked(&locked);
      EXPECT_EQ(LiveTexts(), 0U) << key << " \"" << text << '"';
    }
  }
}

TEST_F(StateMemory, CopyOfATextIsTheCallers) {
  store_.values()["k"] = VconfValue::String("text");
  {
    const kavrel::state::StoredText text(kavrel::state::GetVconfStrKey("k"));
    EXPECT_EQ(LiveTexts(), 1U);
  }
  EXPECT_EQ(LiveTexts(), 0U);
}

TEST_F(StateMemory, TextThatCannotBeCopiedIsNoText) {
  store_.values()["memory/kavrel/rating_locked"] = VconfValue::String("locked");
  copies_fail = true;
  bool locked = false;
  EXPECT_EQ(kavrel_get_rating_locked(&locked), -1);
  copies_fail = false;
  EXPECT_FALSE(locked);
  EXPECT_EQ(LiveTexts(), 0U);
  EXPECT_EQ(kavrel_get_rating_locked(&locked), 0);
}

}  // namespace
}  // namespace kavrel_test
