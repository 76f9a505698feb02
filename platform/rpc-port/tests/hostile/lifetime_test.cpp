// Exceptions in callbacks, handles that are used and destroyed from several threads, many clients.
#include <poll.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "hostile_test.h"

namespace {

using rpc_test::Count;
using rpc_test::CountLog;
using rpc_test::IntFrame;
using rpc_test::ParcelOwner;
using rpc_test::RawClient;
using rpc_test::Receive;
using rpc_test::TestClient;
using rpc_test::TestService;
using rpc_test::Watched;

class Lifetime : public rpc_test::HostileTest {};

TEST_F(Lifetime, ExceptionInAReceivedCallbackEndsThatConnection) {
  Start();
  const auto handler = service().SetHandler([](const std::string&, rpc_port_h port) {
    const auto request = Receive(port);
    if (request.parcel.Int() == 13) throw std::runtime_error("unlucky");
    ParcelOwner answer;
    answer.SetSequence(request.parcel.sequence());
    answer.Int(42);
    return rpc_port_parcel_send(answer.get(), port);
  });
  TestClient unlucky(client_thread());
  ASSERT_EQ(unlucky.ConnectSync(), 0);
  EXPECT_EQ(unlucky.Call(1), 42);
  EXPECT_EQ(unlucky.Call(13), std::nullopt);
  EXPECT_TRUE(unlucky.WaitForEvent("disconnected"));
  EXPECT_TRUE(service().WaitForEvent("disconnected " + service().Instance(1)));
  ExpectOthersServed();
  EXPECT_EQ(CountLog("exception in a received callback of a stub: unlucky"), 1U);
  EXPECT_EQ(CountLog("dropped: its request made a callback throw"), 1U);
}

TEST_F(Lifetime, ExceptionThatIsNoneOfTheLanguagesOwnIsCaughtToo) {
  Start();
  const auto handler = service().SetHandler([](const std::string&, rpc_port_h) -> int { throw 7; });
  EXPECT_EQ(honest().Call(1), std::nullopt);
  EXPECT_EQ(CountLog("exception in a received callback of a stub"), 1U);
}

TEST_F(Lifetime, ExceptionInAConnectedCallbackRefusesTheClient) {
  Start();
  const auto on_connected =
      service().OnConnected([](const std::string&) { throw std::runtime_error("no room"); });
  TestClient refused(client_thread());
  EXPECT_EQ(refused.ConnectSync(), -5);
  ExpectOthersServed();
  EXPECT_EQ(CountLog("exception in a connected callback of a stub: no room"), 1U);
}

TEST_F(Lifetime, ExceptionInADisconnectedCallbackIsLogged) {
  Start();
  const auto on_disconnected =
      service().OnDisconnected([](const std::string&) { throw std::runtime_error("farewell"); });
  {
    TestClient leaver(client_thread());
    ASSERT_EQ(leaver.ConnectSync(), 0);
  }
  EXPECT_TRUE(rpc_test::WaitForLog("exception in a disconnected callback of a stub: farewell"));
  ExpectOthersServed();
}

TEST_F(Lifetime, ExceptionsInAProxysCallbacksAreLogged) {
  Start();
  TestClient client(client_thread());
  const auto thrower = [](TestClient&) { throw std::runtime_error("client side"); };
  client.OnEvent("connected", thrower);
  client.OnEvent("received", thrower);
  client.OnEvent("disconnected", thrower);
  EXPECT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(1), 2);
  const ParcelOwner parcel;
  const std::string id = service().Instance(1);
  EXPECT_EQ(rpc_port_parcel_send(parcel.get(), service().PortOf(id, RPC_PORT_PORT_CALLBACK)), 0);
  EXPECT_TRUE(rpc_test::WaitForLog("client side", 2));
  EXPECT_EQ(rpc_port_disconnect(client.port()), 0);
  EXPECT_TRUE(rpc_test::WaitForLog("client side", 3));
}

int DisconnectAtRequest(const char*, const char*, rpc_port_h port, void*) {
  return rpc_port_disconnect(port);
}

TEST_F(Lifetime, DisconnectInACallbackIsTheLastOfItsRequest) {
  std::atomic<int> calls{0};
  Start();
  TestService other("OtherPort");
  const auto count = [](const char*, const char*, rpc_port_h, void* counter) {
    ++*static_cast<std::atomic<int>*>(counter);
    return 0;
  };
  EXPECT_EQ(rpc_port_stub_add_received_event_cb(other.stub(), &DisconnectAtRequest, nullptr), 0);
  EXPECT_EQ(rpc_port_stub_add_received_event_cb(other.stub(), count, &calls), 0);
  ASSERT_EQ(other.Listen(), 0);
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync("OtherPort"), 0);
  for (int i = 0; i < 10; ++i) client.Send(i);
  EXPECT_TRUE(other.WaitForEvent("disconnected " + other.Instance()));
  EXPECT_EQ(Count(other.events().Get(), "request " + other.Instance()), 1U);
  EXPECT_EQ(calls, 0);
}

