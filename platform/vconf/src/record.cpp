#include "record.h"

#include <vconf.h>

#include <cstring>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace kavrel_vconf {
namespace {

// Counts up when the bytes get another meaning; a record of another format counts as damaged.
constexpr std::uint16_t kFormat = 1;

// In the machine's own byte order: a store never leaves the machine.
struct Header {
  std::uint64_t checksum;
  std::uint64_t revision;
  std::uint32_t payload_size;
  std::uint16_t type;
  std::uint16_t format;
};
static_assert(sizeof(Header) == 24);

std::uint64_t Checksum(const HashedName& key, std::string_view bytes) {
  bytes.remove_prefix(sizeof(Header::checksum));
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), key.hash);
}

std::string_view Payload(const Value& value) {
  switch (value.type) {
    case VCONF_TYPE_STRING:
      return value.text;
    case VCONF_TYPE_DOUBLE:
      return {reinterpret_cast<const char*>(&value.number), sizeof value.number};
    default:
      return {reinterpret_cast<const char*>(&value.integer), sizeof value.integer};
  }
}

template <typename Number>
bool ReadNumber(std::string_view payload, Number* number) {
  if (payload.size() != sizeof *number) return false;
  std::memcpy(number, payload.data(), sizeof *number);
  return true;
}

bool ReadPayload(std::string_view payload, Value* value) {
  switch (value->type) {
    case VCONF_TYPE_STRING:
      value->text.assign(payload);
      return payload.size() <= kMaximumTextSize && payload.find('\0') == std::string_view::npos;
    case VCONF_TYPE_DOUBLE:
      return ReadNumber(payload, &value->number);
    case VCONF_TYPE_BOOL:
      return ReadNumber(payload, &value->integer) && (value->integer & ~1) == 0;
    case VCONF_TYPE_INT:
      return ReadNumber(payload, &value->integer);
    default:
      return false;
  }
}

}  // namespace

Value StringValue(std::string_view text) {
  Value value;
  value.type = VCONF_TYPE_STRING;
  value.text = text;
  return value;
}

Value IntValue(int integer) {
  Value value;
  value.type = VCONF_TYPE_INT;
  value.integer = integer;
  return value;
}

Value BoolValue(int truth) {
  Value value;
  value.type = VCONF_TYPE_BOOL;
  value.integer = truth != 0 ? 1 : 0;
  return value;
}

Value DoubleValue(double number) {
  Value value;
  value.type = VCONF_TYPE_DOUBLE;
  value.number = number;
  return value;
}

void EncodeRecord(const Key& key, const Value& value, std::uint64_t revision, std::string* bytes) {
  const std::string_view payload = Payload(value);
  Header header{};
  header.revision = revision;
  header.payload_size = static_cast<std::uint32_t>(payload.size());
  header.type = static_cast<std::uint16_t>(value.type);
  header.format = kFormat;
  bytes->assign(reinterpret_cast<const char*>(&header), sizeof header);
  bytes->append(payload);
  header.checksum = Checksum(key, *bytes);
  std::memcpy(bytes->data(), &header.checksum, sizeof header.checksum);
}

bool DecodeRecord(const HashedName& key, std::string_view bytes, Value* value) {
  Header header;
  if (bytes.size() < sizeof header) return false;
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.format != kFormat || header.checksum != Checksum(key, bytes)) return false;
  if (header.payload_size != bytes.size() - sizeof header) return false;
  *value = Value();
  value->type = header.type;
  value->revision = header.revision;
  return ReadPayload(bytes.substr(sizeof header), value);
}

}  // namespace kavrel_vconf
