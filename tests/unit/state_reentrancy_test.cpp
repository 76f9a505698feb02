// What callbacks may do to the registry while it calls them: every pair of acts, by every pair of
// callbacks, against a model that says in the plainest way who is to be called.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "app_api/KavrelVconfInternal.h"
#include "state_fixture.h"

namespace kavrel_test {
namespace {

using kavrel::state::AssignNodeInfo;
using kavrel::state::KavrelRegisterValueCb;
using kavrel::state::KavrelUnregisterValueCb;

// Slots 0 to 2 watch "k" and slots 0 and 3 watch "other" when a scenario begins; 4 watches nothing.
constexpr int kWatchers = 3;
constexpr int kNewcomer = 4;
constexpr int kSlotCount = 5;

enum class Act {
  Nothing,
  LeaveItself,
  LeaveEarlier,  // the one before; the first one has none before it
  LeaveLater,    // the one after; the last one has none after it
  LeaveLast,
  LeaveAll,
  JoinNewcomer,
  JoinItself,  // refused unless it has left
  LeaveAndJoinItself,
  LeaveAndJoinLater,
  LeaveAllAndJoinAll,
  LeaveOther,
  JoinOther,
  LeaveAllOfOther,
  DeliverAgain,
  DeliverOther,
  Count
};

const char* NameOf(Act act) {
  static constexpr std::array<const char*, static_cast<std::size_t>(Act::Count)> names = {
      "Nothing",           "LeaveItself",        "LeaveEarlier",
      "LeaveLater",        "LeaveLast",          "LeaveAll",
      "JoinNewcomer",      "JoinItself",         "LeaveAndJoinItself",
      "LeaveAndJoinLater", "LeaveAllAndJoinAll", "LeaveOther",
      "JoinOther",         "LeaveAllOfOther",    "DeliverAgain",
      "DeliverOther"};
  return names.at(static_cast<std::size_t>(act));
}

// Everything observable: calls with their user data and value, and results of the functions.
using Trace = std::vector<std::string>;

// What acts are carried out on: the library, or the model of it.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual int Join(const std::string& key, int slot) = 0;
  virtual int Leave(const std::string& key, int slot) = 0;
  virtual void Deliver(const std::string& key, int value) = 0;

  Trace trace;
};

// Each callback carries out its acts the first time it is called, and then never again.
class Script {
 public:
  void Add(int slot, Act act) { acts_.emplace_back(slot, act); }

  void Run(Subject& subject, int slot) {
    const auto mine = [slot](const auto& entry) { return entry.first == slot; };
    std::vector<std::pair<int, Act>> now;
    std::copy_if(acts_.begin(), acts_.end(), std::back_inserter(now), mine);
    acts_.erase(std::remove_if(acts_.begin(), acts_.end(), mine), acts_.end());
    for (const auto& [unused, act] : now) Carry(subject, slot, act);
  }

 private:
  static void Join(Subject& subject, const std::string& key, int slot) {
    const int result = subject.Join(key, slot);
    subject.trace.push_back("join " + key + std::to_string(slot) + '=' + std::to_string(result));
  }

  static void Leave(Subject& subject, const std::string& key, int slot) {
    const int result = subject.Leave(key, slot);
    subject.trace.push_back("leave " + key + std::to_string(slot) + '=' + std::to_string(result));
  }

  static void LeaveAll(Subject& subject, const std::string& key) {
    for (int slot = 0; slot < kSlotCount; ++slot) Leave(subject, key, slot);
  }

  static void Carry(Subject& subject, int slot, Act act);

