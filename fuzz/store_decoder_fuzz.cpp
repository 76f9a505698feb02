#include <algorithm>
#include <cstring>
#include <random>

#include "store_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kavrel_fuzz::DecodeStore(data, size);
  return 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

constexpr std::size_t kPage = 4096;
// Where a page keeps its number, kind, bounds and the places of its nodes; a head all it says.
constexpr std::size_t kPageHead = 192;

std::uint8_t* PlaceIn(std::uint8_t* data, std::size_t size, std::size_t width,
                      std::minstd_rand& random) {
  const std::size_t page = random() % ((size + kPage - 1) / kPage) * kPage;
  const std::size_t reach = random() % 4 != 0 ? kPageHead : kPage;
  return data + std::min(page + random() % reach, size - width);
}

}  // namespace

/// What the fuzzer does to any input leaves a file of pages hardly ever one. So most changes are of
/// a few bytes, most of them where they mean something: flipped bits, small numbers, and numbers of
/// other places in the file.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
  std::minstd_rand random(seed);
  constexpr std::size_t kWidest = 8;
  if (size < 2 * kPage || random() % 16 == 0) return LLVMFuzzerMutate(data, size, max_size);
  for (unsigned changes = 1 + random() % 3; changes > 0; --changes) {
    const std::size_t width = std::size_t{1} << random() % 4;
    std::uint8_t* const place = PlaceIn(data, size, kWidest, random);
    switch (random() % 4) {
      case 0:
        *place = static_cast<std::uint8_t>(*place ^ (1U << random() % 8));
        break;
      case 1: {
        const std::uint64_t number = random() % 32;
        std::memcpy(place, &number, width);
        break;
      }
      case 2:
        std::memmove(place, PlaceIn(data, size, kWidest, random), width);
        break;
      default:
        LLVMFuzzerMutate(place, width, width);
    }
  }
  return size;
}
