// Services and clients that are killed, stopped, forked, limited, or of another user.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fake_service.h"
#include "hostile_test.h"
#include "memory_checks.h"
#include "repetitions.h"

namespace {

using kavrel_test::ChildOptions;
using kavrel_test::ChildProcess;
using rpc_test::CountLog;
using rpc_test::RawClient;
using rpc_test::RawSocket;
using rpc_test::Receive;
using rpc_test::TestClient;

constexpr uid_t kStranger = 65534;

ChildOptions Program(std::vector<std::string> arguments) {
  ChildOptions options;
  options.arguments = {RPC_PROCESS};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = {{"KAVREL_LOG", "stderr"}};
  return options;
}

class Process : public rpc_test::HostileTest {
 protected:
  static std::unique_ptr<ChildProcess> StartService(const std::string& mode = "serve") {
    auto service = std::make_unique<ChildProcess>(Program({mode}));
    EXPECT_TRUE(service->WaitForLine("listen 0")) << service->errors();
    return service;
  }
};

TEST_F(Process, KilledServiceEndsACall) {
  auto service = StartService();
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(1), 2);
  ASSERT_EQ(client.Send(0), 0);  // never answered
  service->Signal(SIGKILL);
  EXPECT_EQ(Receive(client.port()).result, -32);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
  EXPECT_EQ(client.Send(1), -32);
}

TEST_F(Process, KilledServiceIsReplacedAtOnce) {
  TestClient client(client_thread());
  const int kills = kavrel_test::Repetitions(20, 1000);
  for (int round = 0; round < kills; ++round) {
    auto service = StartService();
    ASSERT_EQ(client.ConnectSync(), 0);
    ASSERT_EQ(client.Call(round + 1), round + 2);
    service->Signal(SIGKILL);
    ASSERT_EQ(service->WaitForExit(), -SIGKILL);
  }
}

TEST_F(Process, StoppedServiceIsWaitedForNoLongerThanStated) {
  Set("KAVREL_RPC_TIMEOUT_MS", "300");
  auto service = StartService();
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  service->Signal(SIGSTOP);
  ASSERT_EQ(client.Send(5), 0);
  EXPECT_EQ(Receive(client.port()).result, -110);
  TestClient late(client_thread());
  EXPECT_EQ(late.ConnectSync(), -110);
  service->Signal(SIGCONT);
  // The late answer comes first; its number tells it from the one that is waited for.
  ASSERT_EQ(client.Send(7), 0);
  EXPECT_EQ(Receive(client.port()).parcel.Int(), 6);
  EXPECT_EQ(Receive(client.port()).parcel.Int(), 8);
}

TEST_F(Process, LiveServiceKeepsItsAddress) {
  auto service = StartService();
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  for (int i = 0; i < 3; ++i) {
    ChildProcess second(Program({"serve"}));
    EXPECT_TRUE(second.WaitForLine("listen -5"));
    EXPECT_EQ(second.WaitForExit(), 1);
    EXPECT_NE(second.errors().find("another service listens there"), std::string::npos);
  }
  EXPECT_EQ(client.Call(1), 2);
  TestClient late(client_thread());
  EXPECT_EQ(late.ConnectSync(), 0);
}

TEST_F(Process, OneOfManyStartersListens) {
  const int rounds = kavrel_test::Repetitions(3, 100);
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::unique_ptr<ChildProcess>> starters;
    starters.reserve(16);
    for (int i = 0; i < 16; ++i) {
      starters.push_back(std::make_unique<ChildProcess>(Program({"serve"})));
    }
    int listening = 0;
    for (const auto& starter : starters) {
      const auto line = starter->WaitForLine("listen ");
      ASSERT_TRUE(line);
      listening += *line == "listen 0" ? 1 : 0;
    }
    EXPECT_EQ(listening, 1);
    TestClient client(client_thread());
    EXPECT_EQ(client.ConnectSync(), 0);
    EXPECT_EQ(client.Call(1), 2);
  }
}

