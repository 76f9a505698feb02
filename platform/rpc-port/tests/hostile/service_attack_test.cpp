// Services that answer wrongly, late, in pieces, for ever, or not at all; and what is not a
// service.
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>

#include "descriptors.h"
#include "fake_service.h"
#include "hostile_test.h"

namespace {

using kavrel_test::OpenDescriptors;
using rpc_test::AnswerBytes;
using rpc_test::Bytes;
using rpc_test::CountLog;
using rpc_test::FakeConnection;
using rpc_test::FakeService;
using rpc_test::FrameBuilder;
using rpc_test::IntFrame;
using rpc_test::kMagic;
using rpc_test::LoopThread;
using rpc_test::ParcelOwner;
using rpc_test::Receive;
using rpc_test::TestClient;
using rpc_test::Watched;

class ServiceAttack : public rpc_test::HostileTest {
 protected:
  // Waits until the client is done with what the test is about.
  void AwaitClient() {
    EXPECT_TRUE(is_over_.WaitUntil([](bool over) { return over; }));
  }
  void Over() {
    is_over_.Update([](bool& over) { over = true; });
  }

  Watched<bool> is_over_;
};

TEST_F(ServiceAttack, HonestServiceIsUnderstood) {
  const FakeService service(runtime(), kName, [](FakeConnection& connection) {
    const Bytes request = connection.ReadFrame();
    Bytes answer = FrameBuilder().Tag("fake").Int(5).Build();
    std::copy(request.begin() + 4, request.begin() + 8, answer.begin() + 4);
    connection.Send(answer);
    connection.ReadFrame();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(4), 5);
}

TEST_F(ServiceAttack, NoAnswerEndsAtTheDeadline) {
  Set("KAVREL_RPC_TIMEOUT_MS", "200");
  const FakeService service(runtime(), kName, [this](FakeConnection&) { AwaitClient(); });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).result, -110);
  // The port is good for another try.
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).result, -110);
  Over();
}

