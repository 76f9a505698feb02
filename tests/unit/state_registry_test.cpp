// The registry of change callbacks: what it asks the store, what it logs, who is called with what.
#include <gtest/gtest.h>

#include <string>

#include "app_api/KavrelVconfInternal.h"
#include "app_api/RatingLock.h"
#include "state_fixture.h"

namespace kavrel_test {
namespace {

using kavrel::state::AssignNodeInfo;
using kavrel::state::AssignRatingLockedInfo;
using kavrel::state::KavrelRegisterValueCb;
using kavrel::state::KavrelUnregisterValueCb;
using kavrel::state::KavrelVconfCb;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

int Register(const std::string& key, int slot, void* user_data = nullptr) {
  return KavrelRegisterValueCb(key, Slot(slot), &AssignNodeInfo, user_data);
}

int Unregister(const std::string& key, int slot) {
  return KavrelUnregisterValueCb(key, Slot(slot));
}

std::string Registering(const std::string& text) {
  return Info(kInternalFile, "KavrelRegisterValueCb", text);
}

std::string Unregistering(const std::string& text) {
  return Info(kInternalFile, "KavrelUnregisterValueCb", text);
}

std::string Delivering(const std::string& text) {
  return Info(kInternalFile, "KavrelVconfCb", text);
}

std::string NotifyCall(const std::string& key, void* user_data) {
  return "vconf_notify_key_changed(" + key + ", " + Address(&KavrelVconfCb) + ", " +
         Address(user_data) + ")";
}

std::string IgnoreCall(const std::string& key) {
  return "vconf_ignore_key_changed(" + key + ", " + Address(&KavrelVconfCb) + ")";
}

class StateRegistry : public StateTest {
 protected:
  // The registry is the process's: what a test leaves in it would meet the next test.
  ~StateRegistry() override {
    for (const char* key : {"k", "other", ""}) {
      for (int slot = 0; slot < kSlots; ++slot) Unregister(key, slot);
    }
  }

  int first_data_ = 0;
  int second_data_ = 0;
};

TEST_F(StateRegistry, FirstRegistrationInstallsTheNotification) {
  EXPECT_EQ(Register("k", 0, &first_data_), 0);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Registering("start\n"), Registering("key: [k]\n"),
                  Registering("vconf cb has not been registered\n"),
                  Registering("register vconf cb of kavrel\n"), NotifyCall("k", &first_data_),
                  Registering("callback registered (" + Address(Slot(0)) + ")\n")));
}

TEST_F(StateRegistry, FurtherRegistrationAsksTheStoreNothing) {
  Register("k", 0, &first_data_);
  TakeTimeline();
  EXPECT_EQ(Register("k", 1, &second_data_), 0);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Registering("start\n"), Registering("key: [k]\n"),
                          Registering("check if the value cb has been registered already\n"),
                          Registering("callback registered (" + Address(Slot(1)) + ")\n")));
}

TEST_F(StateRegistry, SameFunctionOnAKeyIsRefusedWhateverItsUserData) {
  Register("k", 0, &first_data_);
  TakeTimeline();
  EXPECT_EQ(Register("k", 0, &second_data_), -1);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Registering("start\n"), Registering("key: [k]\n"),
                          Registering("check if the value cb has been registered already\n"),
                          Error(kInternalFile, "KavrelRegisterValueCb",
                                "already registered cb (" + Address(Slot(0)) + ")\n")));
  store_.Deliver("k", VconfValue::Int(1));
  EXPECT_EQ(TakeDeliveries().size(), 1U);
}

TEST_F(StateRegistry, SameFunctionOnTwoKeysIsTwoRegistrations) {
  EXPECT_EQ(Register("k", 0), 0);
  EXPECT_EQ(Register("other", 0), 0);
  EXPECT_EQ(store_.registrations().size(), 2U);
  EXPECT_EQ(Unregister("k", 0), 0);
  store_.Deliver("other", VconfValue::Int(1));
  EXPECT_EQ(TakeDeliveries().size(), 1U);
}

