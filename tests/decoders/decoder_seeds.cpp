#include "decoder_seeds.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kavrel_test {

std::vector<Seed> SeedsOf(const std::string& target) {
  std::vector<Seed> seeds;
  const std::filesystem::path directory = KAVREL_FUZZ_SEEDS;
  for (const auto& entry : std::filesystem::directory_iterator(directory / target)) {
    std::ifstream file(entry.path(), std::ios::binary);
    seeds.push_back({entry.path().filename(),
                     {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()}});
  }
  std::ranges::sort(seeds, {}, &Seed::name);
  return seeds;
}

}  // namespace kavrel_test