  std::vector<std::pair<int, Act>> acts_;
};

void Script::Carry(Subject& subject, int slot, Act act) {
  const int later = slot + 1;
  switch (act) {
    case Act::LeaveItself:
      return Leave(subject, "k", slot);
    case Act::LeaveEarlier:
      return Leave(subject, "k", std::max(slot - 1, 0));
    case Act::LeaveLater:
      return Leave(subject, "k", later);
    case Act::LeaveLast:
      return Leave(subject, "k", kWatchers - 1);
    case Act::LeaveAll:
      return LeaveAll(subject, "k");
    case Act::JoinNewcomer:
      return Join(subject, "k", kNewcomer);
    case Act::JoinItself:
      return Join(subject, "k", slot);
    case Act::LeaveAndJoinItself:
      Leave(subject, "k", slot);
      return Join(subject, "k", slot);
    case Act::LeaveAndJoinLater:
      Leave(subject, "k", later);
      return Join(subject, "k", later);
    case Act::LeaveAllAndJoinAll:
      LeaveAll(subject, "k");
      for (int each = kWatchers - 1; each >= 0; --each) Join(subject, "k", each);
      return;
    case Act::LeaveOther:
      return Leave(subject, "other", 3);
    case Act::JoinOther:
      return Join(subject, "other", slot);
    case Act::LeaveAllOfOther:
      return LeaveAll(subject, "other");
    case Act::DeliverAgain:
      return subject.Deliver("k", 100 + slot);
    case Act::DeliverOther:
      return subject.Deliver("other", 200 + slot);
    case Act::Nothing:
    case Act::Count:
      return;
  }
}

std::string CallText(int slot, int value, int data_of) {
  std::ostringstream text;
  text << "call " << slot << " value " << value << " data of " << data_of;
  return text.str();
}

// The rule in its plainest form: a delivery calls who is registered when it begins, each in turn,
// unless that registration has ended meanwhile.
class Model : public Subject {
 public:
  explicit Model(Script script) : script_(std::move(script)) {}

  int Join(const std::string& key, int slot) override {
    auto [watch, is_first] = keys_.try_emplace(key);
    if (is_first) watch->second.data_of = slot;
    auto& entries = watch->second.entries;
    if (FindSlot(entries, slot) != entries.end()) return -1;
    entries.push_back({next_id_++, slot});
    return 0;
  }

  int Leave(const std::string& key, int slot) override {
    const auto watch = keys_.find(key);
    if (watch == keys_.end()) return 0;
    auto& entries = watch->second.entries;
    const auto found = FindSlot(entries, slot);
    if (found == entries.end()) return -1;
    entries.erase(found);
    if (entries.empty()) keys_.erase(watch);
    return 0;
  }

  void Deliver(const std::string& key, int value) override {
    const auto watch = keys_.find(key);
    if (watch == keys_.end()) return;
    const Watch at_the_start = watch->second;
    for (const Entry& entry : at_the_start.entries) {
      if (!IsLive(key, entry)) continue;
      trace.push_back(CallText(entry.slot, value, at_the_start.data_of));
      script_.Run(*this, entry.slot);
    }
  }

 private:
  struct Entry {
    int id;
    int slot;
  };
  struct Watch {
    int data_of = 0;
    std::vector<Entry> entries;
  };

  static std::vector<Entry>::iterator FindSlot(std::vector<Entry>& entries, int slot) {
    return std::find_if(entries.begin(), entries.end(),
                        [slot](const Entry& entry) { return entry.slot == slot; });
  }

  bool IsLive(const std::string& key, const Entry& wanted) const {
    const auto watch = keys_.find(key);
    return watch != keys_.end() &&
           std::any_of(watch->second.entries.begin(), watch->second.entries.end(),
                       [&](const Entry& entry) { return entry.id == wanted.id; });
  }

  Script script_;
  std::map<std::string, Watch> keys_;
  int next_id_ = 0;
};

class Library : public Subject {
 public:
  Library(FakeVconf& store, Script script) : store_(store), script_(std::move(script)) {
    current_ = this;
  }

  ~Library() override {
    for (const char* key : {"k", "other"}) {
      for (int slot = 0; slot < kSlotCount; ++slot) Library::Leave(key, slot);
    }
    current_ = nullptr;
  }

