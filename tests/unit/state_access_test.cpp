// The six typed accessors: what they ask the store, what they log, what they give back.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app_api/KavrelVconfInternal.h"
#include "live_texts.h"
#include "state_fixture.h"

namespace kavrel_test {
namespace {

using kavrel::state::GetVconfBoolKey;
using kavrel::state::GetVconfIntKey;
using kavrel::state::GetVconfStrKey;
using kavrel::state::SetVconfBoolKey;
using kavrel::state::SetVconfIntKey;
using kavrel::state::SetVconfStrKey;
using kavrel::state::StoredText;
using ::testing::ElementsAre;

constexpr int kUntouched = -77;

std::string InfoOf(const std::string& function, const std::string& text) {
  return Info(kInternalFile, function, text);
}

std::string ErrorOf(const std::string& function, const std::string& text) {
  return Error(kInternalFile, function, text);
}

using StateAccess = StateTest;

TEST_F(StateAccess, ReadsAText) {
  store_.values()["k"] = VconfValue::String("text");
  const StoredText text(GetVconfStrKey("k"));
  EXPECT_STREQ(text.get(), "text");
  EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("GetVconfStrKey", "start\n"), "vconf_get_str(k)",
                                          InfoOf("GetVconfStrKey", "key: k, value: text\n")));
  EXPECT_EQ(LiveTexts(), 0U) << "the store's text is freed, the copy is the caller's";
}

TEST_F(StateAccess, ReadsAnEmptyText) {
  store_.values()["k"] = VconfValue::String("");
  const StoredText text(GetVconfStrKey("k"));
  EXPECT_STREQ(text.get(), "");
  EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("GetVconfStrKey", "start\n"), "vconf_get_str(k)",
                                          InfoOf("GetVconfStrKey", "key: k, value: \n")));
}

TEST_F(StateAccess, LogsATextAsItIs) {
  store_.values()["k"] = VconfValue::String("100%s %n");
  const StoredText text(GetVconfStrKey("k"));
  EXPECT_STREQ(text.get(), "100%s %n");
  EXPECT_EQ(TakeTimeline().back(), InfoOf("GetVconfStrKey", "key: k, value: 100%s %n\n"));
}

TEST_F(StateAccess, HasNoTextForAMissingKey) {
  EXPECT_EQ(GetVconfStrKey("k"), nullptr);
  EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("GetVconfStrKey", "start\n"), "vconf_get_str(k)",
                                          ErrorOf("GetVconfStrKey", "fail to get k\n")));
}

TEST_F(StateAccess, HasNoTextForAKeyOfAnotherType) {
  store_.values()["k"] = VconfValue::Int(1);
  EXPECT_EQ(GetVconfStrKey("k"), nullptr);
  EXPECT_EQ(TakeTimeline().back(), ErrorOf("GetVconfStrKey", "fail to get k\n"));
}

TEST_F(StateAccess, HasNoTextForANullKey) {
  EXPECT_EQ(GetVconfStrKey(nullptr), nullptr);
  EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("GetVconfStrKey", "start\n"),
                                          ErrorOf("GetVconfStrKey", "vconfKey is NULL\n"),
                                          ErrorOf("GetVconfStrKey", "Assertion failed\n")));
}

TEST_F(StateAccess, WritesAText) {
  EXPECT_EQ(SetVconfStrKey("k", "text"), 0);
  EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("SetVconfStrKey", "start\n"),
                                          InfoOf("SetVconfStrKey", "key: k, value: text\n"),
                                          "vconf_set_str(k, text)"));
  EXPECT_EQ(store_.values()["k"], VconfValue::String("text"));
}

TEST_F(StateAccess, ReportsATextThatTheStoreRefuses) {
  store_.Fail("vconf_set_str");
  EXPECT_EQ(SetVconfStrKey("k", "text"), -1);
  EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("SetVconfStrKey", "start\n"),
                                          InfoOf("SetVconfStrKey", "key: k, value: text\n"),
                                          "vconf_set_str(k, text)",
                                          ErrorOf("SetVconfStrKey", "vconf_set_str fail\n")));
}

// One line and no second one, whichever of the two is null, or both.
TEST_F(StateAccess, RefusesToWriteANullTextOrKey) {
  for (const auto& [key, value] :
       {std::pair<const char*, const char*>{nullptr, "text"}, {"k", nullptr}, {nullptr, nullptr}}) {
    EXPECT_EQ(SetVconfStrKey(key, value), -1);
    EXPECT_THAT(TakeTimeline(), ElementsAre(InfoOf("SetVconfStrKey", "start\n"),
                                            ErrorOf("SetVconfStrKey", "Assertion failed\n")));
  }
}

