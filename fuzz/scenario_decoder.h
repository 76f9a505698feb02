// The reader of scenarios, fed with bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// Reads `data` as a scenario. What is refused must come with a message of one printable line and a
/// line of the text; aborts otherwise. Returns whether it was read.
bool DecodeScenario(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
