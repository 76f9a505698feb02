// When a client looks for an answer before it waits for it.
#include "early_look.h"

#include <gtest/gtest.h>

namespace {

using kavrel_rpc::EarlyLook;

/// Looks of so many calls, none of which finds anything.
int LooksInVain(EarlyLook& look, int calls) {
  int looks = 0;
  for (int i = 0; i < calls; ++i) {
    if (!look.IsDue()) continue;
    ++looks;
    look.Note(false);
  }
  return looks;
}

TEST(EarlyLook, IsRareWhereItFindsNothing) {
  EarlyLook look;
  EXPECT_EQ(LooksInVain(look, EarlyLook::kCallsBetweenLooks - 1), 0);
  EXPECT_EQ(LooksInVain(look, 100 * EarlyLook::kCallsBetweenLooks), 100);
}

TEST(EarlyLook, GoesOnForAWhileAfterItFoundSomething) {
  EarlyLook look;
  while (!look.IsDue()) continue;
  look.Note(true);
  EXPECT_EQ(LooksInVain(look, EarlyLook::kLooksAfterAFind), EarlyLook::kLooksAfterAFind);
  EXPECT_EQ(LooksInVain(look, EarlyLook::kCallsBetweenLooks), 1);
}

TEST(EarlyLook, GoesOnAsLongAsEachWhileBringsAFind) {
  EarlyLook look;
  while (!look.IsDue()) continue;
  for (int round = 0; round < 10; ++round) {
    look.Note(true);
    EXPECT_EQ(LooksInVain(look, EarlyLook::kLooksAfterAFind - 1), EarlyLook::kLooksAfterAFind - 1);
    ASSERT_TRUE(look.IsDue());
  }
}

}  // namespace
