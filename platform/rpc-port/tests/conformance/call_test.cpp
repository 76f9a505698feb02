// Requests, results and callback parcels between a service and its clients.
#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>

#include "environment.h"
#include "pair.h"

namespace {

using rpc_test::Count;
using rpc_test::Events;
using rpc_test::LoopThread;
using rpc_test::ParcelOwner;
using rpc_test::Receive;
using rpc_test::TestClient;
using rpc_test::TestService;
using rpc_test::Watched;

class Call : public rpc_test::IsolatedTest {
 protected:
  Call() { EXPECT_EQ(service_.Listen(), 0); }

  TestService service_;
  LoopThread client_thread_;
};

TEST_F(Call, IsAnswered) {
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(client.Call(i), i + 1);
}

TEST_F(Call, CarriesTagAndSequenceNumber) {
  Watched<std::string> tag;
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    const auto request = Receive(port);
    tag.Update([&](std::string& text) { text = request.parcel.tag().value_or("none"); });
    ParcelOwner answer;
    answer.SetSequence(request.parcel.sequence());
    return rpc_port_parcel_send(answer.get(), port);
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ParcelOwner request;
  request.SetTag("1.9.1");
  ASSERT_EQ(rpc_port_parcel_send(request.get(), client.port()), 0);
  const auto answer = Receive(client.port());
  ASSERT_EQ(answer.result, 0);
  EXPECT_EQ(answer.parcel.sequence(), request.sequence());
  EXPECT_EQ(answer.parcel.tag(), std::nullopt);
  EXPECT_EQ(tag.Get(), "1.9.1");
}

TEST_F(Call, SendsOneParcelSeveralTimes) {
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ParcelOwner request;
  request.Int(41);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(rpc_port_parcel_send(request.get(), client.port()), 0);
    EXPECT_EQ(Receive(client.port()).parcel.Int(), 42);
  }
}

