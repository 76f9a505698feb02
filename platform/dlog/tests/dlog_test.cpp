#include <dlog.h>
#include <gtest/gtest.h>

namespace {

TEST(Dlog, RefusesAnUnknownPriority) {
  EXPECT_EQ(dlog_print(1, "tag", "text"), -22);
  EXPECT_EQ(dlog_print(8, "tag", "text"), -22);
}

TEST(Dlog, AnswersZeroBelowTheThreshold) { EXPECT_EQ(dlog_print(DLOG_DEBUG, "tag", "text"), 0); }

}  // namespace
