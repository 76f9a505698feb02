#include "control_protocol.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <memory>

#include "printable.h"

namespace kavrel_programs {
namespace {

// A parcel holds 1 MiB, a port keeps 4 MiB for a client that is slow to read.
constexpr std::size_t kLongestPart = std::size_t{512} * 1024;
constexpr std::size_t kLongestReply = std::size_t{3} * 1024 * 1024;
constexpr int kMostParts = kLongestReply / kLongestPart + 1;
constexpr std::size_t kLongestKey = 64;

enum Result { kRefused = 0, kDone = 1 };

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

bool WritePart(rpc_port_h port, int sequence, int result, int left, const std::string& text) {
  const ControlParcel parcel = ControlParcel::Create();
  return parcel && parcel.SetSequence(sequence) &&
         rpc_port_parcel_write_int32(parcel.get(), result) == 0 &&
         rpc_port_parcel_write_int32(parcel.get(), left) == 0 &&
         rpc_port_parcel_write_string(parcel.get(), text.c_str()) == 0 &&
         rpc_port_parcel_send(parcel.get(), port) == 0;
}

// Whatever else lies in a parcel makes it none of this protocol.
bool HasMore(const ControlParcel& parcel) {
  int32_t count = 0;
  return parcel.ReadInt() || parcel.ReadBool() || parcel.ReadText() ||
         rpc_port_parcel_read_array_count(parcel.get(), &count) == 0;
}

bool DecodeKey(const ControlParcel& parcel, ControlRequest& request) {
  const auto key = parcel.ReadText();
  const auto released = parcel.ReadBool();
  const auto device = parcel.ReadInt();
  if (!key || !released || !device) return false;
  if (!KeyMistake(*key).empty() || *device < 0 || *device >= std::ssize(kKeyDevices)) return false;
  request.key = *key;
  request.released = *released;
  request.device = *device;
  return true;
}

}  // namespace

std::string KeyMistake(const std::string& text) {
  const auto allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '+';
  };
  const bool valid =
      !text.empty() && text.size() <= kLongestKey && std::all_of(text.begin(), text.end(), allowed);
  if (valid) return "";
  return '"' + Printable(text, kLongestKey) +
         "\" is not a key (1 to 64 letters, digits, '_', '-' and '+')";
}

std::string KeyDeviceList() {
  std::string list;
  for (const char* device : kKeyDevices) list += (list.empty() ? "" : ", ") + std::string(device);
  return list;
}

std::optional<int> FindKeyDevice(const std::string& name) {
  const auto* const found = std::find(kKeyDevices.begin(), kKeyDevices.end(), name);
  if (found == kKeyDevices.end()) return std::nullopt;
  return static_cast<int>(found - kKeyDevices.begin());
}

std::string KeyDeviceName(int device) {
  const bool known = device >= 0 && device < std::ssize(kKeyDevices);
  return known ? kKeyDevices.at(static_cast<std::size_t>(device)) : std::to_string(device);
}

ControlParcel ControlParcel::Create() {
  rpc_port_parcel_h handle = nullptr;
  return ControlParcel(rpc_port_parcel_create(&handle) == 0 ? handle : nullptr);
}

ControlParcel ControlParcel::Take(rpc_port_h port, int& error) {
  rpc_port_parcel_h handle = nullptr;
  error = rpc_port_parcel_create_from_port(&handle, port);
  return ControlParcel(error == 0 ? handle : nullptr);
}

std::optional<int> ControlParcel::ReadInt() const {
  int32_t value = 0;
  if (rpc_port_parcel_read_int32(handle_, &value) != 0) return std::nullopt;
  return value;
}

std::optional<bool> ControlParcel::ReadBool() const {
  bool value = false;
  if (rpc_port_parcel_read_bool(handle_, &value) != 0) return std::nullopt;
  return value;
}

std::optional<std::string> ControlParcel::ReadText() const {
  char* text = nullptr;
  static_cast<void>(rpc_port_parcel_read_string(handle_, &text));
  const std::unique_ptr<char, FreeText> owned(text);
  if (owned == nullptr) return std::nullopt;
  return std::string(owned.get());
}

