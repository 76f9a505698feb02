// The first bytes on a new socket, each way. Both are of one size, so that nothing has to be
// believed before it can be read.
//
//   client   hello   kind 0: I am the main socket of the application `text`
//                    kind 1: I am the callback socket of the connection `text`
//   service  answer  result 0 or the negative code that refuses; to a main socket, `text` is the
//                    instance id. The answer to the callback socket comes when the service has
//                    seen its connected event.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "frame.h"

namespace kavrel_rpc {

inline constexpr std::uint32_t kGreetingMagic = 0x3150524B;  // "KRP1"
inline constexpr std::uint16_t kProtocolVersion = 1;

enum class HelloKind : std::uint16_t { kMain = 0, kCallback = 1 };

/// A name on the wire: NUL-padded. Instance ids keep to the same rules as application ids.
struct GreetingText {
  char bytes[72];

  void Set(std::string_view text);
  /// Empty when it is not a name.
  std::string_view Get() const;
};

struct Hello {
  std::uint32_t magic;
  std::uint16_t version;
  std::uint16_t kind;
  GreetingText text;

  static Hello Make(HelloKind kind, std::string_view text);
  bool IsValid() const;
};

struct Answer {
  std::uint32_t magic;
  std::int32_t result;
  GreetingText text;

  static Answer Make(int result, std::string_view text);
  bool IsValid() const;
};

static_assert(sizeof(Hello) == 80 && sizeof(Answer) == 80, "no padding on the wire");

/// Receives one Hello or Answer, in as many pieces as it comes.
template <typename Message>
class GreetingReader {
 public:
  /// Where the next bytes go, and that `count` have come.
  std::span<std::uint8_t> Room() {
    return std::span(reinterpret_cast<std::uint8_t*>(&message_), sizeof message_).subspan(size_);
  }
  void Filled(std::size_t count) { size_ += count; }
  bool IsWhole() const { return size_ == sizeof message_; }
  const Message& message() const { return message_; }

 private:
  Message message_{};
  std::size_t size_ = 0;
};

/// The whole message or nothing, without waiting: a new socket has room for it.
bool SendGreeting(int socket, Bytes bytes);

template <typename Message>
bool SendGreeting(int socket, const Message& message) {
  return SendGreeting(socket,
                      Bytes(reinterpret_cast<const std::uint8_t*>(&message), sizeof message));
}

}  // namespace kavrel_rpc
