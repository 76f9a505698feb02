#include "key.h"

#include <cstring>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace kavrel_vconf {
namespace {

bool IsKeyCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

bool IsComponent(std::string_view text) {
  if (text.empty() || text == "." || text == "..") return false;
  for (char c : text) {
    if (!IsKeyCharacter(c)) return false;
  }
  return true;
}

bool AreComponents(std::string_view text) {
  for (auto slash = text.find('/'); slash != std::string_view::npos; slash = text.find('/')) {
    if (!IsComponent(text.substr(0, slash))) return false;
    text.remove_prefix(slash + 1);
  }
  return IsComponent(text);
}

std::optional<Family> FamilyOf(std::string_view name) {
  const std::string_view first = name.substr(0, name.find('/'));
  if (first.size() == name.size()) return std::nullopt;
  if (first == FamilyName(Family::kMemory)) return Family::kMemory;
  if (first == FamilyName(Family::kDurable)) return Family::kDurable;
  return std::nullopt;
}

}  // namespace

std::optional<HashedName> HashName(const char* text) {
  if (text == nullptr) return std::nullopt;
  const std::size_t size = ::strnlen(text, kMaximumKeySize + 1);
  if (size > kMaximumKeySize) return std::nullopt;
  return HashedName{{text, size}, XXH3_64bits(text, size)};
}

std::optional<Key> ParseKey(const HashedName& name) {
  const std::optional<Family> family = FamilyOf(name.name);
  if (!family || !AreComponents(name.name)) return std::nullopt;
  return Key{name, *family};
}

std::optional<Key> ParseKey(const char* text) {
  const std::optional<HashedName> name = HashName(text);
  return name ? ParseKey(*name) : std::nullopt;
}

const char* FamilyName(Family family) {
  return family == Family::kMemory ? "memory" : "db";
}

}  // namespace kavrel_vconf
