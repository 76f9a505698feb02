// Clients and viewers as real processes: what a caller sees when the other side is killed, stopped,
// restarted, slow, doubled or does not keep to the protocol.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kavrel/app_api.h>
#include <malloc.h>
#include <rpc-port.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "null_service.h"
#include "repetitions.h"
#include "temporary_directory.h"
#include "viewer_process.h"

namespace {

using kavrel_test::NullService;
using kavrel_test::Repetitions;
using kavrel_test::ScopedEnvironment;
using kavrel_test::TemporaryDirectory;
using kavrel_test::ViewerProcess;
using StubException = rpc_port::KavrelAppApiStub::stub::InvalidIOException;

constexpr const char* kAppId = "org.zarnet.test";
constexpr int kUntouched = -12345;

struct DestroyHandle {
  void operator()(void* handle) const { kavrel_api_destroy(handle); }
};
using Handle = std::unique_ptr<void, DestroyHandle>;

Handle Connect() {
  return Handle(kavrel_api_create(kAppId));
}

// A pipe over which the viewer's process tells the test what it did.
class Tell {
 public:
  Tell() {
    if (pipe(fds_) != 0) throw std::runtime_error("no pipe");
  }
  Tell(const Tell&) = delete;
  Tell& operator=(const Tell&) = delete;
  ~Tell() {
    close(fds_[0]);
    close(fds_[1]);
  }
  void Say(char word) const { EXPECT_EQ(write(fds_[1], &word, 1), 1); }
  char Hear() const {
    char word = 0;
    EXPECT_EQ(read(fds_[0], &word, 1), 1);
    return word;
  }

 private:
  int fds_[2] = {-1, -1};
};

class CommandPath : public ::testing::Test {
 protected:
  TemporaryDirectory directory_;
  ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.path()};
  ScopedEnvironment log_{"KAVREL_LOG", "none"};
  Tell tell_;
};

// Answers true for odd levels: an answer that belongs to its question.
class OddService final : public NullService {
 public:
  using NullService::NullService;
  bool ChangeSelectionWindowZoomLevel(int level) override { return level % 2 != 0; }
  bool GetWindowSize(int& size) override {
    size = 7;
    return true;
  }
};

std::unique_ptr<NullService> MakeOddService(std::string sender, std::string instance) {
  return std::make_unique<OddService>(std::move(sender), std::move(instance));
}

// --- A viewer that goes away

class HangingService final : public NullService {
 public:
  HangingService(std::string sender, std::string instance, const Tell& tell)
      : NullService(std::move(sender), std::move(instance)), tell_(tell) {}
  bool GetWindowSize(int& /*size*/) override {
    tell_.Say('h');
    while (true) pause();
  }

 private:
  const Tell& tell_;
};

TEST_F(CommandPath, ViewerKilledInMidCallEndsTheCall) {
  ViewerProcess viewer(kAppId, [this](std::string sender, std::string instance) {
    return std::make_unique<HangingService>(std::move(sender), std::move(instance), tell_);
  });
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  std::thread killer([&] {
    EXPECT_EQ(tell_.Hear(), 'h');
    viewer.Signal(SIGKILL);
  });
  int size = kUntouched;
  EXPECT_FALSE(kavrel_api_get_window_size(handle.get(), size));
  EXPECT_EQ(size, kUntouched);
  killer.join();
}

// No time-out: only the viewer's end can end a call that is under way then.
TEST_F(CommandPath, ViewerThatDiesAtAnyMomentHoldsNobodyUp) {
  const ScopedEnvironment timeout("KAVREL_RPC_TIMEOUT_MS", "0");
  std::mt19937 random(20250611);
  const int deaths = Repetitions(20, 1000);
  for (int death = 0; death < deaths; ++death) {
    const auto lifetime = static_cast<suseconds_t>(1 + random() % 3000);
    const ViewerProcess viewer(kAppId, [lifetime](std::string sender, std::string instance) {
      const itimerval timer{{0, 0}, {0, lifetime}};
      setitimer(ITIMER_REAL, &timer, nullptr);  // its signal ends the process
      return MakeOddService(std::move(sender), std::move(instance));
    });
    const Handle handle = Connect();
    if (handle == nullptr) continue;  // it died while they connected
    int size = kUntouched;
    while (kavrel_api_get_window_size(handle.get(), size)) {
      ASSERT_EQ(size, 7);
      kavrel_api_show_channel_banner(handle.get(), 1);
      size = kUntouched;
    }
    EXPECT_EQ(size, kUntouched);
    EXPECT_FALSE(kavrel_api_get_window_size(handle.get(), size));
  }
}

