// A message on the bus: "(a(ss))", the pairs in their order.
//
// Any thread; a message is used by one at a time.
#pragma once

#include <string>

#include "../common/glib.h"
#include "Message.h"

namespace kavreldbus {

class MessageCodec {
 public:
  /// The type of a body, as GVariant writes it.
  static constexpr const char* kBodyType = "(a(ss))";
  /// More pairs than any message needs. Both ends keep to it: in the receiver's memory a pair takes
  /// several times its place on the bus.
  static constexpr int kMaxPairs = 65536;
  /// What a bus with the usual limits lets through (32 MiB a message), less room for a header. A
  /// larger message would cost the sender its connection.
  static constexpr std::size_t kMaxBodyBytes = 32U * 1024 * 1024 - 4096;

  /// The body for `message`; each text is copied once. Null, with `problem` saying why, when the
  /// message cannot travel.
  static kavrel::glib::Variant Encode(const CMessage& message, std::string& problem);

  /// Fills `message`, which is empty, from a body that came from another process; each text is
  /// copied once. False, with `problem` saying why and nothing read, when it is null, of another
  /// type, or has too many pairs.
  static bool Decode(GVariant* body, CMessage& message, std::string& problem);
};

}  // namespace kavreldbus
