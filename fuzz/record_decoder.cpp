#include "record_decoder.h"

#include <vconf.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "expect.h"
#include "key.h"
#include "record.h"

namespace kavrel_fuzz {
namespace {

using kavrel_vconf::Key;
using kavrel_vconf::Value;

// The rules of the store's page, in other words than the service's.
bool IsKey(const std::string& text) {
  if (text.size() > 255 || text.ends_with('/')) return false;
  if (!text.starts_with("memory/") && !text.starts_with("db/")) return false;
  const std::string padded = text + '/';
  for (const char* forbidden : {"//", "/./", "/../"}) {
    if (padded.find(forbidden) != std::string::npos) return false;
  }
  return std::ranges::all_of(text, [](char c) {
    return c != '\0' && std::strchr(
                            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                            "0123456789_-./",
                            c) != nullptr;
  });
}

void SetChecksum(const Key& key, std::string& bytes) {
  if (bytes.size() < sizeof(std::uint64_t)) return;
  const std::uint64_t checksum = XXH3_64bits_withSeed(
      bytes.data() + sizeof(std::uint64_t), bytes.size() - sizeof(std::uint64_t), key.hash);
  std::memcpy(bytes.data(), &checksum, sizeof checksum);
}

bool DecodeUnder(const Key& key, std::string bytes) {
  SetChecksum(key, bytes);
  // Exactly as large as the record, so that one byte beyond it is noticed.
  const std::unique_ptr<char[]> exact(new char[bytes.size()]);
  std::ranges::copy(bytes, exact.get());
  Value value;
  if (!kavrel_vconf::DecodeRecord(key, {exact.get(), bytes.size()}, &value)) return false;
  Expect(value.type >= VCONF_TYPE_STRING && value.type <= VCONF_TYPE_BOOL, "a type of value");
  Expect(value.type != VCONF_TYPE_BOOL || value.integer == 0 || value.integer == 1, "a bool");
  Expect(value.text.find('\0') == std::string::npos, "a text has no NUL");
  std::string again;
  kavrel_vconf::EncodeRecord(key, value, value.revision, &again);
  Expect(again == bytes, "a value is kept as the bytes that it was read from");
  return true;
}

void ExpectNothingElse(const Key& key, std::string bytes) {
  SetChecksum(key, bytes);
  Value value;
  const auto other = kavrel_vconf::ParseKey("db/another");
  Expect(key.name == other->name || !kavrel_vconf::DecodeRecord(*other, bytes, &value),
         "a record is refused under another key");
  bytes[0] = static_cast<char>(bytes[0] ^ 1);
  Expect(!kavrel_vconf::DecodeRecord(key, bytes, &value), "a record is refused when changed");
}

}  // namespace

bool DecodeRecord(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string name(input.substr(0, input.find('\0')));
  const std::optional<Key> key = kavrel_vconf::ParseKey(name.c_str());
  Expect(key.has_value() == IsKey(name), "a key is one as described");
  if (!key) return false;
  Expect(key->name == name, "a key is its text");
  Expect((key->family == kavrel_vconf::Family::kMemory) == name.starts_with("memory/"),
         "a key is in the store that it names");
  if (name.size() == size) return false;
  const std::string record(input.substr(name.size() + 1));
  if (!DecodeUnder(*key, record)) return false;
  ExpectNothingElse(*key, record);
  return true;
}

}  // namespace kavrel_fuzz
