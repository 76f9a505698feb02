// The fuzz target's seeds, and mutations of them, in every build.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "scenario_decoder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> Seeds(const std::string& prefix = {}) {
  std::vector<Bytes> seeds;
  for (const auto& entry : std::filesystem::directory_iterator(KAVREL_SCENARIO_SEEDS)) {
    if (entry.path().filename().string().compare(0, prefix.size(), prefix) != 0) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return seeds;
}

bool Decode(const Bytes& bytes) {
  return kavrel_fuzz::DecodeScenario(bytes.data(), bytes.size());
}

TEST(ScenarioDecoder, TakesItsSeeds) {
  EXPECT_EQ(Seeds().size(), 10U);
  // Every step, JSON, and lines that end as on another system; the names of the others begin so.
  EXPECT_EQ(std::ranges::count_if(Seeds(), Decode), 3);
  EXPECT_EQ(std::ranges::count_if(Seeds("bad"), Decode), 0);
}

TEST(ScenarioDecoder, SurvivesEveryTruncation) {
  for (const Bytes& seed : Seeds()) {
    for (std::size_t size = 0; size < seed.size(); ++size) {
      Decode(Bytes(seed.begin(), seed.begin() + static_cast<std::ptrdiff_t>(size)));
    }
  }
}

TEST(ScenarioDecoder, SurvivesMutations) {
  std::mt19937 random(2'000);
  const auto seeds = Seeds();
  for (int i = 0; i < 2'000; ++i) {
    Bytes bytes = seeds[random() % seeds.size()];
    for (unsigned change = random() % 8; change > 0 && !bytes.empty(); --change) {
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    }
    Decode(bytes);
  }
}

}  // namespace
