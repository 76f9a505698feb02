// What bytes on the wire of rpc-port say, read by other code than the service's own: what the
// decoders make of the bytes is compared with this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace kavrel_fuzz {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// The count of an array.
struct Count {
  std::int32_t value;
  bool operator==(const Count&) const = default;
};

using Item = std::variant<std::int32_t, bool, std::string, Count>;
using Items = std::vector<Item>;

struct Frame {
  std::int32_t sequence = 0;
  std::optional<std::string> tag;
  Items items;

  bool operator==(const Frame&) const = default;
};

/// The frame that `bytes` are, or nothing when they are none.
std::optional<Frame> ParseFrame(ByteView bytes);

/// The bytes of a frame.
Bytes BuildFrame(const Frame& frame);

/// A stream of frames up to its end or first fault.
struct Stream {
  struct Entry {
    ByteView bytes;
    Frame content;
  };
  std::vector<Entry> frames;
  bool has_fault = false;
  ByteView rest;  ///< without a fault: the beginning of one more frame
};

Stream ParseStream(ByteView bytes);

}  // namespace kavrel_fuzz
