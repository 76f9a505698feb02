// The state store. Each function is tried with the first call that a process makes, which opens the
// store, and with a later one.
#include <glib.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vconf-ext.h>

#include "process_setting.h"
#include "trial.h"

namespace faults_test {
namespace {

constexpr const char* kKeys[] = {"memory/faults/value", "db/faults/value"};

const std::string kText(500, 't');

int calls = 0;

void Count(keynode_t* /*node*/, void* /*user_data*/) {
  ++calls;
}

void Deliver(int wanted) {
  const gint64 limit = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
  while (calls < wanted && g_get_monotonic_time() < limit) {
    g_usleep(100);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }
  EXPECT_EQ(calls, wanted);
}

int IntOf(const char* key) {
  int value = -77;
  const int result = vconf_get_int(key, &value);
  return result == 0 ? value : result;
}

/// A function that gives a key a value, and how that value is read.
struct Setter {
  const char* name;
  std::function<int(const char* key)> set;
  std::function<bool(const char* key)> holds;
};

const Setter kSetters[] = {
    {"vconf_set_int", [](const char* key) { return vconf_set_int(key, 7); },
     [](const char* key) { return IntOf(key) == 7; }},
    {"vconf_set_bool", [](const char* key) { return vconf_set_bool(key, 1); },
     [](const char* key) {
       int value = 0;
       return vconf_get_bool(key, &value) == 0 && value == 1;
     }},
    {"vconf_set_str", [](const char* key) { return vconf_set_str(key, kText.c_str()); },
     [](const char* key) {
       char* const text = vconf_get_str(key);
       const bool holds = text != nullptr && kText == text;
       std::free(text);
       return holds;
     }},
    {"vconf_ext_set_dbl", [](const char* key) { return vconf_ext_set_dbl(key, 0.5); },
     [](const char* key) {
       double value = 0;
       return vconf_ext_get_dbl(key, &value) == 0 && value == 0.5;
     }},
};

// The old value or the new one, and later sets work.
void Set(Trial& trial, const Setter& setter, const char* key, bool is_first) {
  const ProcessSetting setting;
  if (!is_first) {
    EXPECT_EQ(vconf_set_int(key, 1), 0);
  }
  const auto result = trial.Call([&] { return setter.set(key); });
  trial.ExpectErrno(result);
  if (result == 0) {
    EXPECT_TRUE(setter.holds(key));
  } else {
    EXPECT_EQ(IntOf(key), is_first ? -ENOENT : 1);
  }
  EXPECT_EQ(setter.set(key), 0);
  EXPECT_TRUE(setter.holds(key));
}

/// A function that reads the value which the setter of its place in the list gives.
struct Getter {
  const char* name;
  const Setter* setter;
  std::function<int(const char* key)> get;
};

const Getter kGetters[] = {
    {"vconf_get_int", &kSetters[0],
     [](const char* key) {
       int value = -77;
       const int result = vconf_get_int(key, &value);
       EXPECT_EQ(value, result == 0 ? 7 : -77);
       return result;
     }},
    {"vconf_get_bool", &kSetters[1],
     [](const char* key) {
       int value = -77;
       const int result = vconf_get_bool(key, &value);
       EXPECT_EQ(value, result == 0 ? 1 : -77);
       return result;
     }},
    {"vconf_get_str", &kSetters[2],
     [](const char* key) {
       errno = 0;
       char* const text = vconf_get_str(key);
       const int error = errno;
       if (text == nullptr) return error != 0 ? -error : -1;
       EXPECT_EQ(std::strlen(text), 500U);
       std::free(text);
       return 0;
     }},
    {"vconf_ext_get_dbl", &kSetters[3],
     [](const char* key) {
       double value = -77;
       const int result = vconf_ext_get_dbl(key, &value);
       EXPECT_EQ(value, result == 0 ? 0.5 : -77);
       return result;
     }},
    {"vconf_ext_get", &kSetters[2],
     [](const char* key) {
       vconf_ext_value value{};
       const int result = vconf_ext_get(key, &value);
       if (result == 0) {
         EXPECT_EQ(value.text_size, 500U);
       }
       vconf_ext_value_clear(&value);
       return result;
     }},
    {"vconf_ext_get_revision", &kSetters[0],
     [](const char* key) {
       std::uint64_t revision = 0;
       const int result = vconf_ext_get_revision(key, &revision);
       EXPECT_EQ(revision != 0, result == 0);
       return result;
     }},
    {"vconf_ext_list", &kSetters[0],
     [](const char* key) {
       int seen = 0;
       const auto visit = [](const char*, const vconf_ext_value*, void* count) {
         ++*static_cast<int*>(count);
         return 0;
       };
       const int result = vconf_ext_list(key, visit, &seen);
       if (result == 0) {
         EXPECT_EQ(seen, 1);
       }
       return result;
     }},
};

// By another process: this one has not opened the store then.
void SetElsewhere(const Setter& setter, const char* key) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(setter.set(key) == 0 ? 0 : 1);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

void Get(Trial& trial, const Getter& getter, const char* key, bool is_first) {
  const ProcessSetting setting;
  if (is_first) {
    SetElsewhere(*getter.setter, key);
  } else {
    EXPECT_EQ(getter.setter->set(key), 0);
  }
  trial.ExpectErrno(trial.Call([&] { return getter.get(key); }));
  EXPECT_EQ(getter.get(key), 0);
}

void Unset(Trial& trial, const char* key) {
  const ProcessSetting setting;
  EXPECT_EQ(vconf_set_int(key, 1), 0);
  const auto result = trial.Call([&] { return vconf_ext_unset(key); });
  trial.ExpectErrno(result);
  EXPECT_EQ(IntOf(key), result == 0 ? -ENOENT : 1);
  EXPECT_EQ(vconf_ext_unset(key), result == 0 ? -ENOENT : 0);
}

// Registered wholly or not at all.
void Notify(Trial& trial, const char* key, bool is_first) {
  const ProcessSetting setting;
  if (!is_first) {
    EXPECT_EQ(vconf_set_int(key, 1), 0);
  }
  const auto result = trial.Call([&] { return vconf_notify_key_changed(key, Count, nullptr); });
  trial.ExpectErrno(result);
  if (result != 0) {
    EXPECT_EQ(vconf_ignore_key_changed(key, Count), -ENOENT);
    EXPECT_EQ(vconf_notify_key_changed(key, Count, nullptr), 0);
  }
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  calls = 0;
  EXPECT_EQ(vconf_set_int(key, 2), 0);
  // A store that could only be read when the watcher came is watched so until it is registered
  // anew.
  if (trial.fault() != Fault::kReadOnly) Deliver(1);
  EXPECT_EQ(vconf_ignore_key_changed(key, Count), 0);
}

// Needs nothing; the room that a registration took may be given back with the next one.
void Ignore(Trial& trial, const char* key) {
  const ProcessSetting setting;
  EXPECT_EQ(vconf_notify_key_changed(key, Count, nullptr), 0);
  const auto result = trial.Call([&] { return vconf_ignore_key_changed(key, Count); });
  EXPECT_EQ(result, 0);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  calls = 0;
  EXPECT_EQ(vconf_set_int(key, 2), 0);
  Deliver(result == 0 ? 0 : 1);
  EXPECT_EQ(vconf_ignore_key_changed(key, Count), result == 0 ? -ENOENT : 0);
  EXPECT_EQ(vconf_notify_key_changed(key, Count, nullptr), 0);
  EXPECT_EQ(vconf_ignore_key_changed(key, Count), 0);
}

void LookAtNode(keynode_t* node, void* trial) {
  static_cast<Trial*>(trial)->Call([&] {
    EXPECT_STREQ(vconf_keynode_get_name(node), kKeys[0]);
    EXPECT_EQ(vconf_keynode_get_type(node), VCONF_TYPE_INT);
    EXPECT_EQ(vconf_keynode_get_int(node), 7);
    EXPECT_EQ(vconf_keynode_get_bool(node), 0);
    EXPECT_EQ(vconf_keynode_get_dbl(node), 0);
    EXPECT_EQ(vconf_keynode_get_str(node), nullptr);
    EXPECT_NE(vconf_ext_keynode_get_revision(node), 0U);
  });
  ++calls;
}

// Nothing of a node needs anything.
void ReadNode(Trial& trial) {
  const ProcessSetting setting;
  EXPECT_EQ(vconf_notify_key_changed(kKeys[0], LookAtNode, &trial), 0);
  EXPECT_EQ(vconf_set_int(kKeys[0], 7), 0);
  Deliver(1);
  EXPECT_FALSE(trial.occurred());
  EXPECT_EQ(vconf_ignore_key_changed(kKeys[0], LookAtNode), 0);
}

// A change that arrives is delivered, if not now then a little later.
void DeliverChange(Trial& trial) {
  const ProcessSetting setting;
  EXPECT_EQ(vconf_notify_key_changed(kKeys[0], Count, nullptr), 0);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  EXPECT_EQ(vconf_set_str(kKeys[0], kText.c_str()), 0);
  EXPECT_TRUE(trial.Call([] {
    while (calls == 0 && g_main_context_iteration(nullptr, FALSE)) {
    }
  })) << "an exception went through GLib";
  Deliver(1);
  EXPECT_EQ(vconf_ignore_key_changed(kKeys[0], Count), 0);
}

void Directory(Trial& trial) {
  const ProcessSetting setting;
  trial.Call([] { return vconf_ext_store_directory("memory"); });
  EXPECT_EQ(trial.end(), End::kReturned);
  EXPECT_NE(vconf_ext_store_directory("memory"), nullptr);
  EXPECT_NE(vconf_ext_store_directory("db"), nullptr);
}

}  // namespace

Rows VconfRows() {
  Rows rows = {
      {"deliver", {"vconf_notify_key_changed"}, DeliverChange},
      {"store_directory", {"vconf_ext_store_directory"}, Directory},
      {"read_node",
       {"vconf_keynode_get_name", "vconf_keynode_get_type", "vconf_keynode_get_int",
        "vconf_keynode_get_bool", "vconf_keynode_get_dbl", "vconf_keynode_get_str",
        "vconf_ext_keynode_get_revision"},
       ReadNode},
  };
  for (const char* key : kKeys) {
    const std::string family(key, std::strchr(key, '/'));
    for (const bool is_first : {true, false}) {
      const std::string where = " " + family + (is_first ? " at first" : " later");
      for (const Setter& setter : kSetters) {
        if (is_first && &setter != kSetters) continue;  // they open the store alike
        rows.push_back({setter.name + where, {setter.name}, [&setter, key, is_first](Trial& t) {
                          Set(t, setter, key, is_first);
                        }});
      }
      for (const Getter& getter : kGetters) {
        if (is_first && &getter != kGetters) continue;
        rows.push_back({getter.name + where,
                        {getter.name, "vconf_ext_value_clear"},
                        [&getter, key, is_first](Trial& t) { Get(t, getter, key, is_first); }});
      }
      rows.push_back({"vconf_notify_key_changed" + where,
                      {"vconf_notify_key_changed"},
                      [key, is_first](Trial& t) { Notify(t, key, is_first); }});
    }
    rows.push_back(
        {"vconf_ext_unset " + family, {"vconf_ext_unset"}, [key](Trial& t) { Unset(t, key); }});
    rows.push_back({"vconf_ignore_key_changed " + family,
                    {"vconf_ignore_key_changed"},
                    [key](Trial& t) { Ignore(t, key); }});
  }
  return rows;
}

}  // namespace faults_test