// What a forked child inherits must not keep alive what its parent had.
TEST_F(Process, ForkedChildDoesNotKeepTheAddress) {
  auto service = StartService("serve-fork");
  ASSERT_TRUE(service->WaitForLine("survivor"));
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  service->Signal(SIGKILL);
  EXPECT_TRUE(client.WaitForEvent("disconnected"));
  // The kernel takes the dead process's descriptors from it one after the other.
  siginfo_t info{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(service->pid()), &info, WEXITED | WNOWAIT), 0);
  auto next = StartService();
  EXPECT_EQ(client.ConnectSync(), 0);
  EXPECT_EQ(client.Call(1), 2);
  service->CloseInput();
}

TEST_F(Process, ForkedChildDoesNotKeepAConnection) {
  Start();
  ChildProcess holder(Program({"hold-fork"}));
  ASSERT_TRUE(holder.WaitForLine("survivor"));
  const std::string id = service().Instance(1);
  holder.Signal(SIGKILL);
  EXPECT_TRUE(service().WaitForEvent("disconnected " + id));
  holder.CloseInput();
}

TEST_F(Process, ForkedChildIsRefused) {
  Start();
  Settle();
  client_thread().Do([] {});
  const pid_t child = ::fork();
  if (child == 0) {
    const rpc_test::ParcelOwner parcel;
    rpc_port_parcel_h received = nullptr;
    rpc_port_h port = nullptr;
    bool is_refused = rpc_port_parcel_send(parcel.get(), honest().port()) == -1;
    is_refused &= rpc_port_parcel_create_from_port(&received, honest().port()) == -1;
    is_refused &= rpc_port_disconnect(honest().port()) == -1;
    is_refused &= honest().ConnectSync() == -1;
    is_refused &= rpc_port_proxy_get_port(honest().proxy(), RPC_PORT_PORT_MAIN, &port) == -1;
    is_refused &= rpc_port_stub_listen(service().stub()) == -1;
    is_refused &= rpc_port_stub_get_port(service().stub(), RPC_PORT_PORT_MAIN, "x", &port) == -1;
    is_refused &= CountLog("belongs to the parent of this forked process") == 7;
    // Destroying is allowed and leaves the parent's connections and address alone.
    is_refused &= rpc_port_proxy_destroy(honest().proxy()) == 0;
    is_refused &= rpc_port_stub_destroy(service().stub()) == 0;
    ::_exit(is_refused ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ExpectOthersServed();
  TestClient late(client_thread());
  EXPECT_EQ(late.ConnectSync(), 0);
}

// Hundredths of a second of the processor that the process has used.
long ProcessorTime(pid_t pid) {
  const std::string line = kavrel_test::ReadFile("/proc/" + std::to_string(pid) + "/stat");
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  constexpr int kBefore = 11;
  std::string skipped;
  for (int field = 0; field < kBefore; ++field) fields >> skipped;
  long user = -1;
  long system = -1;
  fields >> user >> system;
  return user + system;
}

// A service that may have 64 descriptors: beyond some 25 clients it cannot accept.
TEST_F(Process, ServiceOutOfDescriptorsServesWhomItHas) {
  Set("KAVREL_RPC_PARTIAL_TIMEOUT_MS", "60000");
  ChildProcess service(Program({"serve", "64"}));
  ASSERT_TRUE(service.WaitForLine("listen 0"));
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Call(1), 2);
  std::vector<std::unique_ptr<RawSocket>> others;
  others.reserve(200);
  for (int i = 0; i < 200; ++i) others.push_back(std::make_unique<RawSocket>(runtime(), kName));
  EXPECT_TRUE(service.WaitForLine("cannot accept more clients for now")) << service.errors();
  for (int i = 0; i < 300; ++i) ASSERT_EQ(client.Call(i + 1), i + 2) << service.errors();
  // It does not spin: nothing comes for a second, of which it uses a twentieth at most.
  const long before = ProcessorTime(service.pid());
  EXPECT_FALSE(service.WaitForLine("disconnected", std::chrono::seconds(1)));
  EXPECT_LE(ProcessorTime(service.pid()), before + 5);
  others.clear();
  TestClient late(client_thread());
  EXPECT_EQ(late.ConnectSync(), 0);
  EXPECT_EQ(late.Call(1), 2);
  EXPECT_FALSE(service.WaitForExit(std::chrono::milliseconds(0)));
}

// While it exists this process, and those that it starts, may have more descriptors.
class ManyDescriptors {
 public:
  explicit ManyDescriptors(rlim_t count) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const struct rlimit more { std::max(count, before_.rlim_cur), before_.rlim_max };
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &more), 0) << "at most " << before_.rlim_max;
  }
  ManyDescriptors(const ManyDescriptors&) = delete;
  ManyDescriptors& operator=(const ManyDescriptors&) = delete;
  ~ManyDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  struct rlimit before_ {};
};

