#include <gtest/gtest.h>
#include <kavrel/Message.h>

#include <string>
#include <typeinfo>
#include <utility>

namespace {

TEST(Message, KeepsOrderAndDuplicatesAndFindsTheFirst) {
  CMessage message;
  message.AddValue("a", "1");
  message.AddValue("b", "2");
  message.AddValue("a", "3");
  EXPECT_EQ(message.Size(), 3);
  EXPECT_EQ(message.GetValue("a"), "1");
  EXPECT_EQ(message.GetValue("b"), "2");
  EXPECT_EQ(message.GetKey(2), "a");
  EXPECT_EQ(message.GetValue(2), "3");
}

TEST(Message, StartsEmpty) {
  const CMessage message;
  EXPECT_EQ(message.Size(), 0);
  EXPECT_EQ(message.GetKey(0), "");
  EXPECT_EQ(message.GetValue(0), "");
  EXPECT_EQ(message.GetValue("a"), "");
}

TEST(Message, IgnoresNullTexts) {
  CMessage message;
  message.AddValue(nullptr, "value");
  message.AddValue("key", nullptr);
  message.AddValue(nullptr, nullptr);
  EXPECT_EQ(message.Size(), 0);
}

TEST(Message, TakesEmptyTexts) {
  CMessage message;
  message.AddValue("", "of nothing");
  message.AddValue("empty", "");
  EXPECT_EQ(message.Size(), 2);
  EXPECT_EQ(message.GetKey(0), "");
  EXPECT_EQ(message.GetValue(""), "of nothing");
  EXPECT_EQ(message.GetValue("empty"), "");
  EXPECT_EQ(message.GetKey(1), "empty");
}

TEST(Message, AnswersEmptyOutsideItsPairs) {
  CMessage message;
  message.AddValue("a", "1");
  for (const int index : {1, 2, 1'000'000, -1, -1'000'000}) {
    EXPECT_EQ(message.GetKey(index), "") << index;
    EXPECT_EQ(message.GetValue(index), "") << index;
  }
}

TEST(Message, ComparesKeysByteByByte) {
  CMessage message;
  message.AddValue("Key", "1");
  message.AddValue("key ", "2");
  EXPECT_EQ(message.GetValue("key"), "");
  EXPECT_EQ(message.GetValue("Ke"), "");
  EXPECT_EQ(message.GetValue("Key"), "1");
  EXPECT_EQ(message.GetValue(static_cast<const char*>(nullptr)), "");
}

TEST(Message, IsAValue) {
  CMessage first;
  first.AddValue("a", "1");
  CMessage copy = first;
  copy.AddValue("b", "2");
  EXPECT_EQ(first.Size(), 1);
  EXPECT_EQ(copy.Size(), 2);
  first = copy;
  EXPECT_EQ(first.GetValue("b"), "2");
  const CMessage moved = std::move(first);
  EXPECT_EQ(moved.Size(), 2);
}

// Derived by users, and recognised at run time by its own name.
class Derived : public CMessage {
 public:
  explicit Derived(bool& destroyed) : destroyed_(destroyed) {}
  ~Derived() override { destroyed_ = true; }

 private:
  bool& destroyed_;
};

TEST(Message, CanBeDerivedAndDeletedThroughItsBase) {
  bool destroyed = false;
  const CMessage* message = new Derived(destroyed);
  EXPECT_NE(dynamic_cast<const Derived*>(message), nullptr);
  delete message;
  EXPECT_TRUE(destroyed);
  EXPECT_STREQ(typeid(CMessage).name(), "8CMessage");
}

}  // namespace
