// Turns of the poller, with pipes for sockets.
#include "poller.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using kavrel_rpc::EventSource;
using kavrel_rpc::kNever;
using kavrel_rpc::NowMs;
using kavrel_rpc::Poller;

using Calls = std::vector<std::string>;

/// A pipe with something in it, and what to do when it is looked at.
class PipeWatch final : public kavrel_rpc::Watch {
 public:
  PipeWatch(std::string name, Calls& calls) : name_(std::move(name)), calls_(calls) {
    if (::pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) throw std::bad_alloc();
  }
  ~PipeWatch() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }

  void Fill() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
  int fd() const { return ends_[0]; }

  void OnReady(std::uint32_t) override {
    char byte = 0;
    EXPECT_EQ(::read(ends_[0], &byte, 1), 1);
    Note("ready");
  }
  void OnDeadline() override { Note("late"); }
  void OnPending() override { Note("pending"); }

  std::function<void()> then;

 private:
  void Note(const std::string& what) {
    calls_.push_back(what + ' ' + name_);
    if (then) then();
  }

  const std::string name_;
  Calls& calls_;
  int ends_[2];
};

class PollerTest : public testing::Test {
 protected:
  PollerTest()
      : context_(g_main_context_new()),
        source_(std::make_unique<EventSource>(context_, "test", poller_.fd(), kNever, [this] {
          poller_.Turn();
          return true;
        })) {
    poller_.SetSource(source_.get());
  }
  ~PollerTest() override {
    source_.reset();
    g_main_context_unref(context_);
  }

  PipeWatch& Make(const std::string& name) {
    watches_.push_back(std::make_unique<PipeWatch>(name, calls_));
    EXPECT_TRUE(poller_.Add(watches_.back()->fd(), EPOLLIN, *watches_.back()));
    return *watches_.back();
  }
  bool Turn() { return g_main_context_iteration(context_, FALSE); }
  /// Turns until nothing is left to do.
  void TurnAll() {
    while (Turn()) continue;
  }

  Poller poller_;
  GMainContext* context_;
  Calls calls_;
  std::vector<std::unique_ptr<PipeWatch>> watches_;
  std::unique_ptr<EventSource> source_;
};

TEST_F(PollerTest, CallsWhatIsReady) {
  PipeWatch& one = Make("one");
  Make("other");
  one.Fill();
  TurnAll();
  EXPECT_EQ(calls_, Calls{"ready one"});
}

TEST_F(PollerTest, ReadsEverythingBeforeAnybodyIsLate) {
  std::vector<PipeWatch*> all;
  all.reserve(50);
  for (int i = 0; i < 50; ++i) all.push_back(&Make(std::to_string(i)));
  for (PipeWatch* const watch : all) {
    watch->Fill();
    poller_.SetDeadline(*watch, NowMs() - 1);
    watch->then = [this, watch] { poller_.SetDeadline(*watch, kNever); };
  }
  PipeWatch& late = Make("staller");
  poller_.SetDeadline(late, NowMs() - 1);
  TurnAll();
  ASSERT_EQ(calls_.size(), 51U);
  EXPECT_EQ(calls_.back(), "late staller");
}

TEST_F(PollerTest, IsLateOnce) {
  PipeWatch& watch = Make("staller");
  poller_.SetDeadline(watch, NowMs() - 1);
  EXPECT_TRUE(poller_.HasDeadline(watch));
  source_->Kick();
  TurnAll();
  EXPECT_FALSE(poller_.HasDeadline(watch));
  EXPECT_EQ(calls_, Calls{"late staller"});
}

TEST_F(PollerTest, PendingWorkHasOneTurnARound) {
  PipeWatch& busy = Make("busy");
  PipeWatch& other = Make("other");
  int rounds = 3;
  busy.then = [&] {
    if (--rounds > 0) poller_.MakePending(busy);
  };
  busy.Fill();
  other.Fill();
  EXPECT_TRUE(Turn());
  EXPECT_EQ(calls_.size(), 2U);
  TurnAll();
  ASSERT_EQ(calls_.size(), 4U);
  EXPECT_EQ(calls_[2], "pending busy");
}

TEST_F(PollerTest, RemovedOnesAreNotCalledAnyMore) {
  PipeWatch& first = Make("first");
  PipeWatch& second = Make("second");
  PipeWatch& third = Make("third");
  const auto remove_others = [&](PipeWatch& survivor) {
    for (PipeWatch* const watch : {&first, &second, &third}) {
      if (watch != &survivor) poller_.Remove(*watch);
    }
  };
  for (PipeWatch* const watch : {&first, &second, &third}) {
    watch->Fill();
    poller_.MakePending(*watch);
    poller_.SetDeadline(*watch, NowMs() - 1);
    watch->then = [&remove_others, watch] { remove_others(*watch); };
  }
  TurnAll();
  ASSERT_FALSE(calls_.empty());
  const std::string survivor = calls_[0].substr(calls_[0].find(' '));
  for (const auto& call : calls_) EXPECT_EQ(call.substr(call.find(' ')), survivor);
}

TEST_F(PollerTest, StopEndsTheTurn) {
  for (int i = 0; i < 3; ++i) {
    PipeWatch& watch = Make(std::to_string(i));
    watch.Fill();
    poller_.SetDeadline(watch, NowMs() - 1);
    watch.then = [this] { poller_.Stop(); };
  }
  Turn();
  EXPECT_EQ(calls_.size(), 1U);
}

TEST_F(PollerTest, SwitchedOffInputComesBack) {
  PipeWatch& watch = Make("one");
  poller_.SetInput(0, watch);
  watch.Fill();
  TurnAll();
  EXPECT_TRUE(calls_.empty());
  poller_.SetInput(EPOLLIN, watch);
  poller_.SetDeadline(watch, NowMs() - 1);
  source_->Kick();
  TurnAll();
  ASSERT_FALSE(calls_.empty());
  EXPECT_EQ(calls_[0], "ready one");
}

// More watches than slots, each busy in turn: all are heard, directly polled or not.
TEST_F(PollerTest, BusiestOnesAreHeardAndSoAreTheOthers) {
  std::vector<PipeWatch*> all;
  for (int i = 0; i < 8; ++i) {
    all.push_back(&Make(std::to_string(i)));
    all.back()->then = [this, watch = all.back()] { poller_.NoteBusy(*watch); };
  }
  std::size_t expected = 0;
  for (PipeWatch* const busy : all) {
    for (int i = 0; i < 1500; ++i) {
      busy->Fill();
      TurnAll();
      ++expected;
    }
    EXPECT_TRUE(poller_.IsDirect(*busy));
  }
  for (PipeWatch* const watch : all) {
    watch->Fill();
    ++expected;
  }
  TurnAll();
  EXPECT_EQ(calls_.size(), expected);
  for (PipeWatch* const watch : all) {
    poller_.Remove(*watch);
    watch->Fill();
  }
  TurnAll();
  EXPECT_EQ(calls_.size(), expected);
}

}  // namespace