// What a process has of the system.
struct Holdings {
  explicit Holdings(pid_t pid) {
    const auto count = [pid](const char* what) {
      const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + what);
      return std::distance(begin(entries), end(entries));
    };
    descriptors = count("/fd");
    threads = count("/task");
    const std::string sizes = kavrel_test::ReadFile("/proc/" + std::to_string(pid) + "/statm");
    std::sscanf(sizes.c_str(), "%*d %ld", &pages);
  }
  long descriptors = 0;
  long threads = 0;
  long pages = 0;
};

// More than one user may have, several times: the surplus is refused, the others are held, and when
// they have gone the service has what it had before.
TEST_F(Process, CrowdBeyondTheCapIsRefusedAndLeavesNothing) {
  constexpr std::size_t kCap = 1024;
  constexpr std::size_t kCrowd = 1100;
  constexpr long kNoGrowth = 256;  // pages
  const ManyDescriptors many(8192);
  Set("KAVREL_RPC_PARTIAL_TIMEOUT_MS", "60000");
  auto service = StartService();
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(), 0);
  ASSERT_EQ(client.Call(1), 2);
  const Holdings alone(service->pid());
  long pages = 0;
  for (int round = 0; round < 3; ++round) {
    std::vector<std::unique_ptr<RawClient>> crowd;
    std::size_t held = 1;
    for (std::size_t i = 0; i < kCrowd; ++i) {
      crowd.push_back(std::make_unique<RawClient>(runtime(), kName));
      held += crowd.back()->is_connected ? 1 : 0;
    }
    EXPECT_EQ(held, kCap);
    EXPECT_TRUE(service->WaitForLine("KAVREL_RPC_MAX_CONNECTIONS_PER_USER is reached"));
    ASSERT_EQ(client.Call(2), 3);
    EXPECT_EQ(Holdings(service->pid()).threads, alone.threads);
    crowd.clear();
    const auto limit = std::chrono::steady_clock::now() + kavrel_test::kGenerous;
    while (Holdings(service->pid()).descriptors > alone.descriptors &&
           std::chrono::steady_clock::now() < limit) {
      ASSERT_EQ(client.Call(3), 4);
    }
    const Holdings after(service->pid());
    EXPECT_EQ(after.descriptors, alone.descriptors);
    EXPECT_EQ(after.threads, alone.threads);
    if (round == 0) pages = after.pages;
    if (!kavrel_rpc::kMemoryIsChecked) {  // with which nothing freed is given back
      EXPECT_LE(after.pages, pages + kNoGrowth);
    }
  }
}

// Only root can become somebody else; who is not tests the same decision in credentials_test.
bool CanBecomeStranger() {
  return ::geteuid() == 0;
}

TEST_F(Process, StrangerIsRefused) {
  if (!CanBecomeStranger()) {
    EXPECT_FALSE(rpc_test::IsTrustedBy(::geteuid(), "", kStranger));
    return;
  }
  Set("KAVREL_RPC_ALLOW_UIDS", "4711");  // opens the way to the socket for all
  ASSERT_EQ(::chmod(runtime().c_str(), 0711), 0);
  Start();
  ChildProcess stranger(Program({"call", "1", std::to_string(kStranger)}));
  EXPECT_TRUE(stranger.WaitForLine("connect -13")) << stranger.errors();
  stranger.WaitForExit();
  EXPECT_EQ(CountLog("refused: a client of user 65534 (pid " + std::to_string(stranger.pid()) +
                     "), who is not permitted"),
            1U);
  ExpectOthersServed();
  ChildProcess listed(Program({"call", "1", "4711"}));
  EXPECT_TRUE(listed.WaitForLine("answer 2")) << listed.errors();
}