  int Join(const std::string& key, int slot) override {
    return KavrelRegisterValueCb(key, Callback(slot), &AssignNodeInfo,
                                 &data_.at(static_cast<std::size_t>(slot)));
  }

  int Leave(const std::string& key, int slot) override {
    return KavrelUnregisterValueCb(key, Callback(slot));
  }

  void Deliver(const std::string& key, int value) override {
    store_.Deliver(key, VconfValue::Int(value));
  }

 private:
  template <int kSlot>
  static void OnChange(valuenode_s* record, void* user_data) {
    const auto data_of = static_cast<int*>(user_data) - current_->data_.data();
    current_->trace.push_back(CallText(kSlot, record->value.intValue, static_cast<int>(data_of)));
    current_->script_.Run(*current_, kSlot);
  }

  static kavrel_value_changed_cb Callback(int slot) {
    static constexpr std::array<kavrel_value_changed_cb, kSlotCount> all = {
        &OnChange<0>, &OnChange<1>, &OnChange<2>, &OnChange<3>, &OnChange<4>};
    return all.at(static_cast<std::size_t>(slot));
  }

  static inline Library* current_ = nullptr;

  FakeVconf& store_;
  Script script_;
  std::array<int, kSlotCount> data_{};
};

// One change in which the acts happen, and the next one, in which everybody is quiet.
Trace Play(Subject& subject) {
  for (int slot = 0; slot < kWatchers; ++slot) subject.Join("k", slot);
  subject.Join("other", 3);
  subject.Join("other", 0);
  subject.Deliver("k", 1);
  subject.trace.push_back("next change");
  subject.Deliver("k", 2);
  subject.Deliver("other", 3);
  return subject.trace;
}

class StateReentrancy : public ::testing::TestWithParam<Act> {
 protected:
  void Compare(const Script& script, const std::string& scenario) {
    Model model(script);
    const Trace expected = Play(model);
    Library library(store_, script);
    EXPECT_EQ(Play(library), expected) << scenario;
  }

