// The property that is a text in the store and a bool for its readers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <utility>

#include "app_api/KavrelVconfInternal.h"
#include "app_api/RatingLock.h"
#include "state_fixture.h"

namespace kavrel_test {
namespace {

using kavrel::state::AssignRatingLockedInfo;
using kavrel::state::ConvertRatingLockedValueToInt;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kKey = "memory/kavrel/rating_locked";
constexpr const char* kFile = "KavrelBannerStateApi.cpp";

std::string Getting(const std::string& text) {
  return Info(kFile, "kavrel_get_rating_locked", text);
}

using RatingLock = StateTest;

TEST_F(RatingLock, ReadsLocked) {
  store_.values()[kKey] = VconfValue::String("locked");
  bool locked = false;
  EXPECT_EQ(kavrel_get_rating_locked(&locked), 0);
  EXPECT_TRUE(locked);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Getting("start\n"), Info(kInternalFile, "GetVconfStrKey", "start\n"),
                          "vconf_get_str(memory/kavrel/rating_locked)",
                          Info(kInternalFile, "GetVconfStrKey",
                               "key: memory/kavrel/rating_locked, value: locked\n"),
                          Info(kFile, "ConvertRatingLockedValueToInt",
                               "lockedState: locked, retVal: 1(bool).\n")));
}

// Same length, same bytes.
TEST_F(RatingLock, OnlyLockedLocks) {
  for (const std::string text : {"unlocked", "Locked", "LOCKED", "locke", "lockedx", " locked",
                                 "locked ", "locked\n", "1", "true"}) {
    store_.values()[kKey] = VconfValue::String(text);
    bool locked = true;
    EXPECT_EQ(kavrel_get_rating_locked(&locked), 0) << text;
    EXPECT_FALSE(locked) << text;
    EXPECT_EQ(TakeTimeline().back(), Info(kFile, "ConvertRatingLockedValueToInt",
                                          "lockedState: " + text + ", retVal: 0(bool).\n"));
  }
}

TEST_F(RatingLock, WritesExactlyOneByte) {
  for (const auto& [text, expected] :
       {std::pair<const char*, unsigned char>{"locked", 1}, {"unlocked", 0}}) {
    store_.values()[kKey] = VconfValue::String(text);
    std::array<unsigned char, 9> bytes;
    bytes.fill(0xA5);
    EXPECT_EQ(kavrel_get_rating_locked(reinterpret_cast<bool*>(&bytes[4])), 0);
    std::array<unsigned char, 9> wanted;
    wanted.fill(0xA5);
    wanted[4] = expected;
    EXPECT_EQ(bytes, wanted);
  }
}

class RatingLockWithoutValue : public RatingLock {
 protected:
  void ExpectFailure() {
    unsigned char guarded = 0xA5;
    EXPECT_EQ(kavrel_get_rating_locked(reinterpret_cast<bool*>(&guarded)), -1);
    EXPECT_EQ(guarded, 0xA5);
    const auto timeline = TakeTimeline();
    EXPECT_EQ(timeline.front(), Getting("start\n"));
    EXPECT_EQ(timeline.back(), Error(kFile, "kavrel_get_rating_locked", "value is NULL\n"));
    EXPECT_THAT(timeline, Not(Contains(::testing::HasSubstr("retVal"))));
  }
};

TEST_F(RatingLockWithoutValue, MissingKey) {
  ExpectFailure();
}

TEST_F(RatingLockWithoutValue, EmptyText) {
  store_.values()[kKey] = VconfValue::String("");
  ExpectFailure();
}

TEST_F(RatingLockWithoutValue, AnotherType) {
  store_.values()[kKey] = VconfValue::Bool(1);
  ExpectFailure();
}

TEST_F(RatingLockWithoutValue, StoreThatCannotBeRead) {
  store_.values()[kKey] = VconfValue::String("locked");
  store_.Fail("vconf_get_str");
  ExpectFailure();
}

// Not a boolean, and no conversion on the way.
TEST_F(RatingLock, WatcherGetsTheText) {
  EXPECT_EQ(kavrel_register_rating_locked_cb(Slot(0), this), 0);
  TakeTimeline();
  for (const char* text : {"locked", "unlocked", ""}) {
    store_.Deliver(kKey, VconfValue::String(text));
    EXPECT_THAT(TakeDeliveries(), ElementsAre(Delivery{0, KAVREL_VALUE_STRING, text, 0, this}));
  }
  EXPECT_THAT(TakeTimeline(), Not(Contains(::testing::HasSubstr("retVal"))));
  EXPECT_EQ(kavrel_unregister_rating_locked_cb(Slot(0)), 0);
}

TEST_F(RatingLock, ConversionLogsItsLineAlone) {
  std::array<char, 7> text = {"locked"};
  EXPECT_TRUE(ConvertRatingLockedValueToInt(text.data()));
  EXPECT_THAT(TakeTimeline(), ElementsAre(Info(kFile, "ConvertRatingLockedValueToInt",
                                               "lockedState: locked, retVal: 1(bool).\n")));
}

TEST_F(RatingLock, AssignmentThatNobodyUsesConverts) {
  for (const auto& [text, expected] :
       {std::pair<const char*, int>{"locked", 1}, {"unlocked", 0}, {"", 0}}) {
    keynode_t node{kKey, VCONF_TYPE_STRING, std::string(text)};
    valuenode_s record{};
    AssignRatingLockedInfo(&node, record);
    EXPECT_EQ(record.type, KAVREL_VALUE_BOOL);
    EXPECT_EQ(record.value.boolValue, expected);
  }
  keynode_t number{kKey, VCONF_TYPE_INT, 1};
  valuenode_s record{};
  AssignRatingLockedInfo(&number, record);
  EXPECT_EQ(record.type, 0) << "a node without a text leaves the record as it is";
}

}  // namespace
}  // namespace kavrel_test
