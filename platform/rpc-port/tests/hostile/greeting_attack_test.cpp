// Clients that greet wrongly, half, too often, or in the name of others.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "descriptors.h"
#include "hostile_test.h"
#include "repetitions.h"

namespace {

using kavrel_test::OpenDescriptors;
using rpc_test::Bytes;
using rpc_test::CountLog;
using rpc_test::HelloBytes;
using rpc_test::IntFrame;
using rpc_test::kMagic;
using rpc_test::RawClient;
using rpc_test::RawSocket;
using rpc_test::WaitForLog;

class GreetingAttack : public rpc_test::HostileTest {};

TEST_F(GreetingAttack, WrongGreetingsAreDropped) {
  Start();
  const std::vector<Bytes> wrong = {
      HelloBytes(0, 1, 0, "raw"),
      HelloBytes(kMagic, 2, 0, "raw"),
      HelloBytes(kMagic, 1, 2, "raw"),
      HelloBytes(kMagic, 1, 0, ""),
      HelloBytes(kMagic, 1, 0, "a name with blanks"),
      HelloBytes(kMagic, 1, 0, "../../etc/passwd"),
      HelloBytes(kMagic, 1, 0, std::string(65, 'x')),
      HelloBytes(kMagic, 1, 0, std::string(72, 'x')),  // no NUL
      Bytes(80, 0xff),
  };
  for (const Bytes& hello : wrong) {
    RawSocket socket(runtime(), kName);
    ASSERT_TRUE(socket.Send(hello));
    EXPECT_TRUE(socket.WaitForHangUp());
  }
  EXPECT_EQ(CountLog("dropped: has sent no greeting of this service"), wrong.size());
  EXPECT_EQ(service().events().Get().size(), 1U) << "the honest client's connected event";
  ExpectOthersServed();
}

TEST_F(GreetingAttack, HalfGreetingsAreDropped) {
  Set("KAVREL_RPC_PARTIAL_TIMEOUT_MS", "300");
  Start();
  const Bytes hello = HelloBytes(kMagic, 1, 0, "raw");
  std::vector<std::unique_ptr<RawSocket>> sockets;
  for (std::size_t cut = 0; cut < hello.size(); ++cut) {
    sockets.push_back(std::make_unique<RawSocket>(runtime(), kName));
    if (cut > 0) {
      ASSERT_TRUE(
          sockets.back()->Send(Bytes(hello.begin(), hello.begin() + static_cast<int>(cut))));
    }
    ExpectOthersServed();
  }
  for (const auto& socket : sockets) EXPECT_TRUE(socket->WaitForHangUp());
  EXPECT_EQ(CountLog("dropped: has not finished its greeting"), sockets.size());
}

TEST_F(GreetingAttack, HalfConnectionsAreDropped) {
  Set("KAVREL_RPC_PARTIAL_TIMEOUT_MS", "300");
  Start();
  RawSocket socket(runtime(), kName);
  ASSERT_TRUE(socket.SendHello(0, "raw"));
  const auto answer = socket.ReadAnswer();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->result, 0);
  EXPECT_EQ(service().PortOf(answer->text), nullptr) << "not before it stands";
  EXPECT_TRUE(socket.WaitForHangUp());
  Settle();
  EXPECT_EQ(CountLog("dropped: has not finished its handshake"), 1U);
  EXPECT_EQ(service().events().Get().size(), 1U);
  // Its instance is gone with it.
  RawSocket callback(runtime(), kName);
  ASSERT_TRUE(callback.SendHello(1, answer->text));
  EXPECT_EQ(callback.ReadAnswer()->result, -13);
}

TEST_F(GreetingAttack, TooManyWithoutGreetingGiveWay) {
  Start();
  std::vector<std::unique_ptr<RawSocket>> silent;
  silent.reserve(300);
  for (int i = 0; i < 300; ++i) silent.push_back(std::make_unique<RawSocket>(runtime(), kName));
  EXPECT_TRUE(WaitForLog("dropped: gave way", 300 - 256));
  EXPECT_TRUE(silent[0]->WaitForHangUp());
  rpc_test::TestClient late(client_thread());
  EXPECT_EQ(late.ConnectSync(), 0);
  EXPECT_EQ(late.Call(1), 2);
  ExpectOthersServed();
}

