// The state API. Reading and writing return -1; registering throws std::bad_alloc when memory is
// out, and nothing has changed then.
#include <glib.h>
#include <kavrel/state_properties.h>

#include <string>

#include "process_setting.h"
#include "trial.h"

namespace faults_test {
namespace {

int calls = 0;

void Count(valuenode_s* /*node*/, void* /*user_data*/) {
  ++calls;
}

using Watch = int (*)(kavrel_value_changed_cb, void*);
using Unwatch = int (*)(kavrel_value_changed_cb);

int Get(int (*getter)()) {
  return getter();
}
int Get(int (*getter)(int*)) {
  int value = -77;
  const int result = getter(&value);
  EXPECT_EQ(value == -77, result != 0);
  return result;
}
int Get(int (*getter)(bool*)) {
  bool value = false;
  return getter(&value);
}

int Set(int (*setter)(int)) {
  return setter(1);
}
int Set(int (*setter)(const char*)) {
  return setter("a text that is too long for a string to hold it without memory of its own");
}

void ExpectSuccessOrMinusOne(const Trial& trial, const std::optional<int>& result, int healthy) {
  ASSERT_TRUE(result.has_value()) << "an exception left the function";
  if (*result != healthy) {
    EXPECT_TRUE(trial.occurred());
    EXPECT_EQ(*result, -1);
  }
}

void ExpectUnchangedWhenThrown(const Trial& trial, const std::optional<int>& result) {
  if (result) {
    ExpectSuccessOrMinusOne(trial, result, 0);
    return;
  }
  EXPECT_EQ(trial.fault(), Fault::kMemory);
  EXPECT_EQ(trial.end(), End::kBadAlloc);
}

template <class Getter>
void AddGetter(Rows& rows, const char* name, Getter getter) {
  rows.push_back({name, {name}, [getter](Trial& trial) {
                    const ProcessSetting setting;
                    const int healthy = Get(getter);
                    ExpectSuccessOrMinusOne(trial, trial.Call([&] { return Get(getter); }),
                                            healthy);
                    EXPECT_EQ(Get(getter), healthy);
                  }});
}

template <class Setter>
void AddSetter(Rows& rows, const char* name, Setter setter) {
  rows.push_back({name, {name}, [setter](Trial& trial) {
                    const ProcessSetting setting;
                    EXPECT_EQ(Set(setter), 0);
                    ExpectSuccessOrMinusOne(trial, trial.Call([&] { return Set(setter); }), 0);
                    EXPECT_EQ(Set(setter), 0);
                  }});
}
void AddSetter(Rows& /*rows*/, const char* /*name*/, std::nullptr_t) {}

void Register(Trial& trial, Watch watch, Unwatch unwatch) {
  const ProcessSetting setting;
  const auto result = trial.Call([&] { return watch(Count, nullptr); });
  ExpectUnchangedWhenThrown(trial, result);
  EXPECT_EQ(watch(Count, nullptr), result == 0 ? -1 : 0) << "registered wholly or not at all";
  EXPECT_EQ(unwatch(Count), 0);
  EXPECT_EQ(watch(Count, nullptr), 0);
  EXPECT_EQ(unwatch(Count), 0);
}

void Unregister(Trial& trial, Watch watch, Unwatch unwatch) {
  const ProcessSetting setting;
  EXPECT_EQ(watch(Count, nullptr), 0);
  const auto result = trial.Call([&] { return unwatch(Count); });
  ExpectUnchangedWhenThrown(trial, result);
  if (result != 0) {
    EXPECT_EQ(watch(Count, nullptr), -1) << "still registered";
    EXPECT_EQ(unwatch(Count), 0);
  }
  EXPECT_EQ(watch(Count, nullptr), 0);
  EXPECT_EQ(unwatch(Count), 0);
}

void AddWatch(Rows& rows, const char* watch_name, Watch watch, const char* unwatch_name,
              Unwatch unwatch) {
  rows.push_back(
      {watch_name, {watch_name}, [=](Trial& trial) { Register(trial, watch, unwatch); }});
  rows.push_back(
      {unwatch_name, {unwatch_name}, [=](Trial& trial) { Unregister(trial, watch, unwatch); }});
}
void AddWatch(Rows& /*rows*/, const char* /*watch_name*/, std::nullptr_t,
              const char* /*unwatch_name*/, std::nullptr_t) {}

// A change that arrives is told, whatever is missing.
void Deliver(Trial& trial) {
  const ProcessSetting setting;
  EXPECT_EQ(kavrel_register_pip_focus_change_cb(Count, nullptr), 0);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  EXPECT_EQ(kavrel_set_pip_focus(1), 0);
  trial.Call([] {
    while (calls == 0 && g_main_context_iteration(nullptr, FALSE)) {
    }
  });
  EXPECT_EQ(trial.end(), End::kReturned) << "an exception went through GLib";
  while (calls == 0 && g_main_context_iteration(nullptr, TRUE)) {
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(Count), 0);
}

}  // namespace

Rows StateRows() {
  Rows rows = {{"deliver", {"kavrel_register_pip_focus_change_cb"}, Deliver}};
#define ADD_PROPERTY(name, key, type, getter, setter, registration, removal, meaning) \
  AddGetter(rows, #getter, getter);                                                   \
  AddSetter(rows, #setter, setter);                                                   \
  AddWatch(rows, #registration, registration, #removal, removal);
  KAVREL_STATE_PROPERTIES(ADD_PROPERTY)
#undef ADD_PROPERTY
  return rows;
}

}  // namespace faults_test
