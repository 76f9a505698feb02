// The exported functions of all properties: the table against the interface as it is promised, and
// a walk over the table that tries each function in each situation.
#include <gtest/gtest.h>
#include <kavrel/state_properties.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "app_api/KavrelVconfInternal.h"
#include "app_api/PropertyAccess.h"
#include "state_fixture.h"

extern "C" int StateHeaderInC(void);

namespace kavrel_test {
namespace {

using kavrel::state::kProperties;
using kavrel::state::kPropertyCount;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;
using kavrel::state::PropertyTypeName;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- The interface

// What watchers and plug-ins were built against.
static_assert(sizeof(valuenode_s) == 16);
static_assert(offsetof(valuenode_s, type) == 0 && sizeof(valuenode_s::type) == 4);
static_assert(offsetof(valuenode_s, value) == 8 && sizeof(valuenode_s::value) == 8);
static_assert(KAVREL_VALUE_STRING == 1 && KAVREL_VALUE_INT == 2 && KAVREL_VALUE_DOUBLE == 3 &&
              KAVREL_VALUE_BOOL == 4);

template <class P>
concept CanGetNumber = requires(const P& property, int* value) {
  kavrel::state::Get(kavrel::SourceLine(), property, value);
};
template <class P>
concept CanGetStatus = requires(const P& property) {
  kavrel::state::GetStatus(kavrel::SourceLine(), property);
};
template <class P, class Value>
concept CanSet = requires(const P& property, Value value) {
  kavrel::state::Set(kavrel::SourceLine(), property, value);
};
template <class P>
concept CanWatch = requires(const P& property, kavrel_value_changed_cb callback) {
  kavrel::state::Watch(kavrel::SourceLine(), property, callback, nullptr);
  kavrel::state::Unwatch(kavrel::SourceLine(), property, callback);
};

// Writing a key that has no setter does not compile, nor does watching one that is not watched.
#define KAVREL_CHECK_ACCESS(name, key, type, getter, setter, registration, removal, meaning) \
  static_assert((CanSet<decltype(kavrel::state::properties::name), int> ||                   \
                 CanSet<decltype(kavrel::state::properties::name), const char*>) ==          \
                !std::is_same_v<decltype(setter), std::nullptr_t>);                          \
  static_assert(CanWatch<decltype(kavrel::state::properties::name)> ==                       \
                !std::is_same_v<decltype(registration), std::nullptr_t>);                    \
  static_assert(CanGetNumber<decltype(kavrel::state::properties::name)> ==                   \
                std::is_same_v<decltype(&getter), int (*)(int*)>);                           \
  static_assert(CanGetStatus<decltype(kavrel::state::properties::name)> ==                   \
                std::is_same_v<decltype(&getter), int (*)()>);
KAVREL_STATE_PROPERTIES(KAVREL_CHECK_ACCESS)
#undef KAVREL_CHECK_ACCESS

static_assert(!CanSet<decltype(kavrel::state::properties::window_id), int>);
static_assert(!CanSet<decltype(kavrel::state::properties::visible_banners), const char*>);
static_assert(!CanSet<decltype(kavrel::state::properties::pip_focus), const char*>);
static_assert(!CanSet<decltype(kavrel::state::properties::more_key_option_type), int>);
static_assert(!CanWatch<decltype(kavrel::state::properties::db_serdes_error)>);

struct FunctionNames {
  std::string getter;
  std::string setter;
  std::string registration;
  std::string removal;
};

#define KAVREL_NAMES(name, key, type, getter, setter, registration, removal, meaning) \
  FunctionNames{#getter, #setter, #registration, #removal},
const FunctionNames kFunctionNames[] = {KAVREL_STATE_PROPERTIES(KAVREL_NAMES)};
#undef KAVREL_NAMES

const FunctionNames& NamesOf(const PropertyInfo& property) {
  return kFunctionNames[&property - kProperties];
}

// Property, key, type, and what may be done: read, write, watch. Programs in the field depend on
// every letter.
struct Promised {
  std::string_view name;
  std::string_view key;
  std::string_view type;
  bool write;
  bool watch;
};

constexpr Promised kPromised[] = {
    {"more_key_option_type", "memory/kavrel/more_key_option_type", "string", true, false},
    {"visible_video_banners", "memory/kavrel/visible_video_banners", "string", false, true},
    {"visible_banners", "memory/kavrel/visible_banners", "string", false, true},
    {"pip_focus", "memory/kavrel/pip_focus", "int", true, true},
    {"use_4_direction_key", "memory/kavrel/banner_show", "int", true, true},
    {"mainscreen_signal_state", "memory/kavrel/mainscreen_signal_state", "int", true, true},
    {"date_service_available", "memory/kavrel/data_service", "int", true, true},
    {"bg_executable", "memory/kavrel/bg_executable", "int", true, true},
    {"info_banner_dynamic_si_modify_state", "memory/kavrel/modify_channel_info", "bool", true,
     true},
    {"info_banner_ttx_state", "memory/kavrel/infobanner/ttx", "bool", true, true},
    {"info_banner_caption_state", "memory/kavrel/infobanner/caption", "bool", true, true},
    {"info_banner_ttml_state", "memory/kavrel/infobanner/ttml", "bool", true, true},
    {"banner_show_state", "memory/kavrel/kavrel_banner_state_16", "int", false, true},
    {"info_banner_subtitle_state", "memory/kavrel/infobanner/subtitle", "bool", true, true},
    {"analog_clean_view_state", "memory/kavrel/analog_clean_view_demo", "bool", true, true},
    {"kavrel_state", "memory/kavrel/viewer_state", "string", false, true},
    {"memory_serdes_error", "memory/kavrel/serdes_error", "int", true, false},
    {"db_serdes_error", "db/kavrel/serdes_error", "int", true, false},
    {"rating_locked", "memory/kavrel/rating_locked", "locked", false, true},
    {"window_id", "db/kavrel/window_id", "int", false, true},
};

TEST(StateTable, IsAsPromised) {
  ASSERT_EQ(kPropertyCount, std::size(kPromised));
  for (std::size_t row = 0; row < kPropertyCount; ++row) {
    const PropertyInfo& property = kProperties[row];
    const Promised& promised = kPromised[row];
    EXPECT_EQ(property.name, promised.name);
    EXPECT_EQ(property.key, promised.key) << property.name;
    EXPECT_EQ(PropertyTypeName(property.type), promised.type) << property.name;
    EXPECT_EQ(property.IsWritable(), promised.write) << property.name;
    EXPECT_EQ(property.IsWatchable(), promised.watch) << property.name;
    EXPECT_EQ(property.watch == nullptr, property.unwatch == nullptr) << property.name;
  }
}

TEST(StateTable, HasTwentyPropertiesAndSixtyEightFunctions) {
  EXPECT_EQ(kPropertyCount, 20U);
  std::set<std::string> functions;
  std::size_t count = 0;
  for (const FunctionNames& names : kFunctionNames) {
    for (const auto& name : {names.getter, names.setter, names.registration, names.removal}) {
      if (name == "nullptr") continue;
      functions.insert(name);
      ++count;
    }
  }
  EXPECT_EQ(count, 68U);
  EXPECT_EQ(functions.size(), 68U);
}

// The pattern, and the five names that break it.
TEST(StateTable, FunctionsAreNamedAfterTheirProperty) {
  for (const PropertyInfo& property : kProperties) {
    const std::string name = property.name;
    const bool odd_callback = name == "rating_locked" || name == "window_id";
    const std::string ending = odd_callback ? "_cb" : "_change_cb";
    const std::string written = name == "memory_serdes_error" ? "memroy_serdes_error" : name;
    const auto or_none = [](bool is_there, const std::string& function) {
      return is_there ? function : "nullptr";
    };
    const FunctionNames& names = NamesOf(property);
    EXPECT_EQ(names.getter, "kavrel_get_" + name);
    EXPECT_EQ(names.setter, or_none(property.IsWritable(), "kavrel_set_" + written));
    EXPECT_EQ(names.registration,
              or_none(property.IsWatchable(), "kavrel_register_" + name + ending));
    EXPECT_EQ(names.removal, or_none(property.IsWatchable(), "kavrel_unregister_" + name + ending));
  }
}

// --- The walk

constexpr int kUntouched = -77;

// The accessor and the functions of the store that serve a type.
struct Route {
  std::string getter;
  std::string setter;
  std::string store_getter;
  std::string store_setter;
  VconfValue value;
  VconfValue other_type;
};

Route RouteOf(PropertyType type) {
  switch (type) {
    case PropertyType::Int:
      return {"GetVconfIntKey", "SetVconfIntKey",   "vconf_get_int",
              "vconf_set_int",  VconfValue::Int(1), VconfValue::Bool(1)};
    case PropertyType::Bool:
      return {"GetVconfBoolKey", "SetVconfBoolKey",   "vconf_get_bool",
              "vconf_set_bool",  VconfValue::Bool(1), VconfValue::Int(1)};
    case PropertyType::String:
      return {"GetVconfStrKey", "SetVconfStrKey",          "vconf_get_str",
              "vconf_set_str",  VconfValue::String("one"), VconfValue::Int(1)};
    case PropertyType::Locked:
      return {"GetVconfStrKey",   "", "vconf_get_str", "", VconfValue::String("locked"),
              VconfValue::Bool(1)};
  }
  throw std::logic_error("no such type");
}

// A getter's result with what it wrote: a number, or nothing.
struct Read {
  int result;
  std::optional<int> written;
  bool operator==(const Read&) const = default;
};

Read ReadProperty(const PropertyInfo& property) {
  if (property.get_status != nullptr) return {property.get_status(), std::nullopt};
  if (property.get_locked != nullptr) {
    unsigned char byte = 0xA5;
    const int result = property.get_locked(reinterpret_cast<bool*>(&byte));
    return {result, byte != 0xA5 ? std::optional<int>(byte) : std::nullopt};
  }
  int value = kUntouched;
  const int result = property.get_number(&value);
  return {result, value != kUntouched ? std::optional(value) : std::nullopt};
}

int WriteProperty(const PropertyInfo& property) {
  return property.set_text != nullptr ? property.set_text("one") : property.set_number(1);
}

class StateProperty : public StateTest, public ::testing::WithParamInterface<PropertyInfo> {
 protected:
  ~StateProperty() override {
    for (int slot = 0; Property().unwatch != nullptr && slot < kSlots; ++slot) {
      Property().unwatch(Slot(slot));
    }
  }

  static const PropertyInfo& Property() {
    return *std::find_if(std::begin(kProperties), std::end(kProperties),
                         [](const auto& one) { return one.key == GetParam().key; });
  }

  static std::string File() {
    const std::string_view name = Property().name;
    if (name == "rating_locked") return "KavrelBannerStateApi.cpp";
    return name == "window_id" ? "KavrelCommonApi.cpp" : "KavrelPropertyApi.cpp";
  }

  static std::string Inner(const std::string& function, const std::string& text) {
    return Info(kInternalFile, function, text);
  }

  void Put(const VconfValue& value) { store_.values().insert_or_assign(key_, value); }

  /// The lines and calls that every read begins with.
  std::vector<std::string> BeginningOfRead() const {
    return {Info(File(), NamesOf(Property()).getter, "start\n"), Inner(route_.getter, "start\n"),
            route_.store_getter + "(" + key_ + ")"};
  }

  void ExpectFailedRead() {
    EXPECT_EQ(ReadProperty(Property()), (Read{-1, std::nullopt}));
    auto expected = BeginningOfRead();
    const bool text = route_.store_getter == "vconf_get_str";
    expected.push_back(
        Error(kInternalFile, route_.getter,
              text ? "fail to get " + key_ + "\n" : "fail to get vconf key [" + key_ + "]\n"));
    if (Property().type == PropertyType::Locked) {
      expected.push_back(Error(File(), NamesOf(Property()).getter, "value is NULL\n"));
    }
    EXPECT_EQ(TakeTimeline(), expected);
  }

  const std::string key_ = Property().key;
  const Route route_ = RouteOf(Property().type);
};

TEST_P(StateProperty, Gets) {
  Put(route_.value);
  const bool status_only = Property().type == PropertyType::String;
  EXPECT_EQ(ReadProperty(Property()),
            (Read{0, status_only ? std::optional<int>() : std::optional(1)}));
  auto expected = BeginningOfRead();
  const bool locked = Property().type == PropertyType::Locked;
  const std::string shown = status_only ? "one" : locked ? "locked" : "1";
  expected.push_back(Inner(route_.getter, "key: " + key_ + ", value: " + shown + "\n"));
  if (locked) {
    expected.push_back(
        Info(File(), "ConvertRatingLockedValueToInt", "lockedState: locked, retVal: 1(bool).\n"));
  }
  EXPECT_EQ(TakeTimeline(), expected);
}

TEST_P(StateProperty, GetsNothingOfAMissingKey) {
  ExpectFailedRead();
}

TEST_P(StateProperty, GetsNothingOfAnotherType) {
  Put(route_.other_type);
  ExpectFailedRead();
}

TEST_P(StateProperty, GetsNothingFromAStoreThatFails) {
  Put(route_.value);
  store_.Fail(route_.store_getter);
  ExpectFailedRead();
}

TEST_P(StateProperty, SetsWhereThereIsASetter) {
  if (!Property().IsWritable()) {
    EXPECT_EQ(NamesOf(Property()).setter, "nullptr");
    return;
  }
  EXPECT_EQ(WriteProperty(Property()), 0);
  const std::string shown = Property().set_text != nullptr ? "one" : "1";
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Info(File(), NamesOf(Property()).setter, "start\n"),
                          Inner(route_.setter, "start\n"),
                          Inner(route_.setter, "key: " + key_ + ", value: " + shown + "\n"),
                          route_.store_setter + "(" + key_ + ", " + shown + ")"));
  EXPECT_EQ(store_.values().size(), 1U);
  EXPECT_EQ(store_.values().at(key_), route_.value);
}

TEST_P(StateProperty, ReportsAStoreThatRefusesToSet) {
  if (!Property().IsWritable()) return;
  store_.Fail(route_.store_setter);
  EXPECT_EQ(WriteProperty(Property()), -1);
  EXPECT_EQ(
      TakeTimeline().back(),
      Error(kInternalFile, route_.setter,
            Property().set_text != nullptr ? "vconf_set_str fail\n" : "fail to set vconf key\n"));
}

TEST_P(StateProperty, RefusesNull) {
  if (Property().set_text != nullptr) {
    EXPECT_EQ(Property().set_text(nullptr), -1);
    EXPECT_THAT(TakeTimeline(),
                ElementsAre(Info(File(), NamesOf(Property()).setter, "start\n"),
                            Error(File(), NamesOf(Property()).setter, "set value is NULL\n")));
  }
  if (!Property().IsWatchable()) return;
  EXPECT_EQ(Property().watch(nullptr, this), -1);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Info(File(), NamesOf(Property()).registration, "start\n"),
                                          Inner("KavrelRegisterValueCb", "start\n"),
                                          Inner("KavrelRegisterValueCb", "key: [" + key_ + "]\n"),
                                          Error(kInternalFile, "KavrelRegisterValueCb",
                                                "callback function is NULL\n")));
  EXPECT_EQ(Property().unwatch(nullptr), -1);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Info(File(), NamesOf(Property()).removal, "start\n"),
                                          Inner("KavrelUnregisterValueCb", "start\n"),
                                          Error(kInternalFile, "KavrelUnregisterValueCb",
                                                "callback function is NULL\n")));
}

