// Records: a typed value as the bytes that the store keeps under its key, and back. The bytes carry
// a checksum over key, type, revision and value, so that damage is told apart from a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "key.h"

namespace kavrel_vconf {

inline constexpr std::size_t kMaximumTextSize = std::size_t{1} << 20;

/// One value of any type: the member that belongs to the type is filled, the others are empty.
struct Value {
  int type = 0;  // VCONF_TYPE_...; 0: no value
  std::int32_t integer = 0;
  double number = 0;
  std::string text;
  std::uint64_t revision = 0;
};

Value StringValue(std::string_view text);
Value IntValue(int value);
Value BoolValue(int value);
Value DoubleValue(double value);

/// The bytes to keep for `value` under `key`, with `revision` in place of the value's own.
void EncodeRecord(const Key& key, const Value& value, std::uint64_t revision, std::string* bytes);

/// Reads what EncodeRecord wrote. False, with `value` in an unspecified state, when the bytes are
/// not a whole and undamaged record of this key.
bool DecodeRecord(const HashedName& key, std::string_view bytes, Value* value);

}  // namespace kavrel_vconf