// Beyond what a signed number holds, where a wrong conversion would make it somebody else.
TEST_F(Process, StrangerWithALargeNumberIsRefused) {
  constexpr uid_t kLarge = 4294967293;
  if (!CanBecomeStranger()) {
    EXPECT_FALSE(rpc_test::IsTrustedBy(::geteuid(), "", kLarge));
    return;
  }
  Set("KAVREL_RPC_ALLOW_UIDS", "4711");
  ASSERT_EQ(::chmod(runtime().c_str(), 0711), 0);
  Start();
  ChildProcess stranger(Program({"call", "1", std::to_string(kLarge)}));
  EXPECT_TRUE(stranger.WaitForLine("connect -13")) << stranger.errors();
  EXPECT_EQ(CountLog("refused: a client of user 4294967293 "), 1U);
  ExpectOthersServed();
}

// A setuid program must not be led anywhere by whoever starts it.
TEST_F(Process, ProgramWithMoreRightsThanItsCallerIgnoresTheVariables) {
  if (!CanBecomeStranger()) GTEST_SKIP() << "only root can run a program with mixed user ids";
  Start();
  auto options = Program({"call", "1"});
  ChildProcess ordinary(options);
  EXPECT_TRUE(ordinary.WaitForLine("connect 0")) << ordinary.errors();
  options.real_user = kStranger;
  ChildProcess with_more_rights(options);
  EXPECT_TRUE(with_more_rights.WaitForLine("connect -")) << with_more_rights.errors();
}

TEST_F(Process, StrangerDoesNotEvenReachTheSocket) {
  if (!CanBecomeStranger()) {
    struct stat status {};
    Start();
    ASSERT_EQ(::stat((runtime() + "/rpc").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0077, 0U);
    return;
  }
  ASSERT_EQ(::chmod(runtime().c_str(), 0711), 0);
  Start();
  ChildProcess stranger(Program({"call", "1", std::to_string(kStranger)}));
  EXPECT_TRUE(stranger.WaitForLine("connect -13")) << stranger.errors();
  EXPECT_EQ(CountLog(""), 0U);
}

TEST_F(Process, StrangersServiceIsNotConnectedTo) {
  if (!CanBecomeStranger()) {
    EXPECT_FALSE(rpc_test::IsTrustedBy(::geteuid(), "", kStranger));
    return;
  }
  auto service = StartService();
  TestClient client(client_thread());
  const std::string socket = runtime() + "/rpc/" + kName;
  ASSERT_EQ(::chown(socket.c_str(), kStranger, kStranger), 0);
  EXPECT_EQ(client.ConnectSync(), -13);
  ASSERT_EQ(::chown(socket.c_str(), 0, 0), 0);
  ASSERT_EQ(::chown((runtime() + "/rpc").c_str(), kStranger, kStranger), 0);
  EXPECT_EQ(client.ConnectSync(), -13);
  ASSERT_EQ(::chown((runtime() + "/rpc").c_str(), 0, 0), 0);
  ASSERT_EQ(::chown(runtime().c_str(), kStranger, kStranger), 0);
  EXPECT_EQ(client.ConnectSync(), -13);
  ASSERT_EQ(::chown(runtime().c_str(), 0, 0), 0);
  EXPECT_EQ(client.ConnectSync(), 0);
}

// The socket is root's, but who listens on it is not.
TEST_F(Process, StrangerWhoListensIsNotConnectedTo) {
  if (!CanBecomeStranger()) {
    EXPECT_FALSE(rpc_test::IsTrustedBy(::geteuid(), "", kStranger));
    return;
  }
  const auto listener = rpc_test::ListenAt(runtime(), kName);
  ASSERT_EQ(::seteuid(kStranger), 0);
  const int listening = ::listen(listener.get(), 16);  // the kernel notes who does
  ASSERT_EQ(::seteuid(0), 0);
  ASSERT_EQ(listening, 0);
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), -13);
  EXPECT_EQ(CountLog("the service's user 65534 "), 1U);
}

}  // namespace
