#include "edit_distance.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace kavrelctl {

std::size_t EditDistance(std::string_view one, std::string_view other) {
  // Distances from the part of `one` read so far to each beginning of `other`.
  std::vector<std::size_t> distances(other.size() + 1);
  std::iota(distances.begin(), distances.end(), 0);
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = distances[0];
    distances[0] = i + 1;
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = distances[j + 1];
      distances[j + 1] = std::min({replaced, distances[j] + 1, diagonal + 1});
    }
  }
  return distances.back();
}

std::string DidYouMean(std::string_view typed, const std::vector<std::string>& candidates) {
  constexpr std::size_t kLongestTyped = 100;
  if (typed.size() > kLongestTyped) return {};
  const std::string* nearest = nullptr;
  std::size_t least = typed.size() / 3 + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = EditDistance(candidate, typed);
    if (distance > least) continue;
    least = distance;
    nearest = &candidate;
  }
  return nearest == nullptr ? "" : "; did you mean " + *nearest + '?';
}

}  // namespace kavrelctl
