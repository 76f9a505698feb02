// How often a test provokes a fault.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

namespace kavrel_test {

/// `few` in an ordinary run; `many` where KAVREL_TEST_LONG is set, as `scripts/test --long` does,
/// whose table tells the number.
inline int Repetitions(int few, int many) {
  const int times = std::getenv("KAVREL_TEST_LONG") != nullptr ? many : few;
  testing::Test::RecordProperty("injected", times);
  return times;
}

}  // namespace kavrel_test
