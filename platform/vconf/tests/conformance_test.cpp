// What every implementation of vconf.h does, whichever is linked: nothing here knows more than the
// header says.
#include <gtest/gtest.h>
#include <vconf.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "loop.h"
#include "test_directories.h"

namespace {

using kavrel_test::Loop;

std::string Text(const char* key) {
  char* text = vconf_get_str(key);
  std::string copy = text != nullptr ? text : "(null)";
  std::free(text);
  return copy;
}

struct Change {
  std::string key;
  int type = 0;
  int integer = 0;
  int truth = 0;
  std::string text;
};

void Keep(keynode_t* node, void* user_data) {
  Change change;
  change.key = vconf_keynode_get_name(node);
  change.type = vconf_keynode_get_type(node);
  if (change.type == VCONF_TYPE_INT) change.integer = vconf_keynode_get_int(node);
  if (change.type == VCONF_TYPE_BOOL) change.truth = vconf_keynode_get_bool(node);
  if (change.type == VCONF_TYPE_STRING) change.text = vconf_keynode_get_str(node);
  static_cast<std::vector<Change>*>(user_data)->push_back(change);
}

void Count(keynode_t*, void* user_data) {
  ++*static_cast<int*>(user_data);
}

class VconfConformance : public testing::TestWithParam<std::string> {
 protected:
  std::string Key(const std::string& name) const { return GetParam() + "/kavrel_test/" + name; }
};

TEST_P(VconfConformance, ReadsBackEachType) {
  const std::string integer = Key("types/int");
  const std::string truth = Key("types/bool");
  const std::string text = Key("types/text");
  int value = -1;
  for (const int number : {0, 1, -1, 2147483647, -2147483647 - 1}) {
    ASSERT_EQ(vconf_set_int(integer.c_str(), number), 0);
    ASSERT_EQ(vconf_get_int(integer.c_str(), &value), 0);
    EXPECT_EQ(value, number);
  }
  for (const int number : {0, 1}) {
    ASSERT_EQ(vconf_set_bool(truth.c_str(), number), 0);
    ASSERT_EQ(vconf_get_bool(truth.c_str(), &value), 0);
    EXPECT_EQ(value, number);
  }
  for (const char* words : {"locked", "", "100 % \n \xc3\xbc"}) {
    ASSERT_EQ(vconf_set_str(text.c_str(), words), 0);
    EXPECT_EQ(Text(text.c_str()), words);
  }
}

TEST_P(VconfConformance, FailsForMissingKeys) {
  const std::string missing = Key("missing");
  int value = 77;
  EXPECT_EQ(vconf_get_str(missing.c_str()), nullptr);
  EXPECT_LT(vconf_get_int(missing.c_str(), &value), 0);
  EXPECT_LT(vconf_get_bool(missing.c_str(), &value), 0);
  EXPECT_EQ(value, 77);
}

TEST_P(VconfConformance, NeverGivesOutAnotherType) {
  const std::string integer = Key("wrong/int");
  const std::string truth = Key("wrong/bool");
  const std::string text = Key("wrong/text");
  ASSERT_EQ(vconf_set_int(integer.c_str(), 1), 0);
  ASSERT_EQ(vconf_set_bool(truth.c_str(), 1), 0);
  ASSERT_EQ(vconf_set_str(text.c_str(), "1"), 0);
  int value = 77;
  EXPECT_LT(vconf_get_bool(integer.c_str(), &value), 0);
  EXPECT_LT(vconf_get_bool(text.c_str(), &value), 0);
  EXPECT_LT(vconf_get_int(truth.c_str(), &value), 0);
  EXPECT_LT(vconf_get_int(text.c_str(), &value), 0);
  EXPECT_EQ(value, 77);
  EXPECT_EQ(vconf_get_str(integer.c_str()), nullptr);
  EXPECT_EQ(vconf_get_str(truth.c_str()), nullptr);
}

TEST_P(VconfConformance, RefusesNullArguments) {
  const std::string key = Key("null");
  int value = 77;
  EXPECT_EQ(vconf_get_str(nullptr), nullptr);
  EXPECT_LT(vconf_get_int(nullptr, &value), 0);
  EXPECT_LT(vconf_get_bool(nullptr, &value), 0);
  EXPECT_LT(vconf_get_int(key.c_str(), nullptr), 0);
  EXPECT_LT(vconf_get_bool(key.c_str(), nullptr), 0);
  EXPECT_LT(vconf_set_int(nullptr, 1), 0);
  EXPECT_LT(vconf_set_bool(nullptr, 1), 0);
  EXPECT_LT(vconf_set_str(nullptr, "x"), 0);
  EXPECT_LT(vconf_set_str(key.c_str(), nullptr), 0);
  EXPECT_LT(vconf_notify_key_changed(nullptr, Count, nullptr), 0);
  EXPECT_LT(vconf_notify_key_changed(key.c_str(), nullptr, nullptr), 0);
  EXPECT_LT(vconf_ignore_key_changed(nullptr, Count), 0);
  EXPECT_EQ(vconf_get_str(key.c_str()), nullptr);
}

TEST_P(VconfConformance, TellsAboutChangesOfEachType) {
  const std::string key = Key("told");
  Loop loop;
  std::vector<Change> changes;
  ASSERT_EQ(vconf_notify_key_changed(key.c_str(), Keep, &changes), 0);

  ASSERT_EQ(vconf_set_int(key.c_str(), 5), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return changes.size() == 1; }));
  EXPECT_EQ(changes[0].key, key);
  EXPECT_EQ(changes[0].type, VCONF_TYPE_INT);
  EXPECT_EQ(changes[0].integer, 5);

  ASSERT_EQ(vconf_set_bool(key.c_str(), 1), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return changes.size() == 2; }));
  EXPECT_EQ(changes[1].type, VCONF_TYPE_BOOL);
  EXPECT_EQ(changes[1].truth, 1);

  ASSERT_EQ(vconf_set_str(key.c_str(), "unlocked"), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return changes.size() == 3; }));
  EXPECT_EQ(changes[2].type, VCONF_TYPE_STRING);
  EXPECT_EQ(changes[2].text, "unlocked");

  EXPECT_EQ(vconf_ignore_key_changed(key.c_str(), Keep), 0);
}