TEST_F(ServiceAttack, WrongSequenceNumbersForEverEndAtTheDeadline) {
  Set("KAVREL_RPC_TIMEOUT_MS", "300");
  const FakeService service(runtime(), kName, [](FakeConnection& connection) {
    const Bytes answer = FrameBuilder().Sequence(-1).Tag("fake").Int(0).Build();
    while (::send(connection.main.get(), answer.data(), answer.size(), MSG_NOSIGNAL) > 0) continue;
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  int result = 0;
  while (result == 0) result = Receive(client.port()).result;
  EXPECT_EQ(result, -110);
}

void LetTimePass(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

TEST_F(ServiceAttack, ParcelsThatAreHereDoNotExtendTheDeadline) {
  Set("KAVREL_RPC_TIMEOUT_MS", "200");
  const FakeService service(runtime(), kName, [this](FakeConnection& connection) {
    for (int i = 0; i < 100; ++i) connection.Send(IntFrame(i));
    AwaitClient();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).parcel.Int(), 0);
  LetTimePass(std::chrono::milliseconds(250));
  EXPECT_EQ(Receive(client.port()).result, -110);
  // The call is over; who reads on begins anew.
  EXPECT_EQ(Receive(client.port()).parcel.Int(), 1);
  // And who looks late, but for the first time, gets what is there.
  ASSERT_EQ(client.Send(1), 0);
  LetTimePass(std::chrono::milliseconds(250));
  EXPECT_EQ(Receive(client.port()).parcel.Int(), 2);
  EXPECT_EQ(Receive(client.port()).result, -110);
  Over();
}

TEST_F(ServiceAttack, AnswerInDribsEndsAtTheDeadline) {
  Set("KAVREL_RPC_TIMEOUT_MS", "300");
  const FakeService service(runtime(), kName, [this](FakeConnection& connection) {
    const Bytes answer = FrameBuilder().Size(1000000).Text("never whole").Build();
    std::size_t sent = 0;
    while (!is_over_.Get()) {
      // One byte for each that the client has read, so that there is always one more.
      const Bytes one = {sent < answer.size() ? answer[sent] : std::uint8_t{'x'}};
      ++sent;
      connection.Send(one);
      int unread = 1;
      while (unread > 0 && !is_over_.Get()) {
        std::this_thread::yield();
        if (::ioctl(connection.main.get(), SIOCOUTQ, &unread) != 0) break;
      }
    }
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).result, -110);
  Over();
}

TEST_F(ServiceAttack, LateAnswerIsLeftForTheNextRead) {
  Set("KAVREL_RPC_TIMEOUT_MS", "200");
  const FakeService service(runtime(), kName, [this](FakeConnection& connection) {
    AwaitClient();
    connection.Send(FrameBuilder().Sequence(1001).Int(1).Build());
    connection.ReadFrame();
    connection.ReadFrame();
    connection.Send(FrameBuilder().Sequence(1002).Int(2).Build());
    connection.ReadFrame();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).result, -110);
  Over();
  ASSERT_EQ(client.Send(2), 0);
  EXPECT_EQ(Receive(client.port()).parcel.sequence(), 1001);
  EXPECT_EQ(Receive(client.port()).parcel.sequence(), 1002);
}

TEST_F(ServiceAttack, NotAParcelEndsTheConnection) {
  const FakeService service(runtime(), kName, [](FakeConnection& connection) {
    connection.ReadFrame();
    connection.Send(FrameBuilder().Bool(7).Build());
    connection.ReadFrame();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).result, -74);
  EXPECT_EQ(client.Send(1), -32);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
  EXPECT_EQ(CountLog("a service sent a bool that is neither 0 nor 1"), 1U);
}

TEST_F(ServiceAttack, NotACallbackParcelEndsTheConnection) {
  const FakeService service(runtime(), kName, [](FakeConnection& connection) {
    connection.SendCallback(IntFrame(1));
    connection.SendCallback(FrameBuilder().Size(3).Build());
    connection.ReadFrame();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
  EXPECT_EQ(rpc_test::Count(client.events().Get(), "received"), 1U);
}

TEST_F(ServiceAttack, HalfAnswerAndHangUpIsAnEnd) {
  const FakeService service(runtime(), kName, [](FakeConnection& connection) {
    connection.ReadFrame();
    Bytes half = IntFrame(1);
    half.resize(half.size() / 2);
    connection.Send(half);
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).result, -32);
}

TEST_F(ServiceAttack, DescriptorsNeverArrive) {
  const FakeService service(runtime(), kName, [this](FakeConnection& connection) {
    connection.ReadFrame();
    connection.SendDescriptors(20, FrameBuilder().Sequence(77).Int(1).Build());
    AwaitClient();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  const long before = OpenDescriptors();
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).parcel.sequence(), 77);
  EXPECT_EQ(OpenDescriptors(), before);
  Over();
}

TEST_F(ServiceAttack, SilentListenerEndsAConnectAtTheDeadline) {
  Set("KAVREL_RPC_TIMEOUT_MS", "200");
  const auto listener = rpc_test::ListenAt(runtime(), kName);
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), -110);
  EXPECT_EQ(client.Connect(), 0);
  EXPECT_TRUE(client.WaitForEvent("rejected"));
  EXPECT_EQ(rpc_test::Count(client.events().Get(), "rejected"), 1U);
}

TEST_F(ServiceAttack, FullBacklogEndsAConnectAtTheDeadline) {
  Set("KAVREL_RPC_TIMEOUT_MS", "200");
  const auto listener = rpc_test::ListenAt(runtime(), kName);
  ASSERT_EQ(::listen(listener.get(), 0), 0);
  rpc_test::RawSocket first(runtime(), kName);
  ASSERT_TRUE(first.IsConnected());
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), -110);
  EXPECT_EQ(client.Connect(), 0);
  EXPECT_TRUE(client.WaitForEvent("rejected"));
}

TEST_F(ServiceAttack, FullBacklogIsWaitedFor) {
  const auto listener = rpc_test::ListenAt(runtime(), kName);
  ASSERT_EQ(::listen(listener.get(), 0), 0);
  rpc_test::RawSocket first(runtime(), kName);
  ASSERT_TRUE(first.IsConnected());
  TestClient client(client_thread());
  ASSERT_EQ(client.Connect(), 0);
  for (int i = 0; i < 3; ++i) {  // the first one, then both sockets of the client
    const kavrel_test::Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (i == 0) continue;
    Bytes hello(80);
    ASSERT_EQ(::recv(socket.get(), hello.data(), hello.size(), MSG_WAITALL), 80);
    const Bytes answer = AnswerBytes(kMagic, 0, i == 1 ? "instance" : "");
    ASSERT_EQ(::send(socket.get(), answer.data(), answer.size(), 0), 80);
  }
  EXPECT_TRUE(client.WaitForEvent("connected"));
}

class WrongAnswer : public ServiceAttack, public testing::WithParamInterface<Bytes> {};

TEST_P(WrongAnswer, IsAFailedConnect) {
  const auto listener = rpc_test::ListenAt(runtime(), kName);
  std::thread service([&] {
    const kavrel_test::Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    ::send(socket.get(), GetParam().data(), GetParam().size(), MSG_NOSIGNAL);
  });
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), -5);
  service.join();
}

