// How connections begin and end, and what the handles are good for afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "environment.h"
#include "pair.h"

namespace {

using rpc_test::Count;
using rpc_test::Events;
using rpc_test::kPort;
using rpc_test::LoopThread;
using rpc_test::OwnAppId;
using rpc_test::ParcelOwner;
using rpc_test::Receive;
using rpc_test::TestClient;
using rpc_test::TestService;
using rpc_test::Watched;

class Connection : public rpc_test::IsolatedTest {
 protected:
  TestService service_;
  LoopThread client_thread_;
};

TEST_F(Connection, StandsWhenTheBlockingConnectReturns) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> on_caller{false};
  client.OnEvent("connected", [&](TestClient& self) {
    on_caller = std::this_thread::get_id() == caller && self.CallbackPort() != nullptr;
  });
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_TRUE(on_caller);
  ASSERT_NE(client.port(), nullptr);
  rpc_port_h main = nullptr;
  EXPECT_EQ(rpc_port_proxy_get_port(client.proxy(), RPC_PORT_PORT_MAIN, &main), 0);
  EXPECT_EQ(main, client.port());
  EXPECT_NE(client.CallbackPort(), client.port());
  // The service has seen its event before.
  const Events events = service_.events().Get();
  EXPECT_EQ(Count(events, "connected " + service_.Instance()), 1U);
}

TEST_F(Connection, GivesTheServiceItsTwoPorts) {
  ASSERT_EQ(service_.Listen(), 0);
  Watched<std::pair<rpc_port_h, rpc_port_h>> ports;
  const auto on_connected = service_.OnConnected([&](const std::string& id) {
    ports.Update([&](auto& pair) {
      pair = {service_.PortOf(id, RPC_PORT_PORT_MAIN), service_.PortOf(id, RPC_PORT_PORT_CALLBACK)};
    });
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_NE(ports.Get().first, nullptr);
  EXPECT_NE(ports.Get().second, nullptr);
  EXPECT_NE(ports.Get().first, ports.Get().second);
  EXPECT_EQ(service_.PortOf("no such instance"), nullptr);
}

TEST_F(Connection, WithoutWaitingTellsOnTheMainContext) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  std::atomic<bool> on_thread{false};
  client.OnEvent("connected", [&](TestClient&) { on_thread = client_thread_.IsThisThread(); });
  ASSERT_EQ(client.Connect(), 0);
  ASSERT_TRUE(client.WaitForEvent("connected"));
  EXPECT_TRUE(on_thread);
  EXPECT_EQ(client.Call(1), 2);
}

TEST_F(Connection, FailsWhereNobodyListens) {
  TestClient client(client_thread_);
  EXPECT_EQ(client.ConnectSync(), -5);
  EXPECT_EQ(client.Connect(), -5);
  ASSERT_EQ(service_.Listen(), 0);
  EXPECT_EQ(client.ConnectSync("OtherPort"), -5);
  EXPECT_EQ(client.ConnectSync(), 0);
  service_.DestroyStub();
  TestClient late(client_thread_);
  EXPECT_EQ(late.ConnectSync(), -5);
}

TEST_F(Connection, RefusesNamesThatAreNone) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  EXPECT_EQ(rpc_port_proxy_connect_sync(client.proxy(), nullptr, kPort), -22);
  EXPECT_EQ(rpc_port_proxy_connect_sync(client.proxy(), OwnAppId().c_str(), nullptr), -22);
  EXPECT_EQ(rpc_port_proxy_connect_sync(client.proxy(), "", kPort), -22);
  EXPECT_EQ(rpc_port_proxy_connect(nullptr, OwnAppId().c_str(), kPort), -22);
  rpc_port_stub_h stub = nullptr;
  EXPECT_EQ(rpc_port_stub_create(&stub, nullptr), -22);
  EXPECT_EQ(rpc_port_stub_create(nullptr, kPort), -22);
  EXPECT_EQ(stub, nullptr);
}

