// What the tests of the command path stand on: a fake rpc-port service, and one timeline in which
// its calls and the library's log lines stand in the order in which they happened.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "app_api/tidl/KavrelAppApiProxy.h"
#include "dlog_capture.h"
#include "fake_rpc_port.h"

namespace kavrel_test {

namespace proxy = rpc_port::KavrelAppApiProxy::proxy;

// Log lines as the timeline shows them: everything of the line but its number.
std::string Line(const LogEntry& entry);
std::string ProxyLine(int priority, const std::string& function, const std::string& text);
std::string StubLine(int priority, const std::string& function, const std::string& text);
std::string ApiLine(int priority, const std::string& function, const std::string& text);
std::string ShowLine(int priority, const std::string& function, const std::string& text);

/// Belongs to the test's thread; calls and lines are recorded from any. Nothing may be used after
/// its end, and all texts must have been freed, when the test ends.
class CommandTest : public ::testing::Test {
 protected:
  CommandTest();
  ~CommandTest() override;

  /// What happened since the last time: calls and log lines.
  std::vector<std::string> TakeTimeline();
  /// The log lines of it alone.
  std::vector<std::string> TakeLines();
  void Forget() { TakeTimeline(); }

  FakeRpcPort rpc_;
  DlogCapture log_;

 private:
  struct Event {
    bool is_line;
    std::string text;
  };
  std::vector<Event> TakeEvents();

  std::mutex mutex_;
  std::vector<Event> events_;
};

/// Counts the connection's events.
class CountingListener final : public proxy::KavrelAppApi::IEventListener {
 public:
  void OnConnected() override { ++connected; }
  void OnDisconnected() override { ++disconnected; }
  void OnRejected() override { ++rejected; }

  int connected = 0;
  int disconnected = 0;
  int rejected = 0;
};

/// A test with one proxy.
class ProxyTest : public CommandTest {
 protected:
  /// Connects and forgets what that took.
  void Connect();
  /// A result for the request with this number, as a service stamps it.
  void QueueResult(int sequence, const Items& fields);
  void QueueParcel(const ParcelContent& content) { rpc_.Queue(rpc_.main_port(), content); }

  CountingListener listener_;
  proxy::KavrelAppApi proxy_{&listener_, "viewer"};
};

/// `{0}` and the fields.
Items ResultItems(const Items& fields);

}  // namespace kavrel_test

namespace rpc_port::KavrelAppApiProxy::proxy {

/// Reaches what only derived interfaces can put into a proxy.
struct ProxyTestAccess {
  static std::list<std::unique_ptr<KavrelAppApi::CallbackBase>>& Callbacks(KavrelAppApi& proxy) {
    return proxy.callbacks_;
  }
};

}  // namespace rpc_port::KavrelAppApiProxy::proxy