// What its socket takes is waited for; then one command waits for the time-out, and the others only
// try. Nothing is kept for later.
TEST_F(CommandPath, FloodAgainstAStoppedViewerWaitsOnceAndKeepsNothing) {
  constexpr std::size_t kNoGrowth = std::size_t{256} * 1024;
  const ScopedEnvironment timeout("KAVREL_RPC_TIMEOUT_MS", "500");
  ViewerProcess viewer(kAppId, &MakeOddService);
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  viewer.Signal(SIGSTOP);
  const auto in_use = [] {
    const auto info = ::mallinfo2();
    return info.uordblks + info.hblkhd;  // large pieces are counted apart
  };
  const std::size_t before = in_use();
  const int commands = Repetitions(20000, 1000000);
  for (int i = 0; i < commands; ++i) kavrel_api_show_channel_banner(handle.get(), 1);
  EXPECT_LT(in_use(), before + kNoGrowth);
  viewer.Signal(SIGCONT);
  // As long as it has not read what it was sent, a command fails at once.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  bool answered = false;
  while (!answered && std::chrono::steady_clock::now() < limit) {
    answered = kavrel_api_change_selection_window_zoom_level(handle.get(), 1);
    std::this_thread::yield();
  }
  EXPECT_TRUE(answered);
}

// A slow viewer keeps the caller that waits for it, and no other handle of the same process.
TEST_F(CommandPath, HandleThatWaitsHoldsUpNoOther) {
  const ScopedEnvironment timeout("KAVREL_RPC_TIMEOUT_MS", "0");
  const std::string slow_id = "org.zarnet.slow";
  ViewerProcess slow(slow_id, [this](std::string sender, std::string instance) {
    return std::make_unique<HangingService>(std::move(sender), std::move(instance), tell_);
  });
  const ViewerProcess viewer(kAppId, &MakeOddService);
  const Handle waiting(kavrel_api_create(slow_id.c_str()));
  const Handle handle = Connect();
  ASSERT_NE(waiting, nullptr);
  ASSERT_NE(handle, nullptr);
  std::thread waiter([&] {
    int size = kUntouched;
    EXPECT_FALSE(kavrel_api_get_window_size(waiting.get(), size));
  });
  EXPECT_EQ(tell_.Hear(), 'h');
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(kavrel_api_change_selection_window_zoom_level(handle.get(), 1));
  }
  slow.Signal(SIGKILL);
  waiter.join();
}

// Says that it was asked, and answers when it is told to.
class PatientService final : public NullService {
 public:
  PatientService(std::string sender, std::string instance, const Tell& asked, const Tell& answer)
      : NullService(std::move(sender), std::move(instance)), asked_(asked), answer_(answer) {}
  bool GetWindowSize(int& size) override {
    asked_.Say('a');
    answer_.Hear();
    size = 7;
    return true;
  }

 private:
  const Tell& asked_;
  const Tell& answer_;
};