TEST_F(StateRegistry, NullFunctionIsRefused) {
  EXPECT_EQ(KavrelRegisterValueCb("k", nullptr, &AssignNodeInfo, nullptr), -1);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Registering("start\n"), Registering("key: [k]\n"),
                                          Error(kInternalFile, "KavrelRegisterValueCb",
                                                "callback function is NULL\n")));
  EXPECT_EQ(KavrelUnregisterValueCb("k", nullptr), -1);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre(Unregistering("start\n"), Error(kInternalFile, "KavrelUnregisterValueCb",
                                                          "callback function is NULL\n")));
}

TEST_F(StateRegistry, StoreThatRefusesLeavesTheKeyUnwatched) {
  store_.Fail("vconf_notify_key_changed");
  EXPECT_EQ(Register("k", 0, &first_data_), -1);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Registering("start\n"), Registering("key: [k]\n"),
                  Registering("vconf cb has not been registered\n"),
                  Registering("register vconf cb of kavrel\n"), NotifyCall("k", &first_data_),
                  Error(kInternalFile, "KavrelRegisterValueCb", "failed to register callback\n")));
  // As for a key that nobody ever watched.
  EXPECT_EQ(Unregister("k", 0), 0);
  EXPECT_THAT(TakeTimeline(), ElementsAre(Unregistering("start\n"),
                                          Error(kInternalFile, "KavrelUnregisterValueCb",
                                                "callback list is not initialized yet\n")));
  EXPECT_EQ(Register("k", 0, &second_data_), 0);
  EXPECT_EQ(store_.registrations().at(0).user_data, &second_data_);
}

TEST_F(StateRegistry, RemovalFromAnUnwatchedKeySucceeds) {
  EXPECT_EQ(Unregister("k", 0), 0);
  EXPECT_THAT(store_.TakeCalls(), IsEmpty());
}

TEST_F(StateRegistry, RemovalOfAStrangerFromAWatchedKeyFails) {
  Register("k", 0);
  TakeTimeline();
  EXPECT_EQ(Unregister("k", 1), -1);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Unregistering("start\n"), Unregistering("value cb for (k) has been registered\n"),
                  Error(kInternalFile, "KavrelUnregisterValueCb",
                        "cb (" + Address(Slot(1)) + ") is not registered \n")));
}

TEST_F(StateRegistry, RemovalOfOneOfTwoKeepsTheNotification) {
  Register("k", 0);
  Register("k", 1);
  TakeTimeline();
  EXPECT_EQ(Unregister("k", 0), 0);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Unregistering("start\n"), Unregistering("value cb for (k) has been registered\n"),
                  Unregistering("cb for kavrel unregistered (" + Address(Slot(0)) + ")\n")));
  EXPECT_EQ(store_.registrations().size(), 1U);
}

TEST_F(StateRegistry, RemovalOfTheLastTakesTheNotificationAway) {
  Register("k", 0);
  TakeTimeline();
  EXPECT_EQ(Unregister("k", 0), 0);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Unregistering("start\n"), Unregistering("value cb for (k) has been registered\n"),
                  Unregistering("cb for kavrel unregistered (" + Address(Slot(0)) + ")\n"),
                  Unregistering("unregister vconf cb for (k)\n"), IgnoreCall("k")));
  EXPECT_EQ(store_.Deliver("k", VconfValue::Int(1)), 0U);
}

