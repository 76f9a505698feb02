// How often a test provokes a fault, and what it measured meanwhile.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace kavrel_test {

/// Whether faults are provoked as often as a night allows, as `scripts/test --long` does.
inline bool IsLongRun() {
  return std::getenv("KAVREL_TEST_LONG") != nullptr;
}

/// `few` in an ordinary run, `many` in a long one, whose table tells the number.
inline int Repetitions(int few, int many) {
  const int times = IsLongRun() ? many : few;
  testing::Test::RecordProperty("injected", times);
  return times;
}

/// Times of something that is done over and over. The long run's table tells how they lie.
class Times {
 public:
  using Clock = std::chrono::steady_clock;
  using Microseconds = std::chrono::duration<double, std::micro>;

  void Add(double microseconds) { all_.push_back(microseconds); }
  void AddSince(Clock::time_point begin) { Add(Microseconds(Clock::now() - begin).count()); }

  /// So large that this share of the times, 0 to 1, is not larger; in microseconds.
  double Quantile(double share) {
    if (all_.empty()) return 0;
    std::sort(all_.begin(), all_.end());
    return all_[static_cast<std::size_t>(share * static_cast<double>(all_.size() - 1))];
  }

  /// As the test's figures: "WHAT: p50 1.2 ms, p99 3.4 ms, most 5.6 ms".
  void Record(const std::string& what) {
    char text[128];
    std::snprintf(text, sizeof(text), ": p50 %.3g ms, p99 %.3g ms, most %.3g ms",
                  Quantile(0.5) / 1000, Quantile(0.99) / 1000, Quantile(1) / 1000);
    testing::Test::RecordProperty("figures", what + text);
  }

 private:
  std::vector<double> all_;
};

}  // namespace kavrel_test
