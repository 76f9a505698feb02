// Clients and viewers that are stopped or killed at moments that nobody chose, and a viewer with as
// many clients as it has to carry.
#include <gtest/gtest.h>
#include <kavrel/app_api.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "forked_process.h"
#include "null_service.h"
#include "random_moments.h"
#include "repetitions.h"
#include "temporary_directory.h"
#include "viewer_process.h"

namespace {

using kavrel_test::Bell;
using kavrel_test::Forked;
using kavrel_test::NullService;
using kavrel_test::RandomMoments;
using kavrel_test::Repetitions;
using kavrel_test::ScopedEnvironment;
using kavrel_test::Shared;
using kavrel_test::TemporaryDirectory;
using kavrel_test::Times;
using kavrel_test::ViewerProcess;

constexpr const char* kAppId = "org.zarnet.test";

struct DestroyHandle {
  void operator()(void* handle) const { kavrel_api_destroy(handle); }
};
using Handle = std::unique_ptr<void, DestroyHandle>;

Handle Connect() {
  return Handle(kavrel_api_create(kAppId));
}

// Answers how many banners its client has had shown: all that were sent before the question.
class CountingService final : public NullService {
 public:
  using NullService::NullService;
  void ShowChannelBanner(int /*option*/) override { ++shown_; }
  bool GetWindowSize(int& size) override {
    size = shown_;
    return true;
  }
  // Whether the level is odd: an answer that belongs to its question.
  bool ChangeSelectionWindowZoomLevel(int level) override { return level % 2 != 0; }

 private:
  int shown_ = 0;
};

std::unique_ptr<NullService> MakeCountingService(std::string sender, std::string instance) {
  return std::make_unique<CountingService>(std::move(sender), std::move(instance));
}

// What a client lets the test know.
struct Progress {
  std::atomic<int> answered = 0;
  std::atomic<int> missed = 0;  ///< calls that ended without an answer
  std::atomic<bool> wrong = false;
  Bell news;

  void Count(std::atomic<int>& what) {
    ++what;
    news.Ring();
  }
  void AwaitMore(const std::atomic<int>& what, int more) {
    const int enough = what + more;
    news.AwaitUntil([&] { return what >= enough; });
  }
  void AwaitAnswers(int more) { AwaitMore(answered, more); }
};

// One command that has no answer, and a question about it, for ever.
int CommandForEver(Progress* progress) {
  const Handle handle = Connect();
  if (handle == nullptr) return 1;
  for (int sent = 1;; ++sent) {
    int size = 0;
    kavrel_api_show_channel_banner(handle.get(), 1);
    if (!kavrel_api_get_window_size(handle.get(), size) || size != sent) progress->wrong = true;
    progress->Count(progress->answered);
  }
}

// A connect that misses the deadline gives a handle, but one that is never connected.
Handle ConnectUntilAnswered(Progress* progress) {
  while (true) {
    Handle handle = Connect();
    int size = 0;
    if (handle != nullptr && kavrel_api_get_window_size(handle.get(), size)) return handle;
    progress->Count(progress->missed);
  }
}

// Questions for ever, some of which nobody answers in time.
int AskForEver(Progress* progress) {
  const Handle handle = ConnectUntilAnswered(progress);
  for (int level = 0;; ++level) {
    int size = -1;
    const bool is_there = kavrel_api_get_window_size(handle.get(), size);
    if (is_there != (size == 0)) progress->wrong = true;
    const bool odd = kavrel_api_change_selection_window_zoom_level(handle.get(), level);
    if (odd && level % 2 == 0) progress->wrong = true;
    progress->Count(is_there ? progress->answered : progress->missed);
  }
}

// Reading it is the only way to see what another process holds.
long Descriptors(pid_t process) {
  const std::filesystem::directory_iterator open("/proc/" + std::to_string(process) + "/fd");
  return std::distance(begin(open), end(open));
}

class CommandFaults : public testing::Test {
 protected:
  long Files() const {
    const std::filesystem::recursive_directory_iterator files(directory_.path());
    return std::distance(begin(files), end(files));
  }

  TemporaryDirectory directory_;
  ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.path()};
  ScopedEnvironment log_{"KAVREL_LOG", "none"};
  // A busy machine must not make a fault of its own.
  ScopedEnvironment timeout_{"KAVREL_RPC_TIMEOUT_MS", "60000"};
  ScopedEnvironment partial_timeout_{"KAVREL_RPC_PARTIAL_TIMEOUT_MS", "60000"};
  RandomMoments moments_;
};

// The viewer forgets it, and serves others meanwhile.
TEST_F(CommandFaults, ClientKilledAtAnyMomentLeavesNothing) {
  const ViewerProcess viewer(kAppId, &MakeCountingService);
  Shared<Progress> neighbour;
  const Forked others([&] { return CommandForEver(&*neighbour); });
  neighbour->AwaitAnswers(1);
  const long before = Descriptors(viewer.pid());
  const long files = Files();
  const int kills = Repetitions(20, 1000);
  for (int kill = 0; kill < kills; ++kill) {
    Shared<Progress> progress;
    Forked client([&] { return CommandForEver(&*progress); });
    if (kill % 4 != 0) progress->AwaitAnswers(1);  // the others die while they connect
    moments_.Wait();
    client.Kill();
    ASSERT_FALSE(progress->wrong) << kill;
    neighbour->AwaitAnswers(2);
  }
  while (Descriptors(viewer.pid()) > before) neighbour->AwaitAnswers(1);
  EXPECT_FALSE(neighbour->wrong);
  EXPECT_EQ(Files(), files);
}