TEST_F(StateRegistry, KeyIsErasedAlsoWhenTheStoreRefuses) {
  Register("k", 0, &first_data_);
  TakeTimeline();
  store_.Fail("vconf_ignore_key_changed");
  EXPECT_EQ(Unregister("k", 0), 0);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Unregistering("start\n"), Unregistering("value cb for (k) has been registered\n"),
                  Unregistering("cb for kavrel unregistered (" + Address(Slot(0)) + ")\n"),
                  Unregistering("unregister vconf cb for (k)\n"), IgnoreCall("k"),
                  Error(kInternalFile, "KavrelUnregisterValueCb", "failed to unregister cb\n")));
  // The notification is still there and finds nobody.
  EXPECT_EQ(store_.Deliver("k", VconfValue::Int(1)), 1U);
  EXPECT_THAT(TakeDeliveries(), IsEmpty());
  // The next registration asks the store again, and passes its answer on.
  EXPECT_EQ(Register("k", 0, &second_data_), -1);
  EXPECT_THAT(store_.TakeCalls(), ::testing::Contains(NotifyCall("k", &second_data_)));
}

TEST_F(StateRegistry, NewFirstRegistrationBringsItsOwnUserData) {
  Register("k", 0, &first_data_);
  Unregister("k", 0);
  EXPECT_EQ(Register("k", 0, &second_data_), 0);
  store_.Deliver("k", VconfValue::Int(5));
  EXPECT_THAT(TakeDeliveries(), ElementsAre(Delivery{0, KAVREL_VALUE_INT, "", 5, &second_data_}));
}

TEST_F(StateRegistry, EveryCallbackGetsTheFirstRegistrantsUserData) {
  Register("k", 2, &first_data_);
  Register("k", 0, &second_data_);
  Register("k", 1, nullptr);
  store_.Deliver("k", VconfValue::Int(5));
  EXPECT_THAT(TakeDeliveries(), ElementsAre(Delivery{2, KAVREL_VALUE_INT, "", 5, &first_data_},
                                            Delivery{0, KAVREL_VALUE_INT, "", 5, &first_data_},
                                            Delivery{1, KAVREL_VALUE_INT, "", 5, &first_data_}));
}

// It is the notification's, so that it stays also when the one who gave it has gone.
TEST_F(StateRegistry, FirstRegistrantsUserDataOutlivesItsRegistration) {
  Register("k", 0, &first_data_);
  Register("k", 1, &second_data_);
  Unregister("k", 0);
  store_.Deliver("k", VconfValue::Int(5));
  EXPECT_THAT(TakeDeliveries(), ElementsAre(Delivery{1, KAVREL_VALUE_INT, "", 5, &first_data_}));
}

TEST_F(StateRegistry, DeliveryAsksTheNodeAndLogsInThisOrder) {
  Register("k", 0);
  Register("k", 1);
  TakeTimeline();
  store_.Deliver("k", VconfValue::Int(7));
  const std::string assign_start = Info(kInternalFile, "AssignNodeInfo", "start\n");
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Delivering("start\n"), "vconf_keynode_get_name(k)", Delivering("keyName: k\n"),
                  Delivering("value cb has been registered. Number of callbacks: [2]\n"),
                  assign_start, "vconf_keynode_get_type(k)", "vconf_keynode_get_int(k)",
                  Delivering("process valueCb: " + Address(Slot(0)) + "\n"), assign_start,
                  "vconf_keynode_get_type(k)", "vconf_keynode_get_int(k)",
                  Delivering("process valueCb: " + Address(Slot(1)) + "\n")));
}

TEST_F(StateRegistry, LateDeliveryFindsNobody) {
  FakeVconf::DeliverLate(&KavrelVconfCb, nullptr, "k", VconfValue::Int(7));
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Delivering("start\n"), "vconf_keynode_get_name(k)", Delivering("keyName: k\n"),
                  Error(kInternalFile, "KavrelVconfCb",
                        "value cb has not been registered. nothing to call\n")));
}

TEST_F(StateRegistry, NodeWithoutANameFindsNobody) {
  KavrelVconfCb(nullptr, nullptr);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(Delivering("start\n"), "vconf_keynode_get_name(NULL)", Delivering("keyName: \n"),
                  Error(kInternalFile, "KavrelVconfCb",
                        "value cb has not been registered. nothing to call\n")));
}