TEST_F(Call, CarriesLargeParcelsBothWays) {
  const auto handler = service_.SetHandler([](const std::string&, rpc_port_h port) {
    const auto request = Receive(port);
    ParcelOwner answer;
    answer.SetSequence(request.parcel.sequence());
    answer.Text(request.parcel.Text().value_or("missing"));
    return rpc_port_parcel_send(answer.get(), port);
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  for (const std::size_t size : {0U, 1U, 4000U, 5000U, 65536U, 100000U, 700000U}) {
    ParcelOwner request;
    const std::string text(size, 'x');
    request.Text(text);
    ASSERT_EQ(rpc_port_parcel_send(request.get(), client.port()), 0);
    const auto answer = Receive(client.port());
    ASSERT_EQ(answer.result, 0);
    ASSERT_EQ(answer.parcel.Text(), text);
  }
}

TEST_F(Call, KeepsTheOrderOfOneClient) {
  Watched<std::vector<int>> seen;
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    const int value = Receive(port).parcel.Int().value_or(-1);
    seen.Update([&](auto& values) { values.push_back(value); });
    return 0;
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  std::vector<int> sent(5000);
  std::iota(sent.begin(), sent.end(), 0);
  for (const int value : sent) ASSERT_EQ(client.Send(value), 0);
  ASSERT_TRUE(seen.WaitUntil([&](const auto& values) { return values.size() == sent.size(); }));
  EXPECT_EQ(seen.Get(), sent);
}

TEST_F(Call, DeliversWhatWasSentBeforeTheClientWentAway) {
  {
    TestClient client(client_thread_);
    ASSERT_EQ(client.ConnectSync(), 0);
    for (int i = 0; i < 200; ++i) ASSERT_EQ(client.Send(i), 0);
  }
  const std::string id = service_.Instance();
  ASSERT_TRUE(service_.WaitForEvent("disconnected " + id));
  const Events events = service_.events().Get();
  EXPECT_EQ(Count(events, "request " + id), 200U);
  EXPECT_EQ(Count(events, "disconnected " + id), 1U);
  EXPECT_EQ(events.back(), "disconnected " + id);
}

TEST_F(Call, TellsClientsApart) {
  TestClient first(client_thread_);
  TestClient second(client_thread_);
  ASSERT_EQ(first.ConnectSync(), 0);
  ASSERT_EQ(second.ConnectSync(), 0);
  const std::string first_id = service_.Instance(0);
  const std::string second_id = service_.Instance(1);
  EXPECT_NE(first_id, second_id);
  EXPECT_EQ(second.Call(1), 2);
  EXPECT_EQ(first.Call(5), 6);
  first.Destroy();
  ASSERT_TRUE(service_.WaitForEvent("disconnected " + first_id));
  EXPECT_EQ(second.Call(7), 8);
  EXPECT_EQ(Count(service_.events().Get(), "disconnected " + second_id), 0U);
}

TEST_F(Call, DropsARequestThatItsEventDidNotRead) {
  std::atomic<int> number{0};
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    return number++ == 0 ? -1 : TestService::Answer(port);
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(client.Call(2), 3);
}

TEST_F(Call, HasOneParcelAnEvent) {
  Watched<std::vector<int>> results;
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    const auto first = Receive(port);
    const auto second = Receive(port);
    results.Update([&](auto& all) { all = {first.result, second.result}; });
    return 0;
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  ASSERT_TRUE(results.WaitUntil([](const auto& all) { return !all.empty(); }));
  EXPECT_EQ(results.Get()[0], 0);
  EXPECT_LT(results.Get()[1], 0);
}

TEST_F(Call, GoesOnAfterAHandlerThatFails) {
  const auto handler = service_.SetHandler([](const std::string&, rpc_port_h port) {
    TestService::Answer(port);
    return -1;
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(1), 2);
  EXPECT_EQ(client.Call(2), 3);
}

TEST_F(Call, DeliversCallbackParcelsOnTheClientsThread) {
  TestClient client(client_thread_);
  Watched<std::vector<int>> received;
  std::atomic<bool> on_thread{true};
  client.OnEvent("received", [&](TestClient& self) {
    if (!client_thread_.IsThisThread()) on_thread = false;
    const int value = Receive(self.CallbackPort()).parcel.Int().value_or(-1);
    received.Update([&](auto& all) { all.push_back(value); });
  });
  ASSERT_EQ(client.ConnectSync(), 0);
  const rpc_port_h port = service_.PortOf(service_.Instance(), RPC_PORT_PORT_CALLBACK);
  ASSERT_NE(port, nullptr);
  for (int i = 0; i < 50; ++i) {
    ParcelOwner parcel;
    parcel.Int(i);
    ASSERT_EQ(rpc_port_parcel_send(parcel.get(), port), 0);
  }
  ASSERT_TRUE(received.WaitUntil([](const auto& all) { return all.size() == 50; }));
  std::vector<int> expected(50);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(received.Get(), expected);
  EXPECT_TRUE(on_thread);
}

TEST_F(Call, DeliversWhatTheServiceSendsInItsConnectedCallback) {
  const auto on_connected = service_.OnConnected([&](const std::string& id) {
    for (int i = 0; i < 3; ++i) {
      ParcelOwner parcel;
      parcel.Int(i);
      EXPECT_EQ(rpc_port_parcel_send(parcel.get(), service_.PortOf(id, RPC_PORT_PORT_CALLBACK)), 0);
      EXPECT_EQ(rpc_port_parcel_send(parcel.get(), service_.PortOf(id, RPC_PORT_PORT_MAIN)), 0);
    }
  });
  TestClient client(client_thread_);
  Watched<int> count;
  client.OnEvent("received", [&](TestClient& self) {
    if (Receive(self.CallbackPort()).result == 0) count.Update([](int& number) { ++number; });
  });
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_TRUE(count.WaitUntil([](int number) { return number == 3; }));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Receive(client.port()).parcel.Int(), i);
}

TEST_F(Call, LetsSeveralThreadsSendOnOnePort) {
  std::atomic<int> sum{0};
  Watched<int> count;
  const auto handler = service_.SetHandler([&](const std::string&, rpc_port_h port) {
    sum += Receive(port).parcel.Int().value_or(0);
    count.Update([](int& number) { ++number; });
    return 0;
  });
  TestClient client(client_thread_);
  ASSERT_EQ(client.ConnectSync(), 0);
  constexpr int kThreads = 8;
  constexpr int kEach = 500;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) failures += client.Send(1) != 0 ? 1 : 0;
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(count.WaitUntil([](int number) { return number == kThreads * kEach; }));
  EXPECT_EQ(sum, kThreads * kEach);
  EXPECT_EQ(failures, 0);
}

TEST_F(Call, LetsAServiceSendFromOtherThreads) {
  TestClient client(client_thread_);
  Watched<int> count;
  client.OnEvent("received", [&](TestClient& self) {
    if (Receive(self.CallbackPort()).result == 0) count.Update([](int& number) { ++number; });
  });
  ASSERT_EQ(client.ConnectSync(), 0);
  const rpc_port_h port = service_.PortOf(service_.Instance(), RPC_PORT_PORT_CALLBACK);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 250; ++i) {
        ParcelOwner parcel;
        parcel.Int(i);
        EXPECT_EQ(rpc_port_parcel_send(parcel.get(), port), 0);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(count.WaitUntil([](int number) { return number == 1000; }));
}

}  // namespace
