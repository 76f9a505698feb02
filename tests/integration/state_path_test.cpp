// The state of the viewer as other processes see it, through the exported functions and the
// platform's store.
#include <gtest/gtest.h>
#include <kavrel/state_properties.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>

#include "child_process.h"
#include "temporary_directory.h"

namespace kavrel_test {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;

/// A process that uses the state API as the test tells it.
class Client {
 public:
  Client(const std::string& runtime_directory, const std::string& state_directory)
      : process_(ChildOptions{.arguments = {KAVREL_STATE_CLIENT},
                              .environment = {{"KAVREL_RUNTIME_DIR", runtime_directory},
                                              {"KAVREL_STATE_DIR", state_directory},
                                              {"KAVREL_LOG", "none"}}}) {}

  /// Sends a command and waits for its answer; "" when there is none.
  std::string Tell(const std::string& command, const std::string& answer_begins) {
    process_.WriteInput(command + '\n');
    return process_.WaitForLine(answer_begins).value_or("");
  }

  std::string Get(const std::string& name) { return Tell("get " + name, "got " + name); }
  bool Set(const std::string& name, const std::string& value) {
    return Tell("set " + name + ' ' + value, "set ") == "set " + name + " 0";
  }
  bool Put(const std::string& type, const std::string& key, const std::string& value) {
    return Tell("put " + type + ' ' + key + ' ' + value, "put ") == "put " + type + " 0";
  }
  bool Watch(const std::string& name) {
    return Tell("watch " + name, "watch ") == "watch " + name + " 0";
  }
  bool Unwatch(const std::string& name) {
    return Tell("unwatch " + name, "unwatch ") == "unwatch " + name + " 0";
  }

  /// The next change that this process is told of; "" when none comes.
  std::string NextChange() { return process_.WaitForLine("change of ").value_or(""); }

  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

class StatePath : public ::testing::Test {
 protected:
  std::unique_ptr<Client> Start() { return std::make_unique<Client>(runtime_, state_); }