// The thread that waits holds the handle's lock, which nobody in the child would ever give back.
TEST_F(CommandPath, ChildForkedInMidCallIsRefusedAndTheCallGoesOn) {
  constexpr unsigned kLimitSeconds = 30;
  const Tell answer;
  const ViewerProcess viewer(kAppId, [&](std::string sender, std::string instance) {
    return std::make_unique<PatientService>(std::move(sender), std::move(instance), tell_, answer);
  });
  Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  std::thread caller([&] {
    int size = kUntouched;
    EXPECT_TRUE(kavrel_api_get_window_size(handle.get(), size));
    EXPECT_EQ(size, 7);
  });
  EXPECT_EQ(tell_.Hear(), 'a');
  const pid_t child = fork();
  if (child == 0) {
    alarm(kLimitSeconds);
    int size = kUntouched;
    kavrel_api_show_channel_banner(handle.get(), 1);
    const bool refused = !kavrel_api_get_window_size(handle.get(), size) && size == kUntouched;
    kavrel_api_destroy(handle.release());
    _exit(refused ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  answer.Say('y');
  caller.join();
}

TEST_F(CommandPath, StoppedViewerEndsTheCallAtTheDeadlineAndServesAgainAfterwards) {
  const ScopedEnvironment timeout("KAVREL_RPC_TIMEOUT_MS", "200");
  ViewerProcess viewer(kAppId, &MakeOddService);
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  viewer.Signal(SIGSTOP);
  int size = kUntouched;
  EXPECT_FALSE(kavrel_api_get_window_size(handle.get(), size));
  EXPECT_EQ(size, kUntouched);
  viewer.Signal(SIGCONT);
  // The late answer to the first call must not be taken for that of a later one.
  bool answered = false;
  for (int i = 0; i < 100 && !answered; ++i) {
    answered = kavrel_api_change_selection_window_zoom_level(handle.get(), 1);
  }
  EXPECT_TRUE(answered);
  EXPECT_FALSE(kavrel_api_change_selection_window_zoom_level(handle.get(), 2));
  EXPECT_TRUE(kavrel_api_get_window_size(handle.get(), size));
  EXPECT_EQ(size, 7);
}

TEST_F(CommandPath, RestartedViewerServesNewHandlesWhileOldOnesStayUseless) {
  auto viewer = std::make_unique<ViewerProcess>(kAppId, &MakeOddService);
  const Handle before = Connect();
  ASSERT_NE(before, nullptr);
  viewer->Kill();
  EXPECT_EQ(Connect(), nullptr) << "nobody serves";
  viewer = std::make_unique<ViewerProcess>(kAppId, &MakeOddService);
  const Handle after = Connect();
  ASSERT_NE(after, nullptr);
  int size = kUntouched;
  EXPECT_TRUE(kavrel_api_get_window_size(after.get(), size));
  size = kUntouched;
  EXPECT_FALSE(kavrel_api_get_window_size(before.get(), size));
  EXPECT_EQ(size, kUntouched);
  kavrel_api_show_channel_banner(before.get(), 1);  // fails quietly
}

TEST_F(CommandPath, SecondViewerCannotListen) {
  const ViewerProcess viewer(kAppId, &MakeOddService);
  const ViewerProcess second(kAppId, [this](const std::function<void()>& ready) {
    try {
      kavrel_test::Stub stub;
      stub.Listen(std::make_shared<kavrel_test::FunctionFactory>(&MakeOddService));
      tell_.Say('l');
    } catch (const StubException&) {
      tell_.Say('r');
    }
    ready();
  });
  EXPECT_EQ(tell_.Hear(), 'r');
  EXPECT_NE(Connect(), nullptr) << "the first one serves on";
}

// --- Several callers

TEST_F(CommandPath, TwoClientsAreServedSideBySide) {
  const ViewerProcess viewer(kAppId, &MakeOddService);
  const Handle first = Connect();
  const Handle second = Connect();
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(kavrel_api_change_selection_window_zoom_level(first.get(), 1));
    EXPECT_FALSE(kavrel_api_change_selection_window_zoom_level(second.get(), 2));
  }
}

TEST_F(CommandPath, EightThreadsOnOneHandleEachGetTheirOwnAnswers) {
  const ViewerProcess viewer(kAppId, &MakeOddService);
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&, number] {
      for (int i = 0; i < 300; ++i) {
        kavrel_api_show_channel_banner(handle.get(), i);
        const bool odd = kavrel_api_change_selection_window_zoom_level(handle.get(), number);
        if (odd != (number % 2 != 0)) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// --- What arrives

class TellingService final : public NullService {
 public:
  TellingService(std::string sender, std::string instance, const Tell& tell)
      : NullService(std::move(sender), std::move(instance)), tell_(tell) {}
  void OnClientConnected() override { tell_.Say('c'); }
  void OnClientDisconnected() override { tell_.Say('d'); }
  void ShowChannelBanner(int option) override { tell_.Say(static_cast<char>('0' + option)); }
  void ExitTTX(std::string /*reason*/) override { throw std::runtime_error("no teletext"); }

 private:
  const Tell& tell_;
};

class TellingViewer : public CommandPath {
 protected:
  ViewerProcess viewer_{kAppId, [this](std::string sender, std::string instance) {
                          return std::make_unique<TellingService>(std::move(sender),
                                                                  std::move(instance), tell_);
                        }};
};

TEST_F(TellingViewer, CommandsSentJustBeforeTheHandleIsDestroyedArriveInOrder) {
  Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  for (int i = 0; i < 10; ++i) kavrel_api_show_channel_banner(handle.get(), i);
  handle.reset();
  std::string heard;
  for (int i = 0; i < 12; ++i) heard += tell_.Hear();
  EXPECT_EQ(heard, "c0123456789d");
}

TEST_F(TellingViewer, AnOperationThatThrowsCostsItsCallerTheConnectionAndNobodyElse) {
  const Handle thrower = Connect();
  const Handle other = Connect();
  ASSERT_NE(thrower, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(tell_.Hear(), 'c');
  EXPECT_EQ(tell_.Hear(), 'c');
  kavrel_api_exit_ttx(thrower.get(), "now");
  EXPECT_EQ(tell_.Hear(), 'd');
  kavrel_api_show_channel_banner(other.get(), 5);
  EXPECT_EQ(tell_.Hear(), '5');
  int size = kUntouched;
  EXPECT_FALSE(kavrel_api_get_window_size(thrower.get(), size));
  EXPECT_EQ(size, kUntouched);
}

TEST_F(CommandPath, AServiceThatCannotBeMadeLosesItsClientOnly) {
  int made = 0;
  const ViewerProcess viewer(kAppId, [&made](std::string sender, std::string instance) {
    if (made++ == 0) throw std::runtime_error("no thread for its worker");
    return MakeOddService(std::move(sender), std::move(instance));
  });
  const Handle refused = Connect();
  const Handle served = Connect();
  ASSERT_NE(served, nullptr);
  int size = kUntouched;
  EXPECT_TRUE(kavrel_api_get_window_size(served.get(), size));
  size = kUntouched;
  EXPECT_FALSE(kavrel_api_get_window_size(refused.get(), size));
  EXPECT_EQ(size, kUntouched);
}

// --- A service that does not keep to the protocol

struct Reply {
  const char* tag;
  int sequence_offset;
};

// Answers every request with the replies that it is given, size 1, 2, 3...
class FakeService {
 public:
  explicit FakeService(std::vector<Reply> replies, bool for_ever = false)
      : replies_(std::move(replies)), for_ever_(for_ever) {}

  void Run(const std::function<void()>& ready) {
    rpc_port_stub_h stub = nullptr;
    rpc_port_stub_create(&stub, "KavrelAppApi");
    rpc_port_stub_add_received_event_cb(
        stub,
        [](const char* /*sender*/, const char* /*instance*/, rpc_port_h port, void* self) {
          return static_cast<FakeService*>(self)->Answer(port);
        },
        this);
    if (rpc_port_stub_listen(stub) == 0) ready();
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  }

 private:
  int Answer(rpc_port_h port) {
    rpc_port_parcel_h request = nullptr;
    if (rpc_port_parcel_create_from_port(&request, port) != 0) return -1;
    rpc_port_parcel_header_h header = nullptr;
    int sequence = 0;
    rpc_port_parcel_get_header(request, &header);
    rpc_port_parcel_header_get_seq_num(header, &sequence);
    do {
      int size = 0;
      for (const Reply& reply : replies_) {
        if (!Send(port, reply, sequence, ++size)) return -1;
      }
    } while (for_ever_);
    rpc_port_parcel_destroy(request);
    return 0;
  }

  static bool Send(rpc_port_h port, const Reply& reply, int sequence, int size) {
    rpc_port_parcel_h parcel = nullptr;
    rpc_port_parcel_header_h header = nullptr;
    rpc_port_parcel_create(&parcel);
    rpc_port_parcel_get_header(parcel, &header);
    if (reply.tag != nullptr) rpc_port_parcel_header_set_tag(header, reply.tag);
    rpc_port_parcel_header_set_seq_num(header, sequence + reply.sequence_offset);
    rpc_port_parcel_write_int32(parcel, 0);
    rpc_port_parcel_write_int32(parcel, size);
    rpc_port_parcel_write_bool(parcel, true);
    const bool sent = rpc_port_parcel_send(parcel, port) == 0;
    rpc_port_parcel_destroy(parcel);
    return sent;
  }

  std::vector<Reply> replies_;
  bool for_ever_;
};

class OddReplies : public CommandPath {
 protected:
  void Serve(std::vector<Reply> replies, bool for_ever = false) {
    viewer_ = std::make_unique<ViewerProcess>(
        kAppId, [service = FakeService(std::move(replies), for_ever)](
                    const std::function<void()>& ready) mutable { service.Run(ready); });
  }
  ScopedEnvironment timeout_{"KAVREL_RPC_TIMEOUT_MS", "1000"};
  std::unique_ptr<ViewerProcess> viewer_;
};

TEST_F(OddReplies, AnswersToOtherRequestsAreSkipped) {
  Serve({{"1.9.1", 1}, {"1.9.1", -7}, {"1.9.1", 0}});
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  int size = kUntouched;
  EXPECT_TRUE(kavrel_api_get_window_size(handle.get(), size));
  EXPECT_EQ(size, 3);
}

TEST_F(OddReplies, AnUntaggedAnswerIsTakenWhateverItsNumber) {
  Serve({{nullptr, 5}});
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  int size = kUntouched;
  EXPECT_TRUE(kavrel_api_get_window_size(handle.get(), size));
  EXPECT_EQ(size, 1);
}

TEST_F(OddReplies, WrongNumbersForEverEndTheCallAtItsOneDeadline) {
  Serve({{"1.9.1", 1}}, true);
  const Handle handle = Connect();
  ASSERT_NE(handle, nullptr);
  int size = kUntouched;
  EXPECT_FALSE(kavrel_api_get_window_size(handle.get(), size));
  EXPECT_EQ(size, kUntouched);
}

}  // namespace
