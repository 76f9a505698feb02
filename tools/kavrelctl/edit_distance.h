// How unlike two words are, to find the one that was meant.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kavrelctl {

/// The least number of letters to insert, remove or replace to make one of the other.
std::size_t EditDistance(std::string_view one, std::string_view other);

/// "; did you mean call?" with the candidate nearest to what was typed; empty when none is near.
std::string DidYouMean(std::string_view typed, const std::vector<std::string>& candidates);

}  // namespace kavrelctl