TEST_F(Lifetime, ParcelOfAnEventIsForItsThread) {
  Start();
  std::atomic<int> elsewhere{0};
  const auto handler = service().SetHandler([&](const std::string&, rpc_port_h port) {
    std::thread([&] { elsewhere = Receive(port).result; }).join();
    return TestService::Answer(port);
  });
  EXPECT_EQ(honest().Call(1), 2);
  EXPECT_EQ(elsewhere, -11);
  EXPECT_EQ(Receive(service().PortOf(service().Instance())).result, -11) << "no event";
  EXPECT_EQ(Receive(honest().CallbackPort()).result, -11) << "no event";
}

TEST_F(Lifetime, CallbackPortOfAClientSendsNothing) {
  Start();
  const ParcelOwner parcel;
  EXPECT_EQ(rpc_port_parcel_send(parcel.get(), honest().CallbackPort()), -22);
  ExpectOthersServed();
}

TEST_F(Lifetime, ParcelsBeyondTheLimitAreRefused) {
  Start();
  ParcelOwner parcel;
  EXPECT_EQ(rpc_port_parcel_write_string(parcel.get(),
                                         std::string(std::size_t{1024} * 1024, 'x').c_str()),
            -90);
  EXPECT_EQ(rpc_port_parcel_send(parcel.get(), honest().port()), -90) << "not what was meant";
  ParcelOwner full;
  int result = 0;
  int written = 0;
  while ((result = rpc_port_parcel_write_int32(full.get(), written)) == 0) ++written;
  EXPECT_EQ(result, -90);
  EXPECT_EQ(written, (1024 * 1024 - 10) / 5);
  rpc_port_parcel_header_h header = nullptr;
  ASSERT_EQ(rpc_port_parcel_get_header(full.get(), &header), 0);
  EXPECT_EQ(rpc_port_parcel_header_set_tag(header, std::string(256, 't').c_str()), -22);
  EXPECT_EQ(rpc_port_parcel_header_set_tag(header, std::string(255, 't').c_str()), -90);
  ExpectOthersServed();
}

TEST_F(Lifetime, LargestParcelArrives) {
  Start();
  ParcelOwner largest;
  largest.Int(7).Text(std::string(1024 * 1024 - 10 - 5 - 5 - 1, 'x'));
  ASSERT_EQ(rpc_port_parcel_send(largest.get(), honest().port()), 0);
  EXPECT_EQ(Receive(honest().port()).parcel.Int(), 8);
}

TEST_F(Lifetime, ConnectingTwiceIsRefused) {
  Start();
  EXPECT_EQ(honest().ConnectSync(), -106);
  EXPECT_EQ(honest().Connect(), -106);
  ExpectOthersServed();
  TestClient pending(client_thread());
  Watched<bool> may_go_on;
  client_thread().Post([&] { may_go_on.WaitUntil([](bool may) { return may; }); });
  ASSERT_EQ(pending.Connect(), 0);
  EXPECT_EQ(pending.Connect(), -114);
  EXPECT_EQ(pending.ConnectSync(), -114);
  may_go_on.Update([](bool& may) { may = true; });
  EXPECT_TRUE(pending.WaitForEvent("connected"));
}

TEST_F(Lifetime, ProxyWithoutAConnectionHasNoPorts) {
  TestClient client(client_thread());
  rpc_port_h port = nullptr;
  EXPECT_EQ(rpc_port_proxy_get_port(client.proxy(), RPC_PORT_PORT_MAIN, &port), -107);

  EXPECT_EQ(port, nullptr);
}

TEST_F(Lifetime, DestroyEndsAPendingConnect) {
  Start();
  for (int i = 0; i < 20; ++i) {
    TestClient client(client_thread());
    EXPECT_EQ(client.Connect(), 0);
  }
  ExpectOthersServed();
}

// The reader is inside the call when its proxy goes.
TEST_F(Lifetime, DestroyEndsARead) {
  Start();
  const auto handler = service().SetHandler([](const std::string&, rpc_port_h) { return 0; });
  for (int round = 0; round < 30; ++round) {
    TestClient client(client_thread());
    ASSERT_EQ(client.ConnectSync(), 0);
    ASSERT_EQ(client.Send(1), 0);
    std::atomic<pid_t> reader_id{0};
    std::thread reader([&, port = client.port()] {
      reader_id = ::gettid();
      EXPECT_EQ(Receive(port).result, -32);
    });
    while (reader_id == 0) std::this_thread::yield();

    // Until it waits in the kernel for data of a socket.
    while (kavrel_test::ReadFile("/proc/self/task/" + std::to_string(reader_id) + "/syscall")
               .rfind("running", 0) == 0) {
      std::this_thread::yield();
    }
    EXPECT_EQ(client.Destroy(), 0);
    reader.join();
  }
}