TEST_P(VconfConformance, TellsNothingBeforeAChange) {
  const std::string key = Key("quiet");
  const std::string other = Key("quiet/other");
  ASSERT_EQ(vconf_set_int(key.c_str(), 1), 0);
  Loop loop;
  int calls = 0;
  int others = 0;
  ASSERT_EQ(vconf_notify_key_changed(key.c_str(), Count, &calls), 0);
  std::vector<Change> changes;
  ASSERT_EQ(vconf_notify_key_changed(other.c_str(), Keep, &changes), 0);
  ASSERT_EQ(vconf_set_int(other.c_str(), ++others), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return !changes.empty(); }));
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(vconf_ignore_key_changed(key.c_str(), Count), 0);
  EXPECT_EQ(vconf_ignore_key_changed(other.c_str(), Keep), 0);
}

TEST_P(VconfConformance, EndsABurstWithTheLastValue) {
  const std::string key = Key("burst");
  Loop loop;
  std::vector<Change> changes;
  ASSERT_EQ(vconf_notify_key_changed(key.c_str(), Keep, &changes), 0);
  for (int value = 1; value <= 300; ++value) ASSERT_EQ(vconf_set_int(key.c_str(), value), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return !changes.empty() && changes.back().integer == 300; }));
  for (std::size_t i = 1; i < changes.size(); ++i) {
    EXPECT_LE(changes[i - 1].integer, changes[i].integer);
  }
  EXPECT_EQ(vconf_ignore_key_changed(key.c_str(), Keep), 0);
}

TEST_P(VconfConformance, TellsNothingAfterRemoval) {
  const std::string key = Key("removed");
  const std::string other = Key("removed/other");
  Loop loop;
  int calls = 0;
  std::vector<Change> changes;
  ASSERT_EQ(vconf_notify_key_changed(key.c_str(), Count, &calls), 0);
  ASSERT_EQ(vconf_notify_key_changed(other.c_str(), Keep, &changes), 0);
  ASSERT_EQ(vconf_set_int(key.c_str(), 1), 0);  // pending when the registration goes
  ASSERT_EQ(vconf_ignore_key_changed(key.c_str(), Count), 0);
  ASSERT_EQ(vconf_set_int(other.c_str(), 1), 0);
  ASSERT_TRUE(loop.RunUntil([&] { return !changes.empty(); }));
  EXPECT_EQ(calls, 0);
  EXPECT_LT(vconf_ignore_key_changed(key.c_str(), Count), 0);
  EXPECT_EQ(vconf_ignore_key_changed(other.c_str(), Keep), 0);
}

TEST(VconfKeynode, KnowsNothingOfANullNode) {
  EXPECT_EQ(vconf_keynode_get_name(nullptr), nullptr);
  EXPECT_EQ(vconf_keynode_get_str(nullptr), nullptr);
  EXPECT_LT(vconf_keynode_get_type(nullptr), 0);
  EXPECT_EQ(vconf_keynode_get_int(nullptr), 0);
  EXPECT_EQ(vconf_keynode_get_bool(nullptr), 0);
  EXPECT_EQ(vconf_keynode_get_dbl(nullptr), 0);
}

INSTANTIATE_TEST_SUITE_P(Families, VconfConformance, testing::Values("memory", "db"),
                         [](const auto& family) { return family.param; });

}  // namespace
