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

void Mutate(Bytes& bytes, const Bytes& other, std::mt19937& random) {
  const auto place = [&](const Bytes& in) {
    return static_cast<std::ptrdiff_t>(random() % (in.size() + 1));
  };
  switch (random() % 8) {
    case 0:
      bytes.erase(bytes.begin() + place(bytes), bytes.end());
      break;
    case 1: {
      const std::ptrdiff_t from = place(other);
      bytes.insert(bytes.begin() + place(bytes), other.begin() + from, other.end());
      break;
    }
    case 2:
      bytes.insert(bytes.begin() + place(bytes), static_cast<std::uint8_t>(random()));
      break;
    default:
      if (!bytes.empty()) bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
  }
}

}  // namespace kavrel_test
