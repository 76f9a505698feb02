// A service that speaks the wire by itself, so that it can also speak it wrongly. It serves one
// connection with a body that a test gives, on a thread of its own.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "child_process.h"
#include "raw_client.h"

namespace rpc_test {

/// Sockets of one accepted client. For the service's thread.
struct FakeConnection {
  kavrel_test::Descriptor main;
  kavrel_test::Descriptor callback;

  void Send(const Bytes& bytes) const;
  void SendCallback(const Bytes& bytes) const;
  void SendDescriptors(int count, const Bytes& bytes) const;
  /// A whole frame; empty when the client has gone.
  Bytes ReadFrame() const;
};

class FakeService {
 public:
  using Body = std::function<void(FakeConnection&)>;

  /// Listens on <runtime>/rpc/<name> and, when a client has connected, runs `body`.
  FakeService(const std::string& runtime, const std::string& name, Body body);
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;
  ~FakeService();

 private:
  void Serve(const Body& body);

  kavrel_test::Descriptor listener_;
  std::thread thread_;
};

/// The answer to a greeting, whatever it says.
Bytes AnswerBytes(std::uint32_t magic, std::int32_t result, const std::string& text);

/// A listening socket at <runtime>/rpc/<name>, directory included.
kavrel_test::Descriptor ListenAt(const std::string& runtime, const std::string& name);

}  // namespace rpc_test
