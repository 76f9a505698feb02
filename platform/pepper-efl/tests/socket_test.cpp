// Where the compositor listens, when it refuses to, and whom it lets in.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <lwipc.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

class Socket : public ::testing::Test {
 protected:
  void* Create(const char* name = kSocket) {
    return pepper_efl_compositor_create(canvas.root(), name);
  }
  std::string path() const { return environment.directory.Path(kSocket); }

  Environment environment;
  Canvas canvas;
};

TEST_F(Socket, IsInTheRuntimeDirectoryAndGoesWithTheCompositor) {
  void* compositor = Create();
  ASSERT_NE(compositor, nullptr);
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
  pepper_efl_compositor_destroy(compositor);
  EXPECT_NE(::stat(path().c_str(), &status), 0);
}

TEST_F(Socket, ReadyIsRaisedWhenClientsAreAccepted) {
  EXPECT_EQ(LwipcIsDone("/tmp/kavrel-compositor_ready"), 0);
  void* compositor = Create();
  EXPECT_EQ(LwipcIsDone("/tmp/kavrel-compositor_ready"), 1);
  const TestClient client;
  EXPECT_TRUE(client.connected());
  EXPECT_NE(client.wm_base, nullptr);
  pepper_efl_compositor_destroy(compositor);
}

TEST_F(Socket, LivingCompositorIsLeftAlone) {
  void* first = Create();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Create(), nullptr);
  const TestClient client;
  EXPECT_TRUE(client.connected());
  void* other = Create("other-compositor");
  EXPECT_NE(other, nullptr);
  pepper_efl_compositor_destroy(other);
  pepper_efl_compositor_destroy(first);
}

// What a killed process leaves: the socket's file and the lock's, which nobody holds any more.
TEST_F(Socket, SocketOfAKilledProcessIsTakenOver) {
  const pid_t child = ::fork();
  if (child == 0) {
    const kavrel_test::Descriptor lock(
        ::open((path() + ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    const kavrel_test::Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    const bool done = ::flock(lock.get(), LOCK_EX) == 0 &&
                      ::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::kill(::getpid(), done ? SIGKILL : SIGTERM);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(WTERMSIG(status), SIGKILL);
  ASSERT_EQ(::access(path().c_str(), F_OK), 0);
  void* compositor = Create();
  ASSERT_NE(compositor, nullptr);
  const TestClient client;
  EXPECT_TRUE(client.connected());
  pepper_efl_compositor_destroy(compositor);
}

TEST_F(Socket, NoCompositorWithoutAProperRuntimeDirectory) {
  const std::string open_to_all = environment.directory.Path("open");
  ASSERT_EQ(::mkdir(open_to_all.c_str(), 0700), 0);
  ASSERT_EQ(::chmod(open_to_all.c_str(), 0777), 0);
  for (const std::optional<std::string>& directory :
       {std::optional<std::string>(), std::optional<std::string>(""),
        std::optional<std::string>("relative"),
        std::optional<std::string>(environment.directory.Path("missing")),
        std::optional<std::string>("/dev/null"), std::optional<std::string>(open_to_all)}) {
    const kavrel_test::ScopedEnvironment changed("XDG_RUNTIME_DIR", directory);
    EXPECT_EQ(Create(), nullptr) << directory.value_or("(unset)");
  }
  void* compositor = Create();
  EXPECT_NE(compositor, nullptr);
  pepper_efl_compositor_destroy(compositor);
}

TEST_F(Socket, NoCompositorWithoutAProperNameOrWindow) {
  const std::string longest(64, 'x'), too_long(65, 'x');
  for (const char* name : {static_cast<const char*>(nullptr), "", "a/b", "/tmp/absolute", ".", "..",
                           ".hidden", too_long.c_str()}) {
    EXPECT_EQ(Create(name), nullptr) << (name != nullptr ? name : "(null)");
  }
  EXPECT_EQ(pepper_efl_compositor_create(nullptr, kSocket), nullptr);
  void* compositor = Create(longest.c_str());
  EXPECT_NE(compositor, nullptr);
  pepper_efl_compositor_destroy(compositor);
  pepper_efl_compositor_destroy(nullptr);
}

TEST_F(Socket, StatedGroupMayOpenTheSocket) {
  const std::string group = std::to_string(::getegid());
  const kavrel_test::ScopedEnvironment stated("KAVREL_COMPOSITOR_GROUP", group);
  void* compositor = Create();
  ASSERT_NE(compositor, nullptr);
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0660u);
  EXPECT_EQ(status.st_gid, ::getegid());
  pepper_efl_compositor_destroy(compositor);
}

// Only root can be somebody else; for everybody the own user is admitted.
TEST_F(Socket, StrangersAreCutOff) {
  void* compositor = Create();
  ASSERT_NE(compositor, nullptr);
  ASSERT_EQ(::chmod(path().c_str(), 0777), 0);
  ASSERT_EQ(::chmod(environment.directory.path().c_str(), 0711), 0);
  const bool can_change = ::geteuid() == 0;
  kavrel_test::Pipe result = kavrel_test::MakePipe();
  const pid_t child = ::fork();
  if (child == 0) {
    if (can_change &&
        (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) {
      ::_exit(1);
    }
    wl_display* display = wl_display_connect(path().c_str());
    const bool admitted = display != nullptr && wl_display_roundtrip(display) >= 0;
    const char answer = display == nullptr ? '?' : admitted ? 'y' : 'n';
    ::_exit(::write(result.write.get(), &answer, 1) == 1 ? 0 : 1);
  }
  Ecore_Fd_Handler* wait = ecore_main_fd_handler_add(
      result.read.get(), ECORE_FD_READ,
      [](void*, Ecore_Fd_Handler*) -> Eina_Bool { return ECORE_CALLBACK_RENEW; }, nullptr, nullptr,
      nullptr);
  char answer = 0;
  ASSERT_EQ(::fcntl(result.read.get(), F_SETFL, O_NONBLOCK), 0);
  EXPECT_TRUE(RunUntil([&] { return ::read(result.read.get(), &answer, 1) == 1; }));
  EXPECT_EQ(answer, can_change ? 'n' : 'y');
  ecore_main_fd_handler_del(wait);
  ::waitpid(child, nullptr, 0);
  pepper_efl_compositor_destroy(compositor);
}

}  // namespace
}  // namespace kavrel_pepper_test