 private:
  FakeVconf store_;
};

TEST_P(StateReentrancy, AgreesWithTheModelBesideEveryOtherAct) {
  for (int second = 0; second < static_cast<int>(Act::Count); ++second) {
    for (int first_slot = 0; first_slot < kWatchers; ++first_slot) {
      for (int second_slot = 0; second_slot < kWatchers; ++second_slot) {
        Script script;
        script.Add(first_slot, GetParam());
        script.Add(second_slot, static_cast<Act>(second));
        Compare(script, std::string(NameOf(GetParam())) + " by " + std::to_string(first_slot) +
                            ", " + NameOf(static_cast<Act>(second)) + " by " +
                            std::to_string(second_slot));
      }
    }
  }
}

std::vector<Act> AllActs() {
  std::vector<Act> all;
  all.reserve(static_cast<int>(Act::Count));
  for (int act = 0; act < static_cast<int>(Act::Count); ++act) all.push_back(static_cast<Act>(act));
  return all;
}

INSTANTIATE_TEST_SUITE_P(Acts, StateReentrancy, ::testing::ValuesIn(AllActs()),
                         [](const auto& tested) { return std::string(NameOf(tested.param)); });

// The same rule spelled out by hand, so that model and library cannot be wrong together.
class StateReentrancyExamples : public StateTest {
 protected:
  Trace Play(std::initializer_list<std::pair<int, Act>> acts) {
    Script script;
    for (const auto& [slot, act] : acts) script.Add(slot, act);
    Library library(store_, script);
    return kavrel_test::Play(library);
  }
};

Trace NextChange(std::initializer_list<std::string> calls) {
  Trace trace = {"next change"};
  trace.insert(trace.end(), calls);
  trace.insert(trace.end(), {"call 3 value 3 data of 3", "call 0 value 3 data of 3"});
  return trace;
}

Trace operator+(Trace first, const Trace& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(StateReentrancyExamples, OneThatLeavesIsNotCalledAgain) {
  const Trace during = {"call 0 value 1 data of 0", "leave k0=0", "call 1 value 1 data of 0",
                        "call 2 value 1 data of 0"};
  EXPECT_EQ(Play({{0, Act::LeaveItself}}),
            during + NextChange({"call 1 value 2 data of 0", "call 2 value 2 data of 0"}));
}

TEST_F(StateReentrancyExamples, OneThatIsRemovedBeforeItsTurnIsNotCalled) {
  const Trace during = {"call 0 value 1 data of 0", "leave k1=0", "call 2 value 1 data of 0"};
  EXPECT_EQ(Play({{0, Act::LeaveLater}}),
            during + NextChange({"call 0 value 2 data of 0", "call 2 value 2 data of 0"}));
}

TEST_F(StateReentrancyExamples, NewcomerIsCalledFromTheNextChangeOn) {
  const Trace during = {"call 0 value 1 data of 0", "join k4=0", "call 1 value 1 data of 0",
                        "call 2 value 1 data of 0"};
  EXPECT_EQ(Play({{0, Act::JoinNewcomer}}),
            during + NextChange({"call 0 value 2 data of 0", "call 1 value 2 data of 0",
                                 "call 2 value 2 data of 0", "call 4 value 2 data of 0"}));
}

TEST_F(StateReentrancyExamples, AllLeaveAndJoinAgainInAnotherOrder) {
  const Trace trace = Play({{1, Act::LeaveAllAndJoinAll}});
  // 2 is registered when its turn comes, but not as the one that it was when the change came.
  EXPECT_EQ(std::count(trace.begin(), trace.end(), "call 2 value 1 data of 0"), 0);
  const auto next = std::find(trace.begin(), trace.end(), "next change");
  ASSERT_NE(next, trace.end());
  EXPECT_EQ(Trace(next, trace.end()),
            NextChange({"call 2 value 2 data of 2", "call 1 value 2 data of 2",
                        "call 0 value 2 data of 2"}));
}

TEST_F(StateReentrancyExamples, NestedDeliveryCallsEverybodyOnceMore) {
  const Trace during = {"call 0 value 1 data of 0",   "call 1 value 1 data of 0",
                        "call 0 value 101 data of 0", "call 1 value 101 data of 0",
                        "call 2 value 101 data of 0", "call 2 value 1 data of 0"};
  EXPECT_EQ(Play({{1, Act::DeliverAgain}}),
            during + NextChange({"call 0 value 2 data of 0", "call 1 value 2 data of 0",
                                 "call 2 value 2 data of 0"}));
}

// A delivery counts who is registered when it begins, also inside another one.
TEST_F(StateReentrancyExamples, NestedDeliveryDoesNotCountThoseWhoLeft) {
  Play({{0, Act::LeaveLater}, {0, Act::DeliverAgain}});
  const auto timeline = TakeTimeline();
  const auto counted = [&](int callbacks) {
    return std::count(timeline.begin(), timeline.end(),
                      Info(kInternalFile, "KavrelVconfCb",
                           "value cb has been registered. Number of callbacks: [" +
                               std::to_string(callbacks) + "]\n"));
  };
  EXPECT_EQ(counted(3), 1);
  EXPECT_EQ(counted(2), 3) << "the nested delivery, the next change, and the other key";
}

TEST_F(StateReentrancyExamples, LastToLeaveTakesTheNotificationAwayAtOnce) {
  Script script;
  script.Add(0, Act::LeaveAll);
  Library library(store_, script);
  for (int slot = 0; slot < kWatchers; ++slot) library.Join("k", slot);
  library.Deliver("k", 1);
  EXPECT_TRUE(store_.registrations().empty());
}

}  // namespace
}  // namespace kavrel_test