Delivery Expected(const PropertyInfo& property, int slot, void* user_data) {
  switch (property.type) {
    case PropertyType::Int:
      return {slot, KAVREL_VALUE_INT, "", 1, user_data};
    case PropertyType::Bool:
      return {slot, KAVREL_VALUE_BOOL, "", 1, user_data};
    case PropertyType::String:
      return {slot, KAVREL_VALUE_STRING, "one", 0, user_data};
    case PropertyType::Locked:
      return {slot, KAVREL_VALUE_STRING, "locked", 0, user_data};
  }
  throw std::logic_error("no such type");
}

TEST_P(StateProperty, IsWatchedWhereItCanBe) {
  if (!Property().IsWatchable()) {
    EXPECT_EQ(NamesOf(Property()).registration, "nullptr");
    return;
  }
  EXPECT_EQ(Property().watch(Slot(0), this), 0);
  const auto timeline = TakeTimeline();
  EXPECT_EQ(timeline.front(), Info(File(), NamesOf(Property()).registration, "start\n"));
  EXPECT_EQ(timeline.at(2), Inner("KavrelRegisterValueCb", "key: [" + key_ + "]\n"));
  EXPECT_EQ(store_.registrations().at(0).key, key_);
  EXPECT_EQ(Property().watch(Slot(0), nullptr), -1) << "the same function once more";
  EXPECT_EQ(Property().watch(Slot(1), nullptr), 0);

  store_.Deliver(key_, route_.value);
  EXPECT_THAT(TakeDeliveries(),
              ElementsAre(Expected(Property(), 0, this), Expected(Property(), 1, this)));

  TakeTimeline();
  EXPECT_EQ(Property().unwatch(Slot(0)), 0);
  EXPECT_EQ(TakeTimeline().front(), Info(File(), NamesOf(Property()).removal, "start\n"));
  EXPECT_EQ(Property().unwatch(Slot(0)), -1) << "gone from a key that is watched";
  EXPECT_EQ(Property().unwatch(Slot(1)), 0);
  EXPECT_EQ(Property().unwatch(Slot(1)), 0) << "from a key that nobody watches";
  EXPECT_EQ(store_.Deliver(key_, route_.value), 0U);
}

