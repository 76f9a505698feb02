// What the tests of the service stub stand on.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command_fixture.h"
#include "recording_service.h"

namespace kavrel_test {

inline constexpr int kRequestSequence = 77;

/// A test with one stub, and one client when it asks for it.
class StubTest : public CommandTest {
 protected:
  /// Listens and forgets what that took.
  void Listen();
  /// Connects the client "client" as instance "i1" and forgets what that took.
  void ConnectClient();
  /// Serves a request of "i1"; the handler's result.
  int Request(const Items& items);

  ServiceLog services_;
  std::shared_ptr<RecordingFactory> factory_ = std::make_shared<RecordingFactory>(services_);
  std::unique_ptr<stub::KavrelAppApi> stub_ = std::make_unique<stub::KavrelAppApi>();
};

/// Without the reads, whose number is the decoder's business.
std::vector<std::string> WithoutReads(std::vector<std::string> timeline);

}  // namespace kavrel_test