TEST_F(Lifetime, StubMayBeDestroyedByAnotherThreadUnderLoad) {
  for (int round = 0; round < 20; ++round) {
    TestService stub("LoadPort");
    ASSERT_EQ(stub.Listen(), 0);
    TestClient client(client_thread());
    ASSERT_EQ(client.ConnectSync("LoadPort"), 0);
    std::thread load([&] {
      while (client.Send(1) == 0) continue;
    });
    ASSERT_TRUE(stub.WaitForEvent("request " + stub.Instance()));
    EXPECT_EQ(rpc_port_stub_destroy(stub.stub()), 0);
    const std::size_t events = stub.events().Get().size();
    load.join();
    stub.thread().Do([] {});
    EXPECT_EQ(stub.events().Get().size(), events) << "a callback after destroy";
    stub.Forget();
  }
}

TEST_F(Lifetime, ServiceMaySendWhileItsClientsComeAndGo) {
  Start();
  client_thread().Do([this] {
    honest().OnEvent("received", [](TestClient& self) { Receive(self.CallbackPort()); });
  });
  std::vector<std::thread> senders;
  senders.reserve(3);
  for (int t = 0; t < 3; ++t) {
    senders.emplace_back([&] {
      const ParcelOwner parcel;
      // The first connection lives throughout.
      const rpc_port_h port = service().PortOf(service().Instance(), RPC_PORT_PORT_CALLBACK);
      // Far less in all than what is kept for a slow reader.
      for (int i = 0; i < 5000; ++i) EXPECT_EQ(rpc_port_parcel_send(parcel.get(), port), 0);
    });
  }

  for (int i = 0; i < 50; ++i) {
    TestClient passing(client_thread());
    ASSERT_EQ(passing.ConnectSync(), 0);
    ASSERT_EQ(passing.Call(i), i + 1);
  }
  for (auto& sender : senders) sender.join();
  ExpectOthersServed();
}

// More clients than are polled directly, each in turn the busiest.
TEST_F(Lifetime, ManyClientsTakeTurnsAtBeingBusy) {
  Start();
  std::vector<std::unique_ptr<TestClient>> clients;
  for (int i = 0; i < 12; ++i) {
    clients.push_back(std::make_unique<TestClient>(client_thread()));
    ASSERT_EQ(clients.back()->ConnectSync(), 0);
  }
  for (const auto& client : clients) {
    for (int i = 0; i < 1500; ++i) ASSERT_EQ(client->Call(i), i + 1);
  }
  for (int i = 0; i < 200; ++i) {
    for (const auto& client : clients) ASSERT_EQ(client->Call(i), i + 1);
  }
  // Half of them leave; the others do not notice.
  for (std::size_t i = 0; i < clients.size(); i += 2) clients[i].reset();
  for (std::size_t i = 1; i < clients.size(); i += 2) EXPECT_EQ(clients[i]->Call(1), 2);
  ExpectOthersServed();
}

// What is kept for a client is sent on although the client is polled directly.
TEST_F(Lifetime, BusyClientGetsWhatWasKeptForIt) {
  Start();
  ExpectOthersServed();  // polled directly now, so that nothing is left behind epoll
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(client.main.Send(IntFrame(i)));
    ASSERT_TRUE(client.main.ReadFrame());
  }
  const rpc_port_h port = service().PortOf(client.instance);
  for (int i = 0; i < 20; ++i) {
    ParcelOwner large;
    large.Text(std::string(100000, 'x'));
    ASSERT_EQ(rpc_port_parcel_send(large.get(), port), 0);
  }
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(client.main.ReadFrame());
  ASSERT_TRUE(client.main.Send(IntFrame(1)));
  EXPECT_TRUE(client.main.ReadFrame());
}

TEST_F(Lifetime, TwoHundredClientsAreHeld) {
  Start();
  std::vector<std::unique_ptr<TestClient>> clients;
  std::set<std::string> ids;
  for (std::size_t i = 0; i < 200; ++i) {
    clients.push_back(std::make_unique<TestClient>(client_thread()));
    ASSERT_EQ(clients.back()->ConnectSync(), 0);
    ids.insert(service().Instance(i + 1));
  }
  EXPECT_EQ(ids.size(), 200U);
  for (const auto& client : clients) EXPECT_EQ(client->Call(5), 6);
  clients.clear();
  EXPECT_TRUE(service().events().WaitUntil([&](const rpc_test::Events& events) {
    for (const auto& id : ids) {
      if (Count(events, "disconnected " + id) != 1) return false;
    }
    return true;
  }));
  ExpectOthersServed();
}

// A callback that takes longer than the time for half a parcel must not make those late whose data
// waits meanwhile.
TEST_F(Lifetime, LongCallbackMakesNobodyLate) {
  Set("KAVREL_RPC_PARTIAL_TIMEOUT_MS", "1500");
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  const rpc_test::Bytes frame = IntFrame(6);
  ASSERT_TRUE(client.main.Send(rpc_test::Bytes(frame.begin(), frame.begin() + 9)));
  ASSERT_EQ(honest().Call(1), 2);  // the half has been read
  service().thread().Do([&] {
    ASSERT_TRUE(client.main.Send(rpc_test::Bytes(frame.begin() + 9, frame.end())));
    ::poll(nullptr, 0, 2000);  // the operation of another client
  });
  EXPECT_TRUE(client.main.ReadFrame());
  EXPECT_EQ(CountLog(""), 0U);
}

}  // namespace