TEST_F(StateRegistry, KeysAreToldApartByTheirBytes) {
  Register("k", 0);
  Register("", 1);
  store_.Deliver("K", VconfValue::Int(1));
  FakeVconf::DeliverLate(&KavrelVconfCb, nullptr, "k/", VconfValue::Int(1));
  EXPECT_THAT(TakeDeliveries(), IsEmpty());
}

TEST_F(StateRegistry, EachTypeArrivesAsItsOwn) {
  Register("k", 0);
  store_.Deliver("k", VconfValue::String("text"));
  store_.Deliver("k", VconfValue::Int(-7));
  store_.Deliver("k", VconfValue::Double(2.5));
  store_.Deliver("k", VconfValue::Bool(1));
  EXPECT_THAT(TakeDeliveries(),
              ElementsAre(Delivery{0, 1, "text", 0, nullptr}, Delivery{0, 2, "", -7, nullptr},
                          Delivery{0, 3, "", 2.5, nullptr}, Delivery{0, 4, "", 1, nullptr}));
}

// The callback sees the store's own bytes, which the store takes back when it returns.
TEST_F(StateRegistry, TextIsBorrowedFromTheNode) {
  static const char* seen = nullptr;
  keynode_t node{"k", VCONF_TYPE_STRING, std::string("borrowed")};
  const kavrel_value_changed_cb keep = [](valuenode_s* record, void*) {
    seen = record->value.strValue;
  };
  KavrelRegisterValueCb("k", keep, &AssignNodeInfo, nullptr);
  KavrelVconfCb(&node, nullptr);
  EXPECT_EQ(seen, std::get<std::string>(node.value).data());
  KavrelUnregisterValueCb("k", keep);
}

TEST_F(StateRegistry, UnknownTypeArrivesAsAnEmptyRecord) {
  Register("k", 0);
  Register("k", 1);
  store_.Deliver("k", VconfValue::Int(7));
  TakeDeliveries();
  TakeTimeline();
  store_.Deliver("k", VconfValue::Unknown());
  EXPECT_THAT(TakeDeliveries(),
              ElementsAre(Delivery{0, 0, "", 0, nullptr}, Delivery{1, 0, "", 0, nullptr}));
  EXPECT_THAT(store_.TakeCalls(), ::testing::Contains("vconf_keynode_get_type(k)"));
}

TEST_F(StateRegistry, AssignmentLeavesTheRecordAloneForAnUnknownType) {
  keynode_t node{"k", VconfValue::kUnknownType, 0};
  valuenode_s record{};
  record.type = KAVREL_VALUE_INT;
  record.value.intValue = 9;
  AssignNodeInfo(&node, record);
  EXPECT_EQ(record.type, KAVREL_VALUE_INT);
  EXPECT_EQ(record.value.intValue, 9);
}

// Whatever filler is handed over, the registry's own fills the record.
TEST_F(StateRegistry, AssignFunctionOfTheCallerIsNotUsed) {
  for (const auto assign : {&AssignRatingLockedInfo, kavrel::state::AssignCb{nullptr}}) {
    EXPECT_EQ(KavrelRegisterValueCb("k", Slot(0), assign, nullptr), 0);
    store_.Deliver("k", VconfValue::String("locked"));
    EXPECT_THAT(TakeDeliveries(),
                ElementsAre(Delivery{0, KAVREL_VALUE_STRING, "locked", 0, nullptr}));
    EXPECT_EQ(Unregister("k", 0), 0);
  }
}

using StateRegistryDeathTest = StateRegistry;

TEST_F(StateRegistryDeathTest, CallbackThatThrowsEndsTheProgram) {
  const kavrel_value_changed_cb fail = [](valuenode_s*, void*) { throw 1; };
  KavrelRegisterValueCb("k", fail, &AssignNodeInfo, nullptr);
  EXPECT_DEATH(store_.Deliver("k", VconfValue::Int(1)), "terminate");
  KavrelUnregisterValueCb("k", fail);
}

}  // namespace
}  // namespace kavrel_test
