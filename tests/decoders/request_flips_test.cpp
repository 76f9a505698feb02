// Two flipped bits in a request of each method: the least that a checksum would find and that
// single faults in a decoder's checks would let through.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <set>
#include <string>

#include "decoder_seeds.h"
#include "request_decoder.h"
#include "request_model.h"

namespace kavrel_test {
namespace {

// Of all pairs one in so many: without optimisation, where sanitizers are, all take most of a
// minute.
std::size_t PairStep() {
#ifdef __OPTIMIZE__
  return 1;
#else
  constexpr std::size_t kWithoutOptimisation = 11;
  return std::getenv("KAVREL_TEST_LONG") != nullptr ? 1 : kWithoutOptimisation;
#endif
}

void Flip(Bytes& bytes, std::size_t bit) {
  bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] ^ (1U << (bit % 8)));
}

std::size_t PairsOf(std::size_t bits) {
  return bits * (bits - 1) / 2;
}

bool IsServed(const Bytes& bytes) {
  return kavrel_fuzz::DecodeRequests(bytes.data(), bytes.size());
}

struct Count {
  std::size_t tried = 0;
  std::size_t served = 0;
};

// The decoder compares each call, or that there is none, with what the bytes say.
Count FlipPairs(Bytes request, std::size_t step) {
  Count count;
  std::size_t number = 0;
  const std::size_t bits = request.size() * 8;
  for (std::size_t first = 0; first < bits; ++first) {
    Flip(request, first);
    for (std::size_t second = first + 1; second < bits; ++second) {
      if (number++ % step != 0) continue;
      Flip(request, second);
      ++count.tried;
      if (IsServed(request)) ++count.served;
      Flip(request, second);
    }
    Flip(request, first);
  }
  return count;
}

TEST(RequestFlips, NoPairOfBitsMakesHalfACall) {
  std::set<int> methods;
  for (const Seed& seed : SeedsOf("request")) {
    const auto frame = kavrel_fuzz::ParseFrame(seed.bytes);
    const auto call = frame ? kavrel_fuzz::CallOf(*frame) : std::nullopt;
    // One request of each method, and none of the long ones.
    if (!call || seed.bytes.size() > 200 || !methods.insert(call->method).second) continue;
    SCOPED_TRACE(seed.name);
    ASSERT_TRUE(IsServed(seed.bytes));
    const std::size_t step = PairStep();
    const Count count = FlipPairs(seed.bytes, step);
    EXPECT_EQ(count.tried, (PairsOf(seed.bytes.size() * 8) + step - 1) / step);
    // Sequence number, numbers and texts may change; sizes and types may not.
    EXPECT_GT(count.served, count.tried / 100);
    EXPECT_LT(count.served, count.tried);
  }
  EXPECT_EQ(methods.size(), 53U);
}

}  // namespace
}  // namespace kavrel_test