TEST_F(Connection, RefusesNullCallbacks) {
  TestClient client(client_thread_);
  EXPECT_EQ(rpc_port_proxy_add_connected_event_cb(client.proxy(), nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_proxy_add_disconnected_event_cb(client.proxy(), nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_proxy_add_rejected_event_cb(client.proxy(), nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_proxy_add_received_event_cb(client.proxy(), nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_stub_add_connected_event_cb(service_.stub(), nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_stub_add_disconnected_event_cb(service_.stub(), nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_stub_add_received_event_cb(service_.stub(), nullptr, nullptr), -22);
}

TEST_F(Connection, HasOneServiceAnAddress) {
  ASSERT_EQ(service_.Listen(), 0);
  TestService second;
  EXPECT_EQ(second.Listen(), -5);
  TestService elsewhere("OtherPort");
  EXPECT_EQ(elsewhere.Listen(), 0);
  service_.DestroyStub();
  EXPECT_EQ(second.Listen(), 0);
  TestClient client(client_thread_);
  EXPECT_EQ(client.ConnectSync(), 0);
}

void CountCall(const char*, const char*, rpc_port_h, void* calls) {
  static_cast<std::vector<int>*>(calls)->push_back(1);
}
void CountOtherCall(const char*, const char*, rpc_port_h, void* calls) {
  static_cast<std::vector<int>*>(calls)->push_back(2);
}

TEST_F(Connection, CallsAllCallbacksInOrder) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  std::vector<int> calls;
  rpc_port_proxy_add_connected_event_cb(client.proxy(), &CountCall, &calls);
  rpc_port_proxy_add_connected_event_cb(client.proxy(), &CountOtherCall, &calls);
  rpc_port_proxy_add_connected_event_cb(client.proxy(), &CountCall, &calls);
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(calls, (std::vector<int>{1, 2, 1}));
}

TEST_F(Connection, EndedByTheClientEndsAtBothEnds) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(rpc_port_disconnect(client.port()), 0);
  ASSERT_TRUE(client.WaitForEvent("disconnected"));
  ASSERT_TRUE(service_.WaitForEvent("disconnected " + service_.Instance()));
  EXPECT_NE(client.Send(1), 0);
  EXPECT_NE(Receive(client.port()).result, 0);
  EXPECT_EQ(Count(client.events().Get(), "disconnected"), 1U);
  service_.thread().Do([] {});  // the event has returned
  EXPECT_EQ(service_.PortOf(service_.Instance()), nullptr);
}

TEST_F(Connection, EndedByTheServiceEndsAtBothEnds) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  const std::string id = service_.Instance();
  EXPECT_EQ(rpc_port_disconnect(service_.PortOf(id, RPC_PORT_PORT_CALLBACK)), 0);
  ASSERT_TRUE(client.WaitForEvent("disconnected"));
  ASSERT_TRUE(service_.WaitForEvent("disconnected " + id));
  EXPECT_NE(client.Send(1), 0);
  EXPECT_EQ(Count(service_.events().Get(), "disconnected " + id), 1U);
}

TEST_F(Connection, EndsWithItsStub) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  service_.DestroyStub();
  ASSERT_TRUE(client.WaitForEvent("disconnected"));
  EXPECT_NE(client.Send(1), 0);
}

TEST_F(Connection, CanBeMadeAgain) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  std::vector<rpc_port_h> stale;
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(client.ConnectSync(), 0);
    EXPECT_EQ(client.Call(i), i + 1);
    stale.push_back(client.port());
    stale.push_back(client.CallbackPort());
    ASSERT_EQ(rpc_port_disconnect(client.port()), 0);
    ASSERT_TRUE(client.events().WaitUntil([&](const Events& events) {
      return Count(events, "disconnected") == static_cast<std::size_t>(i + 1);
    }));
  }
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(1), 2);
  const ParcelOwner parcel;
  for (const rpc_port_h port : stale) {
    EXPECT_NE(rpc_port_parcel_send(parcel.get(), port), 0);
    EXPECT_NE(Receive(port).result, 0);
    EXPECT_NE(rpc_port_disconnect(port), 0);
  }
  EXPECT_EQ(client.Call(1), 2);
}