  TemporaryDirectory directory_;
  const std::string runtime_ = directory_.Path("run");
  const std::string state_ = directory_.Path("state");
};

std::string SampleOf(PropertyType type, bool first) {
  switch (type) {
    case PropertyType::String:
      return first ? "one" : "two";
    case PropertyType::Locked:
      return first ? "locked" : "unlocked";
    case PropertyType::Bool:
      return first ? "1" : "0";
    case PropertyType::Int:
      break;
  }
  return first ? "7" : "-8";
}

std::string StoreTypeOf(PropertyType type) {
  if (type == PropertyType::Locked) return "string";
  return PropertyTypeName(type);
}

// With the setter where there is one, else as the viewer does it.
bool Write(Client& writer, const PropertyInfo& property, bool first) {
  const std::string value = SampleOf(property.type, first);
  return property.IsWritable() ? writer.Set(property.name, value)
                               : writer.Put(StoreTypeOf(property.type), property.key, value);
}

std::string ExpectedGet(const PropertyInfo& property, bool first) {
  const std::string begin = std::string("got ") + property.name + " 0";
  if (property.type == PropertyType::String) return begin;
  if (property.type == PropertyType::Locked) return begin + (first ? " 1" : " 0");
  return begin + ' ' + SampleOf(property.type, first);
}

// Every property: an old value is read by who comes later, a change is seen by who watches.
TEST_F(StatePath, EveryPropertyTravelsToAnotherProcess) {
  const auto writer = Start();
  for (const PropertyInfo& property : kProperties) {
    ASSERT_TRUE(Write(*writer, property, true)) << property.name;
  }
  const auto watcher = Start();
  for (const PropertyInfo& property : kProperties) {
    EXPECT_EQ(watcher->Get(property.name), ExpectedGet(property, true));
    if (!property.IsWatchable()) continue;
    ASSERT_TRUE(watcher->Watch(property.name)) << property.name;
  }
  for (const PropertyInfo& property : kProperties) {
    ASSERT_TRUE(Write(*writer, property, false)) << property.name;
    if (property.IsWatchable()) {
      ASSERT_EQ(watcher->NextChange(), std::string("change of ") + property.name + ": " +
                                           StoreTypeOf(property.type) + ' ' +
                                           SampleOf(property.type, false));
    }
    EXPECT_EQ(watcher->Get(property.name), ExpectedGet(property, false));
  }
}

TEST_F(StatePath, MissingPropertiesAndThoseOfAnotherTypeCannotBeRead) {
  const auto client = Start();
  for (const PropertyInfo& property : kProperties) {
    const std::string failed = std::string("got ") + property.name + " -1";
    EXPECT_TRUE(client->Get(property.name).starts_with(failed)) << property.name;
    const bool is_int = property.type == PropertyType::Int;
    ASSERT_TRUE(client->Put(is_int ? "bool" : "int", property.key, "1"));
    EXPECT_TRUE(client->Get(property.name).starts_with(failed)) << property.name;
  }
}

TEST_F(StatePath, WriterSeesItsOwnChange) {
  const auto client = Start();
  ASSERT_TRUE(client->Watch("pip_focus"));
  ASSERT_TRUE(client->Set("pip_focus", "1"));
  EXPECT_EQ(client->NextChange(), "change of pip_focus: int 1");
}

TEST_F(StatePath, EveryWatchingProcessIsTold) {
  const auto writer = Start();
  const auto first = Start();
  const auto second = Start();
  ASSERT_TRUE(first->Watch("bg_executable"));
  ASSERT_TRUE(second->Watch("bg_executable"));
  ASSERT_TRUE(writer->Set("bg_executable", "1"));
  EXPECT_EQ(first->NextChange(), "change of bg_executable: int 1");
  EXPECT_EQ(second->NextChange(), "change of bg_executable: int 1");
}

// The property's key has another name.
TEST_F(StatePath, DirectionKeyWatcherSeesBannerShow) {
  const auto writer = Start();
  const auto watcher = Start();
  ASSERT_TRUE(watcher->Watch("use_4_direction_key"));
  ASSERT_TRUE(writer->Put("int", "memory/kavrel/banner_show", "1"));
  EXPECT_EQ(watcher->NextChange(), "change of use_4_direction_key: int 1");
  EXPECT_EQ(watcher->Get("use_4_direction_key"), "got use_4_direction_key 0 1");
}

TEST_F(StatePath, RatingLockWatcherGetsTheTextItsReaderABool) {
  const auto viewer = Start();
  const auto watcher = Start();
  ASSERT_TRUE(watcher->Watch("rating_locked"));
  for (const auto& [text, locked] : {std::pair{"locked", "1"}, {"unlocked", "0"}, {"?", "0"}}) {
    ASSERT_TRUE(viewer->Put("string", "memory/kavrel/rating_locked", text));
    ASSERT_EQ(watcher->NextChange(), std::string("change of rating_locked: string ") + text);
    EXPECT_EQ(watcher->Get("rating_locked"), std::string("got rating_locked 0 ") + locked);
  }
}

TEST_F(StatePath, UnwatchedKeyIsSilent) {
  const auto writer = Start();
  const auto watcher = Start();
  ASSERT_TRUE(watcher->Watch("pip_focus"));
  ASSERT_TRUE(watcher->Watch("bg_executable"));
  ASSERT_TRUE(watcher->Unwatch("pip_focus"));
  ASSERT_TRUE(writer->Set("pip_focus", "1"));
  ASSERT_TRUE(writer->Set("bg_executable", "1"));
  EXPECT_EQ(watcher->NextChange(), "change of bg_executable: int 1") << "nothing before it";
}

TEST_F(StatePath, BurstEndsWithItsLastValue) {
  const auto writer = Start();
  const auto watcher = Start();
  ASSERT_TRUE(watcher->Watch("mainscreen_signal_state"));
  EXPECT_EQ(writer->Tell("count mainscreen_signal_state 10000", "count "),
            "count mainscreen_signal_state 0");
  std::string change;
  int previous = 0;
  while (previous < 10000) {
    change = watcher->NextChange();
    ASSERT_TRUE(change.starts_with("change of mainscreen_signal_state: int ")) << change;
    const int value = std::stoi(change.substr(change.rfind(' ')));
    EXPECT_GT(value, previous) << "values may be merged, but neither repeated nor turned around";
    previous = value;
  }
}

// The watcher is stopped while everything happens.
TEST_F(StatePath, StoppedWatcherIsToldWhatHoldsWhenItGoesOn) {
  const auto writer = Start();
  const auto watcher = Start();
  ASSERT_TRUE(watcher->Watch("mainscreen_signal_state"));
  watcher->process().Signal(SIGSTOP);
  EXPECT_EQ(writer->Tell("count mainscreen_signal_state 1000", "count "),
            "count mainscreen_signal_state 0");
  watcher->process().Signal(SIGCONT);
  std::string change;
  while (change != "change of mainscreen_signal_state: int 1000") {
    change = watcher->NextChange();
    ASSERT_NE(change, "");
  }
}

TEST_F(StatePath, DurableKeysSurviveAKillAndTheRuntimeDirectory) {
  const auto writer = Start();
  ASSERT_TRUE(writer->Set("db_serdes_error", "7"));
  ASSERT_TRUE(writer->Set("memory_serdes_error", "8"));
  writer->process().Kill();

  const auto same_boot = Start();
  EXPECT_EQ(same_boot->Get("db_serdes_error"), "got db_serdes_error 0 7");
  EXPECT_EQ(same_boot->Get("memory_serdes_error"), "got memory_serdes_error 0 8");

  Client next_boot(directory_.Path("fresh"), state_);
  EXPECT_EQ(next_boot.Get("db_serdes_error"), "got db_serdes_error 0 7");
  EXPECT_EQ(next_boot.Get("memory_serdes_error"), "got memory_serdes_error -1 0");
}

// The program of the tutorial.
TEST_F(StatePath, ExampleFollowsTwoProperties) {
  const auto viewer = Start();
  ASSERT_TRUE(viewer->Set("pip_focus", "0"));
  ASSERT_TRUE(viewer->Put("string", "memory/kavrel/rating_locked", "unlocked"));
  ChildProcess example(ChildOptions{
      .arguments = {KAVREL_EXAMPLE_WATCHER},
      .environment = {
          {"KAVREL_RUNTIME_DIR", runtime_}, {"KAVREL_STATE_DIR", state_}, {"KAVREL_LOG", "none"}}});
  EXPECT_EQ(example.WaitForLine("pip focus"), "pip focus is 0");
  EXPECT_EQ(example.WaitForLine("rating"), "rating is open");
  EXPECT_TRUE(example.WaitForLine("watching"));
  ASSERT_TRUE(viewer->Set("pip_focus", "1"));
  EXPECT_EQ(example.WaitForLine("pip focus"), "pip focus: 1");
  ASSERT_TRUE(viewer->Put("string", "memory/kavrel/rating_locked", "locked"));
  EXPECT_EQ(example.WaitForLine("rating"), "rating: locked");
  example.Signal(SIGINT);
  EXPECT_EQ(example.WaitForExit(), 0);
  EXPECT_TRUE(example.output().ends_with("ended\n")) << example.output();
}

}  // namespace
}  // namespace kavrel_test
