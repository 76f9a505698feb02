// How far a mistyped word is from a right one.
#pragma once

#include <cstddef>
#include <string_view>

namespace kavrelctl {

/// The number of letters to insert, remove or replace that turn one word into the other.
std::size_t EditDistance(std::string_view one, std::string_view other);

}  // namespace kavrelctl
