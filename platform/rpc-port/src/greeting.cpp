#include "greeting.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "address.h"

namespace kavrel_rpc {

void GreetingText::Set(std::string_view text) {
  std::fill(std::begin(bytes), std::end(bytes), '\0');
  std::copy_n(text.data(), std::min(text.size(), sizeof bytes - 1), bytes);
}

std::string_view GreetingText::Get() const {
  const std::string_view text(bytes, ::strnlen(bytes, sizeof bytes));
  return IsName(text) ? text : std::string_view();
}

Hello Hello::Make(HelloKind kind, std::string_view text) {
  Hello hello{kGreetingMagic, kProtocolVersion, static_cast<std::uint16_t>(kind), {}};
  hello.text.Set(text);
  return hello;
}

bool Hello::IsValid() const {
  return magic == kGreetingMagic && version == kProtocolVersion &&
         kind <= static_cast<std::uint16_t>(HelloKind::kCallback) && !text.Get().empty();
}

Answer Answer::Make(int result, std::string_view text) {
  Answer answer{kGreetingMagic, result, {}};
  answer.text.Set(text);
  return answer;
}

bool Answer::IsValid() const {
  return magic == kGreetingMagic && result <= 0;
}

bool SendGreeting(int socket, Bytes bytes) {
  ssize_t sent = 0;
  do {
    sent = ::send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(bytes.size());
}

}  // namespace kavrel_rpc
