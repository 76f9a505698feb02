// Who may read and write the viewer's state: its user alone, key by key. Runs as root.
#include <grp.h>
#include <gtest/gtest.h>
#include <kavrel/state_properties.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <functional>
#include <string>

#include "temporary_directory.h"

namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;
using kavrel_test::ScopedEnvironment;
using kavrel_test::TemporaryDirectory;

constexpr uid_t kOwner = 4711;
constexpr uid_t kStranger = 65534;

class StateUsers : public ::testing::Test {
 protected:
  StateUsers() {
    EXPECT_EQ(::chmod(directory_.path().c_str(), 0711), 0);
    for (const std::string& path : {run_, state_}) {
      EXPECT_EQ(::mkdir(path.c_str(), 0700), 0);
      EXPECT_EQ(::chown(path.c_str(), kOwner, kOwner), 0);
    }
  }

  // In a process of its own: the service reads its directories once, and users do not come back.
  static void RunAs(uid_t uid, const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
      if (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0) ::_exit(2);
      body();
      (void)::fflush(nullptr);
      ::_exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "as user " << uid;
  }

  TemporaryDirectory directory_;
  const std::string run_ = directory_.Path("run");
  const std::string state_ = directory_.Path("state");
  const ScopedEnvironment runtime_variable_{"KAVREL_RUNTIME_DIR", run_};
  const ScopedEnvironment state_variable_{"KAVREL_STATE_DIR", state_};
  const ScopedEnvironment log_{"KAVREL_LOG", "none"};
};

// As the viewer does, which also writes what has no setter.
int Put(const PropertyInfo& property, int value) {
  switch (property.type) {
    case PropertyType::String:
      return vconf_set_str(property.key, std::to_string(value).c_str());
    case PropertyType::Locked:
      return vconf_set_str(property.key, value != 0 ? "locked" : "unlocked");
    case PropertyType::Bool:
      return vconf_set_bool(property.key, value);
    case PropertyType::Int:
      break;
  }
  return vconf_set_int(property.key, value);
}

int Get(const PropertyInfo& property, int* value) {
  if (property.get_number != nullptr) return property.get_number(value);
  if (property.get_locked == nullptr) return property.get_status();
  bool locked = false;
  const int result = property.get_locked(&locked);
  *value = locked ? 1 : 0;
  return result;
}

void ExpectValues() {
  for (const PropertyInfo& property : kProperties) {
    int value = 1;
    EXPECT_EQ(Get(property, &value), 0) << property.name;
    EXPECT_EQ(value, 1) << property.name;
  }
}

void ExpectEverythingRefused() {
  for (const PropertyInfo& property : kProperties) {
    int value = -77;
    EXPECT_EQ(Get(property, &value), -1) << property.name;
    EXPECT_NE(Put(property, 0), 0) << property.name;
    if (property.set_number != nullptr) {
      EXPECT_EQ(property.set_number(0), -1) << property.name;
    }
    if (property.set_text != nullptr) {
      EXPECT_EQ(property.set_text("forged"), -1) << property.name;
    }
  }
}

TEST_F(StateUsers, NobodyElseReadsOrWritesAnyProperty) {
  RunAs(kOwner, [] {
    for (const PropertyInfo& property : kProperties) EXPECT_EQ(Put(property, 1), 0) << property.key;
  });
  RunAs(kStranger, ExpectEverythingRefused);
  // Where others may pass, the store's own directory keeps them out.
  for (const std::string& path : {run_, state_}) ASSERT_EQ(::chmod(path.c_str(), 0711), 0);
  RunAs(kStranger, ExpectEverythingRefused);
  // Not even root: it does not trust what another user could change under it.
  RunAs(0, ExpectEverythingRefused);
  RunAs(kOwner, ExpectValues);
}

// Who is first does not matter: a stranger makes no store in a directory that is not its own.
TEST_F(StateUsers, StrangerWhoIsFirstKeepsNobodyOut) {
  RunAs(kStranger, ExpectEverythingRefused);
  RunAs(kOwner, [] {
    for (const PropertyInfo& property : kProperties) EXPECT_EQ(Put(property, 1), 0) << property.key;
  });
  RunAs(kOwner, ExpectValues);
}

}  // namespace
