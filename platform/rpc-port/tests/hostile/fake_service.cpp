#include "fake_service.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace rpc_test {
namespace {

bool ReadAll(int fd, std::uint8_t* to, std::size_t size) {
  while (size > 0) {
    const ssize_t received = ::recv(fd, to, size, 0);
    if (received <= 0) return false;
    to += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

void SendAll(int fd, const Bytes& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t now = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now <= 0) return;
    sent += static_cast<std::size_t>(now);
  }
}

kavrel_test::Descriptor AcceptGreeted(int listener) {
  kavrel_test::Descriptor socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  Bytes hello(80);
  if (socket && !ReadAll(socket.get(), hello.data(), hello.size())) socket.Reset();
  return socket;
}

}  // namespace

void FakeConnection::Send(const Bytes& bytes) const {
  SendAll(main.get(), bytes);
}

void FakeConnection::SendCallback(const Bytes& bytes) const {
  SendAll(callback.get(), bytes);
}

void FakeConnection::SendDescriptors(int count, const Bytes& bytes) const {
  SendWithDescriptors(main.get(), bytes, count);
}

Bytes FakeConnection::ReadFrame() const {
  Bytes frame(sizeof(std::uint32_t));
  if (!ReadAll(main.get(), frame.data(), frame.size())) return {};
  std::uint32_t size = 0;
  std::memcpy(&size, frame.data(), sizeof size);
  frame.resize(size);
  return ReadAll(main.get(), frame.data() + sizeof size, size - sizeof size) ? frame : Bytes();
}

Bytes AnswerBytes(std::uint32_t magic, std::int32_t result, const std::string& text) {
  Bytes answer(80);
  std::memcpy(answer.data(), &magic, sizeof magic);
  std::memcpy(answer.data() + 4, &result, sizeof result);
  std::memcpy(answer.data() + 8, text.data(), text.size());
  return answer;
}

kavrel_test::Descriptor ListenAt(const std::string& runtime, const std::string& name) {
  const std::string directory = runtime + "/rpc";
  ::mkdir(directory.c_str(), 0700);
  kavrel_test::Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  (void)std::snprintf(address.sun_path, sizeof address.sun_path, "%s/%s", directory.c_str(),
                      name.c_str());
  if (::bind(listener.get(), reinterpret_cast<struct sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), 16) != 0) {
    throw std::system_error(errno, std::generic_category(), address.sun_path);
  }
  return listener;
}

FakeService::FakeService(const std::string& runtime, const std::string& name, Body body)
    : listener_(ListenAt(runtime, name)),
      thread_([this, work = std::move(body)] { Serve(work); }) {}

FakeService::~FakeService() {
  ::shutdown(listener_.get(), SHUT_RDWR);  // ends a wait in accept
  thread_.join();
}

void FakeService::Serve(const Body& body) {
  FakeConnection connection;
  connection.main = AcceptGreeted(listener_.get());
  if (!connection.main) return;
  connection.Send(AnswerBytes(kMagic, 0, "fake-instance"));
  connection.callback = AcceptGreeted(listener_.get());
  if (!connection.callback) return;
  connection.SendCallback(AnswerBytes(kMagic, 0, ""));
  body(connection);
}

}  // namespace rpc_test
