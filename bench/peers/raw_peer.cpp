// Bare local sockets: what every call between processes is made of.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <unordered_map>

#include "peers/peer.h"

namespace kavrel_bench {
namespace {

// Whole one-way messages fit, so that what was read never ends inside one.
constexpr std::size_t kReadBytes = 900 * kOneWayBytes;

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error(path + " is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size());
  return address;
}

int Open(int type) {
  const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
  if (fd < 0) throw std::runtime_error("no socket");
  return fd;
}

/// Answers each request that it finds in what was read. A stream counts what it has: one-way
/// messages are of one size, so that the rest is a request.
void Answer(int fd, std::size_t got) {
  static constexpr std::array<char, kResultBytes> kResult{};
  if (got % kOneWayBytes != kRequestBytes) return;
  if (send(fd, kResult.data(), kResult.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("send");
}

void Accept(int epoll, int listener) {
  const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) throw std::runtime_error("accept");
  epoll_event wanted{EPOLLIN, {.fd = fd}};
  epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &wanted);
}

void Serve(int type, const std::string& path, const std::function<void()>& ready) {
  const int listener = Open(type);
  const sockaddr_un address = AddressOf(path);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    throw std::runtime_error("cannot listen on " + path);
  }
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event wanted{EPOLLIN, {.fd = listener}};
  epoll_ctl(epoll, EPOLL_CTL_ADD, listener, &wanted);
  ready();
  std::vector<char> buffer(kReadBytes);
  for (;;) {
    epoll_event event{};
    if (epoll_wait(epoll, &event, 1, -1) != 1) continue;
    if (event.data.fd == listener) {
      Accept(epoll, listener);
      continue;
    }
    const ssize_t got = read(event.data.fd, buffer.data(), buffer.size());
    if (got <= 0) {
      close(event.data.fd);
      continue;
    }
    Answer(event.data.fd, static_cast<std::size_t>(got));
  }
}

class RawCaller final : public Caller {
 public:
  RawCaller(int type, const std::string& path) : fd_(Open(type)) {
    const sockaddr_un address = AddressOf(path);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot connect to " + path);
    }
  }
  RawCaller(const RawCaller&) = delete;
  RawCaller& operator=(const RawCaller&) = delete;
  ~RawCaller() override { close(fd_); }

  void TwoWay() override {
    std::array<char, kResultBytes> buffer{};
    Write(buffer.data(), kRequestBytes);
    for (std::size_t got = 0; got < kResultBytes;) {
      const ssize_t n = read(fd_, buffer.data(), buffer.size() - got);
      if (n <= 0) throw std::runtime_error("no answer on a raw socket");
      got += static_cast<std::size_t>(n);
    }
  }
  void OneWay(int /*number*/) override {
    static constexpr std::array<char, kOneWayBytes> kMessage{};
    Write(kMessage.data(), kMessage.size());
  }

 private:
  void Write(const char* bytes, std::size_t count) const {
    if (write(fd_, bytes, count) != static_cast<ssize_t>(count)) {
      throw std::runtime_error("cannot write to a raw socket");
    }
  }

  int fd_;
};

template <int type>
void ServeOn(const std::string& address, const std::function<void()>& ready) {
  Serve(type, address, ready);
}

template <int type>
std::unique_ptr<Caller> ConnectTo(const std::string& address) {
  return std::make_unique<RawCaller>(type, address);
}

}  // namespace

Peer RawPacketPeer() {
  return {"raw socket, packets", Kind::kLimit, &ServeOn<SOCK_SEQPACKET>,
          &ConnectTo<SOCK_SEQPACKET>};
}

Peer RawStreamPeer() {
  return {"raw socket, stream", Kind::kLimit, &ServeOn<SOCK_STREAM>, &ConnectTo<SOCK_STREAM>};
}

}  // namespace kavrel_bench