INSTANTIATE_TEST_SUITE_P(Answers, WrongAnswer,
                         testing::Values(Bytes(), Bytes(80, 0), Bytes(80, 0xff), Bytes(40, 1),
                                         AnswerBytes(kMagic, 5, "positive"),
                                         AnswerBytes(kMagic, -77, "unknown code"),
                                         AnswerBytes(kMagic, 0, "no name!")));

// A directory or socket of somebody else is not connected to, whoever listens there.
TEST_F(ServiceAttack, SocketsThatAreNotToBeTrustedAreRefused) {
  TestClient client(client_thread());
  const std::string directory = runtime() + "/rpc";
  {
    const auto listener = rpc_test::ListenAt(runtime(), kName);
    ASSERT_EQ(::chmod(directory.c_str(), 0777), 0);
    EXPECT_EQ(client.ConnectSync(), -13) << "everybody could have put it there";
    ASSERT_EQ(::chmod(directory.c_str(), 0700), 0);
    ASSERT_EQ(::rename((directory + "/" + kName).c_str(), (directory + "/real").c_str()), 0);
    ASSERT_EQ(::symlink("real", (directory + "/" + kName).c_str()), 0);
    EXPECT_EQ(client.ConnectSync(), -13) << "a symbolic link";
    ASSERT_EQ(::unlink((directory + "/" + kName).c_str()), 0);
  }
  const kavrel_test::Descriptor file(
      ::open((directory + "/" + kName).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  EXPECT_EQ(client.ConnectSync(), -13) << "not a socket";
}

TEST_F(ServiceAttack, DeadSocketIsNobody) {
  { const auto listener = rpc_test::ListenAt(runtime(), kName); }
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), -5);
  EXPECT_EQ(client.Connect(), -5);
}

TEST_F(ServiceAttack, ServiceThatDoesNotReadIsWaitedForOnce) {
  Set("KAVREL_RPC_TIMEOUT_MS", "300");
  const FakeService service(runtime(), kName, [this](FakeConnection& connection) {
    AwaitClient();
    while (!connection.ReadFrame().empty()) continue;
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  int result = 0;
  int sent = 0;
  while ((result = client.Send(1)) == 0) ++sent;
  EXPECT_EQ(result, -110);
  EXPECT_GT(sent, 10);
  // From now on nobody waits: a thousand more would take five minutes otherwise.
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(client.Send(1), -110);
  Over();
  // The service reads again: as soon as there is room sends succeed and may wait again.
  while ((result = client.Send(1)) == -110) std::this_thread::yield();
  EXPECT_EQ(result, 0);
  rpc_port_disconnect(client.port());
}

TEST_F(ServiceAttack, ParcelThatIsCutAtTheDeadlineEndsTheConnection) {
  Set("KAVREL_RPC_TIMEOUT_MS", "300");
  const FakeService service(runtime(), kName, [this](FakeConnection&) { AwaitClient(); });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ParcelOwner large;
  large.Text(std::string(1000000, 'x'));
  EXPECT_EQ(rpc_port_parcel_send(large.get(), client.port()), -110);
  EXPECT_EQ(client.Send(1), -32);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
  Over();
}

TEST_F(ServiceAttack, TimeOutOfZeroIsNone) {
  Set("KAVREL_RPC_TIMEOUT_MS", "0");
  const FakeService service(runtime(), kName, [](FakeConnection& connection) {
    connection.ReadFrame();
    const Bytes frame = FrameBuilder().Sequence(5).Int(1).Build();
    connection.Send(Bytes(frame.begin(), frame.begin() + 6));
    connection.Send(Bytes(frame.begin() + 6, frame.end()));
    connection.ReadFrame();
  });
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Send(1), 0);
  EXPECT_EQ(Receive(client.port()).parcel.sequence(), 5);
}

// Signals without SA_RESTART interrupt every wait of a call.
TEST_F(ServiceAttack, StormOfSignalsLosesNothing) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  Start();
  const struct itimerval every_half_millisecond {
    {0, 500}, { 0, 500 }
  };
  ASSERT_EQ(::setitimer(ITIMER_REAL, &every_half_millisecond, nullptr), 0);
  for (int i = 0; i < 3000; ++i) EXPECT_EQ(honest().Call(i), i + 1);
  for (int i = 0; i < 100; ++i) {
    TestClient client(client_thread());
    EXPECT_EQ(client.ConnectSync(), 0);
    ParcelOwner large;
    large.Int(i).Text(std::string(300000, 'x'));
    EXPECT_EQ(rpc_port_parcel_send(large.get(), client.port()), 0);
    EXPECT_EQ(Receive(client.port()).parcel.Int(), i + 1);
  }
  const struct itimerval off {};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
}

}  // namespace
