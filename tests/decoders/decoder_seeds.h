// The inputs that fuzz targets begin with.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace kavrel_test {

using Bytes = std::vector<std::uint8_t>;

struct Seed {
  std::string name;
  Bytes bytes;
};

/// The seeds of a fuzz target, in order of their names.
std::vector<Seed> SeedsOf(const std::string& target);

/// Changes a byte, cuts the end off, or puts a byte or the end of `other` somewhere.
void Mutate(Bytes& bytes, const Bytes& other, std::mt19937& random);

}  // namespace kavrel_test
