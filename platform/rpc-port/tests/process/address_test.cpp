// Names, files and their modes.
#include "address.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

#include "hostile_test.h"

namespace {

using kavrel_rpc::IsName;
using rpc_test::CountLog;
using rpc_test::TestClient;
using rpc_test::TestService;

class Address : public rpc_test::HostileTest {};

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// As the kernel tells them, so that it need not be ours. None if it is not open any more.
std::optional<int> FlagsOf(const std::string& descriptor) {
  std::ifstream info("/proc/self/fdinfo/" + descriptor);
  std::string label;
  int flags = 0;
  while (info >> label) {
    if (label == "flags:" && info >> std::oct >> flags) return flags;
  }
  return std::nullopt;
}

TEST(Name, IsMadeOfHarmlessCharacters) {
  for (const char* const name : {"a", "Z9", "org.zarnet.viewer", "_-.", "..", "-"}) {
    EXPECT_TRUE(IsName(name)) << name;
  }
  for (const char* const name : {"", "a b", "a/b", "a:b", "../x", "a\n", "ä", "a%", "\x01"}) {
    EXPECT_FALSE(IsName(name)) << name;
  }
  EXPECT_TRUE(IsName(std::string(64, 'x')));
  EXPECT_FALSE(IsName(std::string(65, 'x')));
  EXPECT_FALSE(IsName(std::string_view("a\0b", 3)));
}

TEST_F(Address, ModesDoNotDependOnTheUmask) {
  for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
    const kavrel_test::TemporaryDirectory fresh;
    const kavrel_test::ScopedEnvironment runtime_set("KAVREL_RUNTIME_DIR", fresh.Path("run"));
    const mode_t before = ::umask(mask);
    TestService service;
    const int result = service.Listen();
    ::umask(before);
    ASSERT_EQ(result, 0) << std::oct << mask;
    EXPECT_EQ(ModeOf(fresh.Path("run")), 0700U);
    EXPECT_EQ(ModeOf(fresh.Path("run/rpc")), 0700U);
    EXPECT_EQ(ModeOf(fresh.Path("run/rpc/") + kName), 0600U);
    EXPECT_EQ(ModeOf(fresh.Path("run/rpc/") + kName + ".lock"), 0600U);
    TestClient client(client_thread());
    EXPECT_EQ(client.ConnectSync(), 0);
  }
}

TEST_F(Address, ListedUsersMayPass) {
  Set("KAVREL_RPC_ALLOW_UIDS", "4711,4712");
  Start();
  EXPECT_EQ(ModeOf(runtime()), 0711U);
  EXPECT_EQ(ModeOf(runtime() + "/rpc"), 0711U);
  EXPECT_EQ(ModeOf(runtime() + "/rpc/" + kName), 0666U);
  EXPECT_EQ(ModeOf(runtime() + "/rpc/" + kName + ".lock"), 0600U);
}

TEST_F(Address, IsGivenUpWithTheStub) {
  Start();
  EXPECT_TRUE(std::filesystem::exists(runtime() + "/rpc/" + kName));
  service().DestroyStub();
  EXPECT_FALSE(std::filesystem::exists(runtime() + "/rpc/" + kName));
  std::size_t left = 0;
  for (const auto& entry : std::filesystem::directory_iterator(runtime() + "/rpc")) {
    EXPECT_EQ(entry.path().filename(), std::string(kName) + ".lock");
    ++left;
  }
  EXPECT_EQ(left, 1U);
}

TEST_F(Address, LongDirectoriesAndNamesFit) {
  std::string deep = runtime();
  for (int i = 0; i < 4; ++i) deep += '/' + std::string(200, 'd');
  std::filesystem::create_directories(deep);
  Set("KAVREL_RUNTIME_DIR", deep);
  Set("KAVREL_APP_ID", std::string(64, 'a'));
  const std::string port(64, 'p');
  TestService service(port.c_str());
  ASSERT_EQ(service.Listen(), 0);
  TestClient client(client_thread());
  ASSERT_EQ(client.ConnectSync(port.c_str()), 0);
  EXPECT_EQ(client.Call(1), 2);
}

TEST_F(Address, ApplicationIdThatIsNoneIsRefused) {
  Set("KAVREL_APP_ID", "no/name");
  rpc_port_stub_h stub = nullptr;
  EXPECT_EQ(rpc_port_stub_create(&stub, rpc_test::kPort), -22);
  EXPECT_EQ(CountLog("KAVREL_APP_ID: \"no/name\" is not an application id"), 1U);
}

TEST_F(Address, ApplicationIdIsTheProgramsNameWithoutTheVariable) {
  const kavrel_test::ScopedEnvironment unset("KAVREL_APP_ID", std::nullopt);
  EXPECT_EQ(kavrel_rpc::OwnApplicationId(), "rpc_port_process_test");
}

TEST_F(Address, DirectoryOfEverybodyIsRefused) {
  ASSERT_EQ(::chmod(runtime().c_str(), 0777), 0);
  TestService service;
  EXPECT_EQ(service.Listen(), -13);
  EXPECT_EQ(CountLog("cannot use the directory of"), 1U);
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), -13);
}

TEST_F(Address, WhatLiesInTheWayIsNotFollowed) {
  ASSERT_EQ(::mkdir((runtime() + "/rpc").c_str(), 0700), 0);
  const std::string lock = runtime() + "/rpc/" + kName + ".lock";
  const std::string victim = runtime() + "/victim";
  std::ofstream(victim) << "precious";
  std::filesystem::permissions(victim, std::filesystem::perms(0644));
  std::filesystem::create_symlink(victim, lock);
  TestService service;
  EXPECT_EQ(service.Listen(), -5);
  EXPECT_EQ(ModeOf(victim), 0644U);
  std::filesystem::remove(lock);
  ASSERT_EQ(::mkdir(lock.c_str(), 0700), 0);
  EXPECT_EQ(service.Listen(), -5);
  std::filesystem::remove(lock);
  // A file or link where the socket goes is replaced, not followed.
  std::filesystem::create_symlink(victim, runtime() + "/rpc/" + kName);
  EXPECT_EQ(service.Listen(), 0);
  EXPECT_EQ(kavrel_test::ReadFile(victim), "precious");
  TestClient client(client_thread());
  EXPECT_EQ(client.ConnectSync(), 0);
}

TEST_F(Address, DescriptorsAreClosedOnExec) {
  Start();
  std::size_t sockets = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    if (std::stoi(entry.path().filename()) < 3) continue;
    std::error_code gone;  // the service's thread may close one meanwhile
    const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (gone || !target.starts_with("socket:")) continue;
    const auto flags = FlagsOf(entry.path().filename());
    if (!flags) continue;
    ++sockets;
    EXPECT_NE(*flags & O_CLOEXEC, 0) << entry.path();
  }
  EXPECT_GE(sockets, 5U);  // the listener and two pairs
}

}  // namespace