TEST_F(GreetingAttack, UnknownInstanceIsRefused) {
  Start();
  RawSocket socket(runtime(), kName);
  ASSERT_TRUE(socket.SendHello(1, std::string(32, '0')));
  const auto answer = socket.ReadAnswer();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->result, -13);
  EXPECT_TRUE(socket.WaitForHangUp());
}

TEST_F(GreetingAttack, InstanceCannotBeJoinedTwice) {
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  RawSocket second(runtime(), kName);
  ASSERT_TRUE(second.SendHello(1, client.instance));
  EXPECT_EQ(second.ReadAnswer()->result, -13);
  ASSERT_TRUE(client.main.Send(IntFrame(1)));
  EXPECT_TRUE(client.main.ReadFrame());
}

// Runs `body` in a child that dies with this process; its exit code.
template <typename Body>
int InChild(Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::_exit(body());
  }
  int status = -1;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(GreetingAttack, InstanceOfAnotherProcessCannotBeJoined) {
  Start();
  RawSocket victim(runtime(), kName);
  ASSERT_TRUE(victim.SendHello(0, "victim"));
  const std::string instance = victim.ReadAnswer()->text;
  const int thief_result = InChild([&] {
    const RawSocket thief(runtime(), kName);
    if (!thief.SendHello(1, instance)) return 1;
    const auto answer = thief.ReadAnswer();
    return answer && answer->result == -13 ? 0 : 2;
  });
  EXPECT_EQ(thief_result, 0);
  EXPECT_EQ(CountLog("refused: a callback socket"), 1U);
  // The victim's own still can.
  RawSocket callback(runtime(), kName);
  ASSERT_TRUE(callback.SendHello(1, instance));
  EXPECT_EQ(callback.ReadAnswer()->result, 0);
}

TEST_F(GreetingAttack, DeathBetweenGreetingsLeavesNothing) {
  Start();
  for (int i = 0; i < 200; ++i) {
    RawSocket socket(runtime(), kName);
    ASSERT_TRUE(socket.SendHello(0, "raw"));
    if (i % 2 == 0) socket.ReadAnswer();
  }
  ExpectOthersServed();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  EXPECT_EQ(CountLog(""), 0U);
}

TEST_F(GreetingAttack, ConnectionsAreCapped) {
  Set("KAVREL_RPC_MAX_CONNECTIONS", "3");
  Start();
  {
    rpc_test::TestClient second(client_thread());
    rpc_test::TestClient third(client_thread());
    rpc_test::TestClient fourth(client_thread());
    EXPECT_EQ(second.ConnectSync(), 0);
    EXPECT_EQ(third.ConnectSync(), 0);
    EXPECT_EQ(fourth.ConnectSync(), -5);
    EXPECT_EQ(rpc_test::Count(fourth.events().Get(), "rejected"), 1U);
    EXPECT_EQ(CountLog("KAVREL_RPC_MAX_CONNECTIONS is reached"), 1U);
    ExpectOthersServed();
  }
  const std::string gone = service().Instance(1);
  ASSERT_TRUE(service().WaitForEvent("disconnected " + gone));
  service().thread().Do([] {});
  rpc_test::TestClient next(client_thread());
  EXPECT_EQ(next.ConnectSync(), 0);
}

TEST_F(GreetingAttack, ConnectionsOfOneUserAreCapped) {
  Set("KAVREL_RPC_MAX_CONNECTIONS_PER_USER", "1");
  Start();
  rpc_test::TestClient second(client_thread());
  EXPECT_EQ(second.ConnectSync(), -5);
  EXPECT_EQ(CountLog("KAVREL_RPC_MAX_CONNECTIONS_PER_USER is reached"), 1U);
  ExpectOthersServed();
}

TEST_F(GreetingAttack, StormOfConnectionsLeavesNothing) {
  Start();
  const long before = OpenDescriptors();
  const int rounds = kavrel_test::Repetitions(300, 50000);
  for (int round = 0; round < rounds; ++round) {
    rpc_test::TestClient client(client_thread());
    ASSERT_EQ(client.ConnectSync(), 0);
    ASSERT_EQ(client.Call(round), round + 1);
  }
  EXPECT_TRUE(service().events().WaitUntil([&](const rpc_test::Events& events) {
    return static_cast<std::size_t>(
               std::count_if(events.begin(), events.end(), [](const std::string& event) {
                 return event.starts_with("disconnected");
               })) == static_cast<std::size_t>(rounds);
  }));
  Settle();
  EXPECT_EQ(OpenDescriptors(), before);
  ExpectOthersServed();
}

}  // namespace
