#include "message_decoder.h"

#include <gio/gio.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "legacy/MessageCodec.h"

namespace kavrel_fuzz {
namespace {

namespace glib = kavrel::glib;
using kavreldbus::MessageCodec;

bool SamePairs(const CMessage& one, const CMessage& other) {
  if (one.Size() != other.Size()) return false;
  for (int i = 0; i < one.Size(); ++i) {
    if (one.GetKey(i) != other.GetKey(i) || one.GetValue(i) != other.GetValue(i)) return false;
  }
  return true;
}

bool DecodeBody(GVariant* body) {
  CMessage message;
  std::string problem;
  if (!MessageCodec::Decode(body, message, problem)) {
    if (problem.empty() || message.Size() != 0) std::abort();
    return false;
  }
  const glib::Variant again = MessageCodec::Encode(message, problem);
  if (again == nullptr) {
    if (problem.empty()) std::abort();
    return true;
  }
  CMessage copy;
  if (!MessageCodec::Decode(again.get(), copy, problem) || !SamePairs(message, copy)) std::abort();
  return true;
}

bool DecodeFromTheBus(std::vector<std::uint8_t> bytes) {
  const glib::Object<GDBusMessage> message(g_dbus_message_new_from_blob(
      bytes.data(), bytes.size(), G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
  return message != nullptr && DecodeBody(g_dbus_message_get_body(message.get()));
}

}  // namespace

bool DecodeMessage(const std::uint8_t* data, std::size_t size) {
  const bool is_message = DecodeFromTheBus({data, data + size});
  const glib::Variant body = glib::Sink(g_variant_new_from_data(
      G_VARIANT_TYPE(MessageCodec::kBodyType), data, size, FALSE, nullptr, nullptr));
  DecodeBody(body.get());
  return is_message;
}

}  // namespace kavrel_fuzz
