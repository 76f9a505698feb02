// Moments at which nobody expects a fault.
#pragma once

#include <poll.h>

#include <ctime>
#include <random>

namespace kavrel_test {

/// Waits for random times, the same in each run, so that a fault falls anywhere into what goes on
/// meanwhile. Nothing may depend on their length.
class RandomMoments {
 public:
  explicit RandomMoments(long longest_us = 2000) : lengths_(0, longest_us) {}

  void Wait() {
    const timespec moment{0, 1000 * lengths_(random_)};
    ::ppoll(nullptr, 0, &moment, nullptr);
  }

 private:
  std::mt19937 random_{20250611};
  std::uniform_int_distribution<long> lengths_;
};

}  // namespace kavrel_test