// The four accessors of numbers behave alike.
struct NumberKind {
  const char* name;
  const char* getter;
  const char* setter;
  const char* store_getter;
  const char* store_setter;
  int (*get)(const char*, int*);
  int (*set)(const char*, int);
  VconfValue (*value)(int);
  VconfValue other_type;
};

void PrintTo(const NumberKind& kind, std::ostream* out) {
  *out << kind.name;
}

const NumberKind kNumberKinds[] = {
    {"Int", "GetVconfIntKey", "SetVconfIntKey", "vconf_get_int", "vconf_set_int", &GetVconfIntKey,
     &SetVconfIntKey, &VconfValue::Int, VconfValue::Bool(1)},
    {"Bool", "GetVconfBoolKey", "SetVconfBoolKey", "vconf_get_bool", "vconf_set_bool",
     &GetVconfBoolKey, &SetVconfBoolKey, &VconfValue::Bool, VconfValue::Int(1)},
};

class StateNumberAccess : public StateTest, public ::testing::WithParamInterface<NumberKind> {
 protected:
  std::string Getter(const std::string& text) const { return InfoOf(GetParam().getter, text); }
  std::string Setter(const std::string& text) const { return InfoOf(GetParam().setter, text); }
};

TEST_P(StateNumberAccess, Reads) {
  store_.values()["k"] = GetParam().value(1);
  int value = kUntouched;
  EXPECT_EQ(GetParam().get("k", &value), 0);
  EXPECT_EQ(value, 1);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Getter("start\n"), std::string(GetParam().store_getter) + "(k)",
                          Getter("key: k, value: 1\n")));
}

TEST_P(StateNumberAccess, ReadsNothingOfAMissingKeyOrAnotherType) {
  for (const bool missing : {true, false}) {
    if (!missing) store_.values().insert_or_assign("k", GetParam().other_type);
    int value = kUntouched;
    EXPECT_EQ(GetParam().get("k", &value), -1);
    EXPECT_EQ(value, kUntouched);
    EXPECT_THAT(TakeTimeline(),
                ElementsAre(Getter("start\n"), std::string(GetParam().store_getter) + "(k)",
                            ErrorOf(GetParam().getter, "fail to get vconf key [k]\n")));
  }
}

TEST_P(StateNumberAccess, ReportsAStoreThatCannotBeRead) {
  store_.values()["k"] = GetParam().value(1);
  store_.Fail(GetParam().store_getter);
  int value = kUntouched;
  EXPECT_EQ(GetParam().get("k", &value), -1);
  EXPECT_EQ(value, kUntouched);
  EXPECT_EQ(TakeTimeline().back(), ErrorOf(GetParam().getter, "fail to get vconf key [k]\n"));
}

TEST_P(StateNumberAccess, ReadsNothingOfANullKey) {
  int value = kUntouched;
  EXPECT_EQ(GetParam().get(nullptr, &value), -1);
  EXPECT_EQ(value, kUntouched);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Getter("start\n"), ErrorOf(GetParam().getter, "Assertion failed\n")));
}

// The accessors do not look at the pointer: the store refuses a null one.
TEST_P(StateNumberAccess, LeavesANullOutputToTheStore) {
  store_.values()["k"] = GetParam().value(1);
  EXPECT_EQ(GetParam().get("k", nullptr), -1);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Getter("start\n"), std::string(GetParam().store_getter) + "(k)",
                          ErrorOf(GetParam().getter, "fail to get vconf key [k]\n")));
}

TEST_P(StateNumberAccess, Writes) {
  EXPECT_EQ(GetParam().set("k", 1), 0);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Setter("start\n"), Setter("key: k, value: 1\n"),
                                          std::string(GetParam().store_setter) + "(k, 1)"));
  EXPECT_EQ(store_.values()["k"], GetParam().value(1));
}

TEST_P(StateNumberAccess, HandsAnyNumberOnUnchanged) {
  EXPECT_EQ(GetParam().set("k", -5), 0);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Setter("start\n"), Setter("key: k, value: -5\n"),
                                          std::string(GetParam().store_setter) + "(k, -5)"));
}

TEST_P(StateNumberAccess, ReportsANumberThatTheStoreRefuses) {
  store_.Fail(GetParam().store_setter);
  EXPECT_EQ(GetParam().set("k", 1), -1);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Setter("start\n"), Setter("key: k, value: 1\n"),
                                          std::string(GetParam().store_setter) + "(k, 1)",
                                          ErrorOf(GetParam().setter, "fail to set vconf key\n")));
  EXPECT_TRUE(store_.values().empty());
}

TEST_P(StateNumberAccess, RefusesToWriteToANullKey) {
  EXPECT_EQ(GetParam().set(nullptr, 1), -1);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Setter("start\n"), ErrorOf(GetParam().setter, "Assertion failed\n")));
}

INSTANTIATE_TEST_SUITE_P(Kinds, StateNumberAccess, ::testing::ValuesIn(kNumberKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace kavrel_test
