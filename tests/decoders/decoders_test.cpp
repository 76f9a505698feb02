// The decoders of the fuzz targets in every build. What a decoder must keep to is checked where it
// is called (fuzz/<name>_decoder.cpp), which ends the process when it does not.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "control_decoder.h"
#include "decoder_seeds.h"
#include "event_decoder.h"
#include "parcel_decoder.h"
#include "record_decoder.h"
#include "reply_decoder.h"
#include "request_decoder.h"
#include "store_decoder.h"

namespace kavrel_test {
namespace {

struct Decoder {
  const char* name;
  bool (*decode)(const std::uint8_t* data, std::size_t size);
  std::size_t seeds;        ///< at least
  std::size_t truncations;  ///< of one seed, at most
  int mutations;
};

class Decoders : public testing::TestWithParam<Decoder> {
 protected:
  static bool Decode(const Bytes& bytes) { return GetParam().decode(bytes.data(), bytes.size()); }

  const std::vector<Seed> seeds_ = SeedsOf(GetParam().name);
};

// A seed whose name begins with "bad" is one that must be refused.
TEST_P(Decoders, TakeTheirSeeds) {
  EXPECT_GE(seeds_.size(), GetParam().seeds);
  for (const Seed& seed : seeds_) {
    EXPECT_EQ(Decode(seed.bytes), !seed.name.starts_with("bad")) << seed.name;
  }
}

TEST_P(Decoders, SurviveTruncations) {
  for (const Seed& seed : seeds_) {
    const std::size_t step = seed.bytes.size() / GetParam().truncations + 1;
    for (std::size_t size = 0; size < seed.bytes.size(); size += step) {
      Decode(Bytes(seed.bytes.begin(), seed.bytes.begin() + static_cast<std::ptrdiff_t>(size)));
    }
  }
}

TEST_P(Decoders, SurviveMutations) {
  std::mt19937 random(5'000);
  for (int i = 0; i < GetParam().mutations; ++i) {
    Bytes bytes = seeds_[random() % seeds_.size()].bytes;
    for (unsigned change = random() % 8; change > 0; --change) {
      Mutate(bytes, seeds_[random() % seeds_.size()].bytes, random);
    }
    Decode(bytes);
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, Decoders,
    testing::Values(Decoder{"control", &kavrel_fuzz::DecodeControl, 19, 1000, 50'000},
                    Decoder{"event", &kavrel_fuzz::DecodeEvent, 9, 1000, 2'000},
                    Decoder{"parcel", &kavrel_fuzz::DecodeParcels, 20, 1000, 30'000},
                    Decoder{"record", &kavrel_fuzz::DecodeRecord, 10, 1000, 50'000},
                    Decoder{"reply", &kavrel_fuzz::DecodeReply, 19, 1000, 50'000},
                    Decoder{"request", &kavrel_fuzz::DecodeRequests, 71, 1000, 50'000},
                    Decoder{"store", &kavrel_fuzz::DecodeStore, 8, 100, 5'000}),
    [](const testing::TestParamInfo<Decoder>& decoder) { return decoder.param.name; });

}  // namespace
}  // namespace kavrel_test
