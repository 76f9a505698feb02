#include <kavrel/KeyRepository.h>

#include "journal.h"

namespace framework_test {
namespace {

using testing::ElementsAre;

class KeyRepositoryTest : public JournalTest {
 protected:
  KeyRepositoryTest() { keep_key_sets_ = true; }

  CKeyRepository keys_;
};

TEST_F(KeyRepositoryTest, KeepsOrderWithoutDuplicates) {
  keys_.AddKey("K1");
  keys_.AddKey("K2");
  keys_.AddKey("K1");
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 AddKey: Key [K1] is added\n", "4 AddKey: Key [K2] is added\n",
                          "4 AddKey: key has already added\n"));
  ASSERT_EQ(keys_.Size(), 2);
  EXPECT_EQ(keys_.GetKey(0), "K1");
  EXPECT_EQ(keys_.GetKey(1), "K2");
}

TEST_F(KeyRepositoryTest, RemovesOneKey) {
  for (const char* key : {"K1", "K2", "K3"}) keys_.AddKey(key);
  TakeLines();
  keys_.RemoveKey("K1");
  keys_.RemoveKey("K1");
  EXPECT_THAT(TakeLines(), ElementsAre("4 RemoveKey: Key [K1] is removed\n"));
  ASSERT_EQ(keys_.Size(), 2);
  EXPECT_EQ(keys_.GetKey(0), "K2");
  EXPECT_EQ(keys_.GetKey(1), "K3");
}

TEST_F(KeyRepositoryTest, RemovesAllSilently) {
  keys_.AddKey("K1");
  TakeLines();
  keys_.RemoveAllKey();
  EXPECT_EQ(keys_.Size(), 0);
  EXPECT_THAT(TakeLines(), ElementsAre());
}

TEST_F(KeyRepositoryTest, LooksUpByteForByte) {
  keys_.AddKey("Red");
  TakeLines();
  EXPECT_TRUE(keys_.IsRegistered("Red"));
  EXPECT_FALSE(keys_.IsRegistered("red"));
  EXPECT_FALSE(keys_.IsRegistered("Re"));
  EXPECT_THAT(TakeLines(), ElementsAre("4 IsRegistered: Red key is registered\n",
                                       "4 IsRegistered: red key is not registered\n",
                                       "4 IsRegistered: Re key is not registered\n"));
}

TEST_F(KeyRepositoryTest, AnswersAnIndexWithoutKeyWithNothing) {
  keys_.AddKey("K1");
  TakeLines();
  EXPECT_EQ(keys_.GetKey(-1), "");
  EXPECT_EQ(keys_.GetKey(1), "");
  EXPECT_THAT(TakeLines(),
              ElementsAre("6 GetKey: Index is not valid\n", "6 GetKey: Index is not valid\n"));
}

TEST_F(KeyRepositoryTest, TakesAnEmptyName) {
  keys_.AddKey("");
  EXPECT_TRUE(keys_.IsRegistered(""));
  keys_.RemoveKey("");
  EXPECT_FALSE(keys_.IsRegistered(""));
  EXPECT_EQ(keys_.Size(), 0);
}

TEST_F(KeyRepositoryTest, IsCopiedWithItsKeys) {
  keys_.AddKey("K1");
  CKeyRepository copy = keys_;
  keys_.RemoveAllKey();
  EXPECT_EQ(copy.GetKey(0), "K1");
}

}  // namespace
}  // namespace framework_test
