// A service under attack, an honest client beside, and short time-outs.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "environment.h"
#include "log_capture.h"
#include "pair.h"
#include "raw_client.h"

namespace rpc_test {

/// Whether a process of the user `own` with this list would deal with `uid` (credentials_test.cpp).
bool IsTrustedBy(uid_t own, const std::string& allowed, uid_t uid);

/// Variables that a test sets before its service and clients are made.
class HostileTest : public IsolatedTest {
 protected:
  static constexpr const char* kName = "org.zarnet.conformance:TestPort";

  HostileTest() { TakeLog(); }

  void Set(const char* variable, const std::string& value) {
    environment_.push_back(std::make_unique<kavrel_test::ScopedEnvironment>(variable, value));
  }
  /// Makes the service and the honest client.
  void Start() {
    service_.emplace();
    ASSERT_EQ(service_->Listen(), 0);
    honest_.emplace(client_thread_);
    ASSERT_EQ(honest_->ConnectSync(), 0);
  }
  /// Waits until the service's thread is done with what it is doing.
  void Settle() {
    service_->thread().Do([] {});
  }
  void ExpectOthersServed() { EXPECT_EQ(honest_->Call(41), 42); }

  TestService& service() { return *service_; }
  TestClient& honest() { return *honest_; }
  LoopThread& client_thread() { return client_thread_; }

 private:
  std::vector<std::unique_ptr<kavrel_test::ScopedEnvironment>> environment_;
  LoopThread client_thread_;
  std::optional<TestService> service_;
  std::optional<TestClient> honest_;
};

}  // namespace rpc_test