// A client that runs no main loop learns of the end when it connects again.
TEST_F(Connection, CanBeMadeAgainWithoutAMainLoop) {
  ASSERT_EQ(service_.Listen(), 0);
  rpc_port_proxy_h proxy = nullptr;
  ASSERT_EQ(rpc_port_proxy_create(&proxy), 0);
  ASSERT_EQ(rpc_port_proxy_connect_sync(proxy, OwnAppId().c_str(), kPort), 0);
  rpc_port_h port = nullptr;
  ASSERT_EQ(rpc_port_proxy_get_port(proxy, RPC_PORT_PORT_MAIN, &port), 0);
  service_.DestroyStub();
  const ParcelOwner parcel;
  EXPECT_NE(rpc_port_parcel_send(parcel.get(), port), 0);
  TestService next;
  ASSERT_EQ(next.Listen(), 0);
  EXPECT_EQ(rpc_port_proxy_connect_sync(proxy, OwnAppId().c_str(), kPort), 0);
  EXPECT_EQ(rpc_port_proxy_destroy(proxy), 0);
}

TEST_F(Connection, WakesAReaderWhenItEnds) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto handler = service_.SetHandler(
      [](const std::string&, rpc_port_h port) { return rpc_port_disconnect(port); });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_LT(Receive(client.port()).result, 0);
}

TEST_F(Connection, LeavesRepliesReadableThatCameBeforeItsEnd) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto handler = service_.SetHandler([](const std::string&, rpc_port_h port) {
    TestService::Answer(port);
    return rpc_port_disconnect(port);
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  ASSERT_TRUE(client.WaitForEvent("disconnected"));
  EXPECT_EQ(Receive(client.port()).parcel.Int(), 2);
  EXPECT_LT(Receive(client.port()).result, 0);
}

// Where a proxy is destroyed: every event of its own, on the thread of the events.
class DestroyedIn : public Connection, public testing::WithParamInterface<const char*> {};

TEST_P(DestroyedIn, ProxyCallback) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  Watched<bool> is_destroyed;
  client.OnEvent(GetParam(), [&](TestClient& self) {
    EXPECT_EQ(self.Destroy(), 0);
    is_destroyed.Update([](bool& done) { done = true; });
  });
  ASSERT_EQ(client.Connect(), 0);
  ASSERT_NE(service_.Instance(), "");
  if (std::string(GetParam()) == "received") {
    ParcelOwner parcel;
    rpc_port_parcel_send(parcel.get(),
                         service_.PortOf(service_.Instance(), RPC_PORT_PORT_CALLBACK));
    rpc_port_parcel_send(parcel.get(),
                         service_.PortOf(service_.Instance(), RPC_PORT_PORT_CALLBACK));
  }
  if (std::string(GetParam()) == "disconnected") {
    ASSERT_TRUE(client.WaitForEvent("connected"));  // before it, this would be a refusal
    rpc_port_disconnect(service_.PortOf(service_.Instance()));
  }
  ASSERT_TRUE(is_destroyed.WaitUntil([](bool done) { return done; }));
  ASSERT_TRUE(service_.WaitForEvent("disconnected " + service_.Instance()));
}

INSTANTIATE_TEST_SUITE_P(Events, DestroyedIn,
                         testing::Values("connected", "received", "disconnected"));

TEST_F(Connection, StubMayBeDestroyedInItsConnectedCallback) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto on_connected =
      service_.OnConnected([&](const std::string&) { service_.DestroyStub(); });
  TestClient client(client_thread_);
  EXPECT_NE(client.ConnectSync(), 0);
}

TEST_F(Connection, StubMayBeDestroyedInItsReceivedCallback) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    const auto request = Receive(port);
    service_.DestroyStub();
    return request.result;
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(1), std::nullopt);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
}

TEST_F(Connection, StubMayBeDestroyedInItsDisconnectedCallback) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto on_disconnected =
      service_.OnDisconnected([&](const std::string&) { service_.DestroyStub(); });
  TestClient client(client_thread_);
  TestClient other(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(other.ConnectSync(), 0);
  client.Destroy();
  EXPECT_TRUE(other.WaitForEvent("disconnected"));
}

