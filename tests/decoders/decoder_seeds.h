// The inputs that fuzz targets begin with.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kavrel_test {

struct Seed {
  std::string name;
  std::vector<std::uint8_t> bytes;
};

/// The seeds of a fuzz target, in order of their names.
std::vector<Seed> SeedsOf(const std::string& target);

}  // namespace kavrel_test