// Whatever it was doing, nobody waits for it, and it goes on where it was.
TEST_F(CommandFaults, ClientStoppedAtAnyMomentHoldsUpNobodyAndLosesNothing) {
  const ViewerProcess viewer(kAppId, &MakeCountingService);
  Shared<Progress> neighbour;
  Shared<Progress> progress;
  const Forked others([&] { return CommandForEver(&*neighbour); });
  const Forked client([&] { return CommandForEver(&*progress); });
  const int stops = Repetitions(20, 1000);
  for (int stop = 0; stop < stops; ++stop) {
    progress->AwaitAnswers(1);
    moments_.Wait();
    client.Stop();
    neighbour->AwaitAnswers(5);
    client.Continue();
  }
  progress->AwaitAnswers(2);
  EXPECT_FALSE(progress->wrong);
  EXPECT_FALSE(neighbour->wrong);
}

// Within the deadline a stop only takes time: every command arrives, every question is answered.
TEST_F(CommandFaults, ViewerStoppedAtAnyMomentLosesNothing) {
  const ViewerProcess viewer(kAppId, &MakeCountingService);
  Shared<Progress> progress;
  const Forked client([&] { return CommandForEver(&*progress); });
  const int stops = Repetitions(20, 1000);
  for (int stop = 0; stop < stops; ++stop) {
    progress->AwaitAnswers(2);
    moments_.Wait();
    viewer.Signal(SIGSTOP);
    moments_.Wait();
    viewer.Signal(SIGCONT);
  }
  progress->AwaitAnswers(2);
  EXPECT_FALSE(progress->wrong);
}

// Beyond it a call ends without an answer, later ones get their own answers and no other's.
TEST_F(CommandFaults, ViewerStoppedBeyondTheDeadlineConfusesNoAnswers) {
  const ScopedEnvironment timeout("KAVREL_RPC_TIMEOUT_MS", "20");
  const ViewerProcess viewer(kAppId, &MakeCountingService);
  Shared<Progress> progress;
  const Forked client([&] { return AskForEver(&*progress); });
  const int stops = Repetitions(20, 1000);
  for (int stop = 0; stop < stops; ++stop) {
    progress->AwaitAnswers(1);
    moments_.Wait();
    viewer.Signal(SIGSTOP);
    progress->AwaitMore(progress->missed, 1);
    viewer.Signal(SIGCONT);
  }
  EXPECT_FALSE(progress->wrong);
}

// Each round a viewer dies at any moment under a client, and the next one serves.
TEST_F(CommandFaults, ViewerKilledAtAnyMomentIsReplaced) {
  const int kills = Repetitions(20, 1000);
  Times until_served;
  auto viewer = std::make_unique<ViewerProcess>(kAppId, &MakeCountingService);
  const long files = Files();
  for (int kill = 0; kill < kills; ++kill) {
    Shared<Progress> progress;
    const Forked client([&] { return AskForEver(&*progress); });
    progress->AwaitAnswers(1);
    moments_.Wait();
    viewer->Kill();
    const auto begin = Times::Clock::now();
    viewer = std::make_unique<ViewerProcess>(kAppId, &MakeCountingService);
    Shared<Progress> next;
    const Forked next_client([&] { return AskForEver(&*next); });
    next->AwaitAnswers(1);
    until_served.AddSince(begin);
    progress->AwaitMore(progress->missed, 1);
    ASSERT_FALSE(progress->wrong || next->wrong) << kill;
  }
  EXPECT_EQ(Files(), files);
  until_served.Record("kill to served by the next");
  if (kavrel_test::IsLongRun()) {
    EXPECT_LT(until_served.Quantile(0.5), 1e6);
  }
}

// What the many clients of one process find.
struct Found {
  std::atomic<int> served = 0;  ///< calls that were answered as they should
  std::array<double, 20000> microseconds{};
};

void MakeRoomForDescriptors(rlim_t wanted) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = wanted;
  limit.rlim_max = std::max(limit.rlim_max, wanted);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// One call at a time, of one client after the other: none waits for another's.
int CallInTurns(int clients, int rounds, Found* found) {
  std::vector<Handle> handles;
  for (int client = 0; client < clients; ++client) handles.push_back(Connect());
  for (int round = 1; round <= rounds; ++round) {
    for (const Handle& handle : handles) {
      int size = 0;
      kavrel_api_show_channel_banner(handle.get(), 1);
      const auto begin = Times::Clock::now();
      if (!kavrel_api_get_window_size(handle.get(), size) || size != round) return 1;
      const Times::Microseconds time = Times::Clock::now() - begin;
      found->microseconds[static_cast<std::size_t>(found->served++)] = time.count();
    }
  }
  handles.clear();
  int size = -1;
  return kavrel_api_get_window_size(Connect().get(), size) && size == 0 ? 0 : 2;
}

// Nearly as many as one user may have.
TEST_F(CommandFaults, ThousandClientsAreServed) {
  constexpr int kSpare = 100;
  const int clients = Repetitions(100, 1000);
  constexpr int kRounds = 20;
  ASSERT_NO_FATAL_FAILURE(MakeRoomForDescriptors(static_cast<rlim_t>(3 * clients + kSpare)));
  const ViewerProcess viewer(kAppId, &MakeCountingService);
  Shared<Found> found;
  Forked process([&] { return CallInTurns(clients, kRounds, &*found); });
  EXPECT_EQ(process.Wait(), 0);
  ASSERT_EQ(found->served, clients * kRounds);
  Times calls;
  for (int call = 0; call < found->served; ++call) {
    calls.Add(found->microseconds[static_cast<std::size_t>(call)]);
  }
  calls.Record("two-way call");
}

}  // namespace
