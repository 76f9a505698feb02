#include "raw_client.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rpc_test {
namespace {

constexpr std::size_t kGreetingSize = 80;
constexpr std::size_t kGreetingTextOffset = 8;

template <typename Number>
void Append(Bytes& bytes, Number number) {
  const auto* const raw = reinterpret_cast<const std::uint8_t*>(&number);
  bytes.insert(bytes.end(), raw, raw + sizeof number);
}

void Append(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
}

}  // namespace

FrameBuilder& FrameBuilder::Sequence(std::int32_t value) {
  sequence_ = value;
  return *this;
}

FrameBuilder& FrameBuilder::Tag(const std::string& text) {
  return RawTag(text + '\0');
}

FrameBuilder& FrameBuilder::RawTag(const std::string& bytes) {
  tag_ = bytes;
  return *this;
}

FrameBuilder& FrameBuilder::Int(std::int32_t value) {
  items_.push_back('i');
  Append(items_, value);
  return *this;
}

FrameBuilder& FrameBuilder::Bool(std::uint8_t value) {
  return Raw({'b', value});
}

FrameBuilder& FrameBuilder::Count(std::int32_t value) {
  items_.push_back('a');
  Append(items_, value);
  return *this;
}

FrameBuilder& FrameBuilder::Text(const std::string& text) {
  return RawText(static_cast<std::uint32_t>(text.size() + 1), text + '\0');
}

FrameBuilder& FrameBuilder::RawText(std::uint32_t stated_size, const std::string& bytes) {
  items_.push_back('s');
  Append(items_, stated_size);
  Append(items_, bytes);
  return *this;
}

FrameBuilder& FrameBuilder::Raw(const Bytes& bytes) {
  items_.insert(items_.end(), bytes.begin(), bytes.end());
  return *this;
}

FrameBuilder& FrameBuilder::Size(std::uint32_t stated) {
  size_ = stated;
  return *this;
}

Bytes FrameBuilder::Build() const {
  Bytes frame;
  const std::size_t size = 10 + tag_.size() + items_.size();
  Append(frame, size_.value_or(static_cast<std::uint32_t>(size)));
  Append(frame, sequence_);
  Append(frame, static_cast<std::uint16_t>(tag_.size()));
  Append(frame, tag_);
  frame.insert(frame.end(), items_.begin(), items_.end());
  return frame;
}

Bytes IntFrame(std::int32_t value) {
  return FrameBuilder().Tag("1.9.1").Int(value).Build();
}

RawSocket::RawSocket(const std::string& runtime, const std::string& name)
    : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const struct timeval limit { 30, 0 };
  ::setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  const kavrel_test::Descriptor node(
      ::open((runtime + "/rpc/" + name).c_str(), O_PATH | O_CLOEXEC));
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  (void)std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", node.get());
  if (::connect(fd_.get(), reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0) {
    return;
  }
  error_ = errno;
  fd_.Reset();
}

bool RawSocket::Send(const Bytes& bytes) const {
  return ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

bool SendWithDescriptors(int socket, const Bytes& bytes, int count) {
  const std::vector<int> descriptors(static_cast<std::size_t>(count), socket);
  const std::size_t size = descriptors.size() * sizeof(int);
  Bytes control(CMSG_SPACE(size));
  struct iovec piece {
    const_cast<std::uint8_t*>(bytes.data()), bytes.size()
  };
  struct msghdr message {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  struct cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(size);
  std::memcpy(CMSG_DATA(header), descriptors.data(), size);
  return ::sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

Bytes HelloBytes(std::uint32_t magic, std::uint16_t version, std::uint16_t kind,
                 const std::string& text) {
  Bytes hello;
  Append(hello, magic);
  Append(hello, version);
  Append(hello, kind);
  Append(hello, text);
  hello.resize(kGreetingSize);
  return hello;
}

bool RawSocket::SendHello(std::uint16_t kind, const std::string& text) const {
  return Send(HelloBytes(kMagic, 1, kind, text));
}

bool RawSocket::ReadExactly(std::uint8_t* to, std::size_t size) const {
  while (size > 0) {
    const ssize_t received = ::recv(fd(), to, size, 0);
    if (received <= 0) return false;
    to += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

std::optional<RawAnswer> RawSocket::ReadAnswer() const {
  Bytes bytes(kGreetingSize);
  if (!ReadExactly(bytes.data(), bytes.size())) return std::nullopt;
  RawAnswer answer;
  std::memcpy(&answer.result, bytes.data() + sizeof(std::uint32_t), sizeof answer.result);
  answer.text = reinterpret_cast<const char*>(bytes.data() + kGreetingTextOffset);
  return answer;
}

std::optional<Bytes> RawSocket::ReadFrame() const {
  Bytes frame(sizeof(std::uint32_t));
  if (!ReadExactly(frame.data(), frame.size())) return std::nullopt;
  std::uint32_t size = 0;
  std::memcpy(&size, frame.data(), sizeof size);
  frame.resize(std::max<std::size_t>(size, sizeof size));
  if (!ReadExactly(frame.data() + sizeof size, frame.size() - sizeof size)) return std::nullopt;
  return frame;
}

bool RawSocket::WaitForHangUp() const {
  std::uint8_t buffer[4096];
  for (;;) {
    const ssize_t received = ::recv(fd(), buffer, sizeof buffer, 0);
    if (received == 0 || (received < 0 && errno == ECONNRESET)) return true;
    if (received < 0) return false;
  }
}

RawClient::RawClient(const std::string& runtime, const std::string& name)
    : main(runtime, name), callback(runtime, name) {
  if (!main.IsConnected() || !callback.IsConnected()) return;
  if (!main.SendHello(0, "org.zarnet.raw")) return;
  const auto answer = main.ReadAnswer();
  if (!answer || answer->result != 0) return;
  instance = answer->text;
  if (!callback.SendHello(1, instance)) return;
  const auto joined = callback.ReadAnswer();
  is_connected = joined && joined->result == 0;
}

}  // namespace rpc_test
