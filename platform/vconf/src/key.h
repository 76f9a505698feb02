// Keys: which texts name a value, and in which of the two stores it lives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kavrel_vconf {

inline constexpr std::size_t kMaximumKeySize = 255;

enum class Family { kMemory, kDurable };

/// A text with its hash. The hash is the same in every process: it also picks the key's word in the
/// page that all processes share.
struct HashedName {
  std::string_view name;
  std::uint64_t hash = 0;
};

/// A well-formed key. `text` is the caller's and must outlive it.
struct Key : HashedName {
  Family family = Family::kMemory;
};

/// Hashes a text that need not be a key; nothing for null and for texts too long to be one.
std::optional<HashedName> HashName(const char* text);

/// The key that the text is, or nothing when it is malformed or of neither family.
std::optional<Key> ParseKey(const HashedName& name);
std::optional<Key> ParseKey(const char* text);

/// "memory" or "db": the first component of the family's keys and the stem of its file names.
const char* FamilyName(Family family);

}  // namespace kavrel_vconf
