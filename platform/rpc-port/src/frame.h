// What a parcel looks like on the wire. Numbers are in the host's byte order: both ends are on one
// machine.
//
//   uint32  size of the whole frame, this field included
//   int32   sequence number
//   uint16  size of the tag with its NUL, 0 without a tag
//   ...     the tag
//   ...     the items, each a type byte and its value:
//           'i' int32   'b' one byte, 0 or 1   'a' int32, the count of an array
//           's' uint32 size with the NUL, then the text, which holds no other NUL
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

namespace kavrel_rpc {

using Bytes = std::span<const std::uint8_t>;

namespace frame {

enum Item : std::uint8_t { kInt32 = 'i', kBool = 'b', kArrayCount = 'a', kString = 's' };

inline constexpr std::size_t kSizeOffset = 0;
inline constexpr std::size_t kSequenceOffset = 4;
inline constexpr std::size_t kTagSizeOffset = 8;
inline constexpr std::size_t kTagOffset = 10;
inline constexpr std::size_t kMinSize = kTagOffset;

template <typename Number>
Number Load(const std::uint8_t* from) {
  Number number;
  std::memcpy(&number, from, sizeof number);
  return number;
}

template <typename Number>
void Store(std::uint8_t* to, Number number) {
  std::memcpy(to, &number, sizeof number);
}

/// The size that a frame states which begins with `bytes` (at least 4).
inline std::size_t StatedSize(Bytes bytes) {
  return Load<std::uint32_t>(bytes.data() + kSizeOffset);
}

bool IsSizeAllowed(std::size_t size);

/// What is wrong with a frame whose stated size is its true one; null when every item is whole and
/// well-formed, so that readers need no further checks.
const char* FindFault(Bytes frame);

}  // namespace frame
}  // namespace kavrel_rpc
