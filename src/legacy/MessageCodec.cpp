#include "MessageCodec.h"

#include <iterator>
#include <memory>

namespace kavreldbus {
namespace {

using kavrel::glib::Sink;
using kavrel::glib::Variant;

constexpr std::size_t AlignedTo(std::size_t alignment, std::size_t size) {
  return (size + alignment - 1) / alignment * alignment;
}

// A D-Bus string: length, bytes, NUL.
constexpr std::size_t StringEnd(std::size_t start, std::size_t length) {
  return AlignedTo(4, start) + 4 + length + 1;
}

bool IsUtf8(const std::string& text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

struct UnrefBytes {
  void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};

// Of a text that is known to be UTF-8: GLib's own way of making one would look through it again.
GVariant* TextVariant(const std::string& text) {
  const std::unique_ptr<GBytes, UnrefBytes> bytes(g_bytes_new(text.c_str(), text.size() + 1));
  return g_variant_new_from_bytes(G_VARIANT_TYPE_STRING, bytes.get(), TRUE);
}

GVariant* PairVariant(const std::string& key, const std::string& value) {
  GVariant* texts[] = {TextVariant(key), TextVariant(value)};
  return g_variant_new_tuple(texts, std::size(texts));
}

}  // namespace

Variant MessageCodec::Encode(const CMessage& message, std::string& problem) {
  if (message.Size() > kMaxPairs) {
    problem = std::to_string(message.Size()) + " pairs, at most " + std::to_string(kMaxPairs) +
              " can be sent";
    return nullptr;
  }
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
  std::size_t end = 8;
  for (const auto& [key, value] : message.pairs_) {
    end = StringEnd(StringEnd(AlignedTo(8, end), key.size()), value.size());
    if (!IsUtf8(key) || !IsUtf8(value)) problem = "a text that is not UTF-8";
    if (end > kMaxBodyBytes) {
      problem = "larger than the " + std::to_string(kMaxBodyBytes) + " bytes that can be sent";
    }
    if (!problem.empty()) {
      g_variant_builder_clear(&builder);
      return nullptr;
    }
    g_variant_builder_add_value(&builder, PairVariant(key, value));
  }
  return Sink(g_variant_new("(a(ss))", &builder));
}

bool MessageCodec::Decode(GVariant* body, CMessage& message, std::string& problem) {
  if (body == nullptr || !g_variant_is_of_type(body, G_VARIANT_TYPE(kBodyType))) {
    problem = std::string("body of type ") +
              (body == nullptr ? "none" : g_variant_get_type_string(body)) + ", must be " +
              kBodyType;
    return false;
  }
  const Variant pairs(g_variant_get_child_value(body, 0));
  const std::size_t count = g_variant_n_children(pairs.get());
  if (count > static_cast<std::size_t>(kMaxPairs)) {
    problem = std::to_string(count) + " pairs, at most " + std::to_string(kMaxPairs) + " are read";
    return false;
  }
  message.pairs_.reserve(count);
  GVariantIter iter;
  g_variant_iter_init(&iter, pairs.get());
  const char* key = nullptr;
  const char* value = nullptr;
  while (g_variant_iter_next(&iter, "(&s&s)", &key, &value)) message.AddValue(key, value);
  return true;
}

}  // namespace kavreldbus