TEST_P(StateProperty, ReportsAStoreThatRefusesToWatch) {
  if (!Property().IsWatchable()) return;
  store_.Fail("vconf_notify_key_changed");
  EXPECT_EQ(Property().watch(Slot(0), this), -1);
  EXPECT_THAT(store_.registrations(), IsEmpty());
  EXPECT_EQ(Property().watch(Slot(0), this), 0) << "nothing is left of the failure";
}

INSTANTIATE_TEST_SUITE_P(All, StateProperty, ::testing::ValuesIn(kProperties),
                         [](const auto& tested) { return std::string(tested.param.name); });

// --- Between properties

using StateProperties = StateTest;

TEST_F(StateProperties, WriteThroughOneNameIsSeenByItsWatcher) {
  EXPECT_EQ(kavrel_register_use_4_direction_key_change_cb(Slot(0), nullptr), 0);
  EXPECT_EQ(kavrel_set_use_4_direction_key(1), 0);
  EXPECT_EQ(store_.Deliver("memory/kavrel/banner_show"), 1U);
  EXPECT_THAT(TakeDeliveries(), ElementsAre(Delivery{0, KAVREL_VALUE_INT, "", 1, nullptr}));
  EXPECT_EQ(kavrel_unregister_use_4_direction_key_change_cb(Slot(0)), 0);
}

TEST_F(StateProperties, ServeACProgram) {
  store_.values()["memory/kavrel/rating_locked"] = VconfValue::String("locked");
  EXPECT_EQ(StateHeaderInC(), 0);
}

TEST_F(StateProperties, KeysAreDistinct) {
  std::set<std::string> keys;
  for (const PropertyInfo& property : kProperties) keys.insert(property.key);
  EXPECT_EQ(keys.size(), kPropertyCount);
}

TEST_F(StateProperties, OneFunctionMayWatchAll) {
  std::size_t watched = 0;
  for (const PropertyInfo& property : kProperties) {
    if (!property.IsWatchable()) continue;
    EXPECT_EQ(property.watch(Slot(0), nullptr), 0);
    ++watched;
  }
  EXPECT_EQ(watched, 17U);
  EXPECT_EQ(store_.registrations().size(), watched);
  for (const PropertyInfo& property : kProperties) {
    if (!property.IsWatchable()) continue;
    EXPECT_EQ(property.unwatch(Slot(0)), 0);
  }
  EXPECT_THAT(store_.registrations(), IsEmpty());
}

}  // namespace
}  // namespace kavrel_test