std::optional<int> ControlParcel::Sequence() const {
  rpc_port_parcel_header_h header = nullptr;
  int sequence = 0;
  if (rpc_port_parcel_get_header(handle_, &header) != 0 ||
      rpc_port_parcel_header_get_seq_num(header, &sequence) != 0) {
    return std::nullopt;
  }
  return sequence;
}

bool ControlParcel::SetSequence(int sequence) const {
  rpc_port_parcel_header_h header = nullptr;
  return rpc_port_parcel_get_header(handle_, &header) == 0 &&
         rpc_port_parcel_header_set_seq_num(header, sequence) == 0;
}

int SendControlRequest(rpc_port_h port, const ControlRequest& request, int& sequence) {
  const ControlParcel parcel = ControlParcel::Create();
  const auto number = parcel ? parcel.Sequence() : std::nullopt;
  if (!number) return -ENOMEM;
  sequence = *number;
  int result = rpc_port_parcel_write_int32(parcel.get(), static_cast<int>(request.command));
  if (result == 0 && request.command == ControlCommand::kKey) {
    result = rpc_port_parcel_write_string(parcel.get(), request.key.c_str());
    if (result == 0) result = rpc_port_parcel_write_bool(parcel.get(), request.released);
    if (result == 0) result = rpc_port_parcel_write_int32(parcel.get(), request.device);
  }
  return result == 0 ? rpc_port_parcel_send(parcel.get(), port) : result;
}

std::optional<ControlRequest> DecodeControlRequest(const ControlParcel& parcel) {
  const auto command = parcel.ReadInt();
  if (!command) return std::nullopt;
  ControlRequest request;
  request.command = static_cast<ControlCommand>(*command);
  switch (request.command) {
    case ControlCommand::kKey:
      if (!DecodeKey(parcel, request)) return std::nullopt;
      break;
    case ControlCommand::kPlugins:
    case ControlCommand::kScreenshot:
    case ControlCommand::kScreen:
    case ControlCommand::kFollow:
    case ControlCommand::kLook:
    case ControlCommand::kAbout:
      break;
    default:
      return std::nullopt;
  }
  if (HasMore(parcel)) return std::nullopt;
  return request;
}

bool SendControlReply(rpc_port_h port, int sequence, const ControlReply& reply) {
  if (reply.text.size() > kLongestReply) {
    return WritePart(port, sequence, kRefused, 0, "the answer is too large to be sent");
  }
  const std::size_t parts =
      std::max<std::size_t>(1, (reply.text.size() + kLongestPart - 1) / kLongestPart);
  for (std::size_t part = 0; part < parts; ++part) {
    if (!WritePart(port, sequence, reply.done ? kDone : kRefused,
                   static_cast<int>(parts - part - 1),
                   reply.text.substr(part * kLongestPart, kLongestPart))) {
      return false;
    }
  }
  return true;
}

std::optional<int> DecodeControlPart(const ControlParcel& parcel, ControlReply& reply) {
  const auto result = parcel.ReadInt();
  const auto left = parcel.ReadInt();
  const auto text = parcel.ReadText();
  if (!result || !left || !text || *left < 0 || *left >= kMostParts || HasMore(parcel)) {
    return std::nullopt;
  }
  reply.done = *result == kDone;
  reply.text += *text;
  return left;
}

std::optional<ControlReply> ReadControlReply(rpc_port_h port, int sequence, int& error) {
  ControlReply reply;
  std::optional<int> expected;
  while (!expected || *expected > 0) {
    const ControlParcel parcel = ControlParcel::Take(port, error);
    if (!parcel) return std::nullopt;
    // An answer to something else, say one that came too late.
    if (parcel.Sequence() != sequence) continue;
    const auto left = DecodeControlPart(parcel, reply);
    if (!left || (expected && *left != *expected - 1)) {
      error = -EBADMSG;
      return std::nullopt;
    }
    expected = left;
  }
  return reply;
}

}  // namespace kavrel_programs