TEST_F(Connection, MayBeEndedInTheServicesConnectedCallback) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto on_connected = service_.OnConnected(
      [&](const std::string& id) { rpc_port_disconnect(service_.PortOf(id)); });
  TestClient client(client_thread_);
  EXPECT_LT(client.ConnectSync(), 0);
  EXPECT_EQ(Count(client.events().Get(), "rejected"), 1U);
  EXPECT_EQ(Count(client.events().Get(), "connected"), 0U);
  EXPECT_TRUE(service_.WaitForEvent("disconnected " + service_.Instance()));
}

TEST_F(Connection, RefusalIsToldToAClientThatDoesNotWait) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto on_connected = service_.OnConnected(
      [&](const std::string& id) { rpc_port_disconnect(service_.PortOf(id)); });
  TestClient client(client_thread_);
  EXPECT_EQ(client.Connect(), 0);
  EXPECT_TRUE(client.WaitForEvent("rejected"));
  EXPECT_EQ(client.port(), nullptr);
}

TEST_F(Connection, MayBeEndedInTheClientsConnectedCallback) {
  ASSERT_EQ(service_.Listen(), 0);
  TestClient client(client_thread_);
  client.OnEvent("connected", [](TestClient& self) { rpc_port_disconnect(self.port()); });
  EXPECT_EQ(client.ConnectSync(), 0);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
  EXPECT_TRUE(service_.WaitForEvent("disconnected " + service_.Instance()));
}

TEST_F(Connection, ProxyMayBeDestroyedWhileItsThreadDelivers) {
  ASSERT_EQ(service_.Listen(), 0);
  for (int round = 0; round < 50; ++round) {
    TestClient client(client_thread_);
    client.OnEvent("received", [](TestClient& self) { Receive(self.CallbackPort()); });
    ASSERT_EQ(client.ConnectSync(), 0);
    const rpc_port_h port =
        service_.PortOf(service_.Instance(static_cast<std::size_t>(round)), RPC_PORT_PORT_CALLBACK);
    for (int i = 0; i < 20; ++i) {
      ParcelOwner parcel;
      rpc_port_parcel_send(parcel.get(), port);
    }
    // Half the rounds in the middle of the deliveries, the others before they begin.
    if (round % 2 == 0) client.WaitForEvent("received");
    ASSERT_EQ(client.Destroy(), 0);
    const auto events = client.events().Get().size();
    client_thread_.Do([] {});
    EXPECT_EQ(client.events().Get().size(), events) << "a callback after destroy";
  }
}

TEST_F(Connection, ProxyMayBeDestroyedWhileOthersUseItsPort) {
  ASSERT_EQ(service_.Listen(), 0);
  const auto handler =
      service_.SetHandler([](const std::string&, rpc_port_h) { return 0; });  // never answers
  for (int round = 0; round < 20; ++round) {
    TestClient client(client_thread_);
    ASSERT_EQ(client.ConnectSync(), 0);
    Watched<int> inside;
    std::thread reader([&, port = client.port()] {
      inside.Update([](int& count) { ++count; });
      EXPECT_LT(Receive(port).result, 0);
    });
    ASSERT_TRUE(inside.WaitUntil([](int count) { return count == 1; }));
    // The reader is about to read, or reads: both have to be safe once it has begun, so it is
    // joined before the handle goes.
    rpc_port_disconnect(client.port());
    reader.join();
    ASSERT_EQ(client.Destroy(), 0);
  }
}

// A handler that runs the main loop itself is not called again meanwhile.
TEST_F(Connection, HandlerMayRunTheMainLoop) {
  ASSERT_EQ(service_.Listen(), 0);
  std::atomic<int> depth{0};
  std::atomic<int> deepest{0};
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    deepest = std::max(deepest.load(), ++depth);
    const int result = TestService::Answer(port);
    GMainContext* const context = g_main_context_get_thread_default();
    for (int i = 0; i < 20; ++i) g_main_context_iteration(context, FALSE);
    --depth;
    return result;
  });
  TestClient first(client_thread_);
  TestClient second(client_thread_);
  ASSERT_EQ(first.ConnectSync(), 0);
  ASSERT_EQ(second.ConnectSync(), 0);
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(first.Send(i), 0);
    ASSERT_EQ(second.Call(i), i + 1);
    ASSERT_EQ(Receive(first.port()).parcel.Int(), i + 1);
  }
  EXPECT_EQ(deepest, 1);
}

}  // namespace
