// The records that travel between viewer and plug-in, and the lists of keys. What memory they need
// is the caller's business: they throw std::bad_alloc, and are as they were.
#include <kavrel/KeyRepository.h>
#include <kavrel/Message.h>

#include <string>
#include <utility>

#include "process_setting.h"
#include "trial.h"

namespace faults_test {
namespace {

const std::string kText(100, 't');
const std::string kOther(100, 'o');

void ExpectBadAllocAtMost(const Trial& trial) {
  EXPECT_TRUE(trial.end() == End::kReturned || trial.end() == End::kBadAlloc);
  EXPECT_EQ(trial.end() == End::kBadAlloc, trial.occurred() && trial.fault() == Fault::kMemory);
}

CMessage MakeMessage() {
  CMessage message;
  message.AddValue(kText.c_str(), kOther.c_str());
  return message;
}

void ExpectMessage(const CMessage& message, int size) {
  ASSERT_EQ(message.Size(), size);
  for (int i = 0; i < size; ++i) {
    EXPECT_EQ(message.GetKey(i), kText);
    EXPECT_EQ(message.GetValue(i), kOther);
  }
}

void AddValue(Trial& trial) {
  const ProcessSetting setting;
  CMessage message = MakeMessage();
  trial.Call([&] { message.AddValue(kText.c_str(), kOther.c_str()); });
  ExpectBadAllocAtMost(trial);
  ExpectMessage(message, trial.end() == End::kReturned ? 2 : 1);
}

void ReadMessage(Trial& trial) {
  const ProcessSetting setting;
  const CMessage message = MakeMessage();
  trial.Call([&] {
    const CMessage empty;
    return message.Size() + static_cast<int>(message.GetKey(0).size() + message.GetValue(0).size() +
                                             message.GetValue(kText.c_str()).size());
  });
  ExpectBadAllocAtMost(trial);
  ExpectMessage(message, 1);
}

template <class Value, class Check>
std::function<void(Trial&)> CopiesAndMoves(Value (*make)(), Check check) {
  return [make, check](Trial& trial) {
    const ProcessSetting setting;
    const Value original = make();
    Value target = make();
    trial.Call([&] {
      Value copy(original);
      Value moved(std::move(copy));
      target = moved;
      target = std::move(moved);
    });
    ExpectBadAllocAtMost(trial);
    check(original);
    check(target);
  };
}

CKeyRepository MakeKeys() {
  CKeyRepository keys;
  keys.AddKey(kText);
  return keys;
}

void ExpectKeys(const CKeyRepository& keys) {
  ASSERT_EQ(keys.Size(), 1);
  EXPECT_EQ(keys.GetKey(0), kText);
  EXPECT_TRUE(keys.IsRegistered(kText));
}

void AddKey(Trial& trial) {
  const ProcessSetting setting;
  CKeyRepository keys = MakeKeys();
  trial.Call([&] { keys.AddKey(kOther); });
  ExpectBadAllocAtMost(trial);
  EXPECT_EQ(keys.Size(), trial.end() == End::kReturned ? 2 : 1);
  EXPECT_TRUE(keys.IsRegistered(kText));
}

// Needs nothing but the copy that it gives out.
void UseKeys(Trial& trial) {
  const ProcessSetting setting;
  CKeyRepository keys = MakeKeys();
  trial.Call([&] {
    const CKeyRepository empty;
    return keys.IsRegistered(kText) && keys.Size() == 1 && keys.GetKey(0) == kText;
  });
  ExpectBadAllocAtMost(trial);
  ExpectKeys(keys);
}

void RemoveKeys(Trial& trial) {
  const ProcessSetting setting;
  CKeyRepository keys = MakeKeys();
  keys.AddKey(kOther);
  trial.Call([&] {
    keys.RemoveKey(kOther);
    keys.RemoveAllKey();
  });
  EXPECT_FALSE(trial.occurred()) << "removing needs nothing";
  EXPECT_EQ(keys.Size(), 0);
}

}  // namespace

Rows ValueRows() {
  return {
      {"CMessage::AddValue", {"CMessage::AddValue", "CMessage::CMessage"}, AddValue},
      {"CMessage::Get",
       {"CMessage::Size", "CMessage::At", "CMessage::GetKey", "CMessage::GetValue",
        "CMessage::~CMessage"},
       ReadMessage},
      {"CMessage::operator=",
       {"CMessage::operator=", "CMessage::CMessage"},
       CopiesAndMoves(&MakeMessage, [](const CMessage& message) { ExpectMessage(message, 1); })},
      {"CKeyRepository::AddKey",
       {"CKeyRepository::AddKey", "CKeyRepository::CKeyRepository"},
       AddKey},
      {"CKeyRepository::GetKey",
       {"CKeyRepository::GetKey", "CKeyRepository::IsRegistered", "CKeyRepository::Size",
        "CKeyRepository::~CKeyRepository"},
       UseKeys},
      {"CKeyRepository::RemoveKey",
       {"CKeyRepository::RemoveKey", "CKeyRepository::RemoveAllKey"},
       RemoveKeys},
      {"CKeyRepository::operator=",
       {"CKeyRepository::operator=", "CKeyRepository::CKeyRepository"},
       CopiesAndMoves(&MakeKeys, ExpectKeys)},
  };
}

}  // namespace faults_test
