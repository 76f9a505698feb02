// A client that speaks the wire by itself, so that it can also speak it wrongly.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "child_process.h"

namespace rpc_test {

using Bytes = std::vector<std::uint8_t>;

/// A frame as README.md describes it, put together by hand.
class FrameBuilder {
 public:
  FrameBuilder& Sequence(std::int32_t value);
  FrameBuilder& Tag(const std::string& text);      ///< with its NUL
  FrameBuilder& RawTag(const std::string& bytes);  ///< as it is
  FrameBuilder& Int(std::int32_t value);
  FrameBuilder& Bool(std::uint8_t value);
  FrameBuilder& Count(std::int32_t value);
  FrameBuilder& Text(const std::string& text);  ///< with its NUL
  FrameBuilder& RawText(std::uint32_t stated_size, const std::string& bytes);
  FrameBuilder& Raw(const Bytes& bytes);
  /// States another size than the true one.
  FrameBuilder& Size(std::uint32_t stated);

  Bytes Build() const;

 private:
  std::int32_t sequence_ = 1;
  std::string tag_;
  Bytes items_;
  std::optional<std::uint32_t> size_;
};

/// A request that the test service answers with value + 1.
Bytes IntFrame(std::int32_t value);

struct RawAnswer {
  std::int32_t result;
  std::string text;
};

/// Sends bytes with `count` descriptors beside them. Whether the kernel took all.
bool SendWithDescriptors(int socket, const Bytes& bytes, int count);

/// One blocking socket to a service, bounded by a generous time-out.
class RawSocket {
 public:
  /// Connects to <runtime>/rpc/<name>; errno of the failure in error().
  RawSocket(const std::string& runtime, const std::string& name);

  bool IsConnected() const { return fd_.get() >= 0; }
  int error() const { return error_; }
  int fd() const { return fd_.get(); }

  /// Whether the service took all of it.
  bool Send(const Bytes& bytes) const;
  bool SendWithDescriptors(const Bytes& bytes, int count) const {
    return rpc_test::SendWithDescriptors(fd(), bytes, count);
  }
  bool SendHello(std::uint16_t kind, const std::string& text) const;
  std::optional<RawAnswer> ReadAnswer() const;
  /// A whole frame, its size included; nothing when the service has hung up.
  std::optional<Bytes> ReadFrame() const;
  /// Reads until the service hangs up.
  bool WaitForHangUp() const;
  void Close() { fd_.Reset(); }

 private:
  bool ReadExactly(std::uint8_t* to, std::size_t size) const;

  kavrel_test::Descriptor fd_;
  int error_ = 0;
};

/// The bytes of a hello, whatever they say.
Bytes HelloBytes(std::uint32_t magic, std::uint16_t version, std::uint16_t kind,
                 const std::string& text);
inline constexpr std::uint32_t kMagic = 0x3150524B;

/// Both sockets of a connection that stands.
struct RawClient {
  explicit RawClient(const std::string& runtime, const std::string& name);

  RawSocket main;
  RawSocket callback;
  std::string instance;
  bool is_connected = false;
};

}  // namespace rpc_test
