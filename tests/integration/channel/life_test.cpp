// Ends that are destroyed at awkward moments: in their own callbacks, with work waiting for them,
// from another thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "channel_fixture.h"

namespace kavrel_test {
namespace {

using kavreldbus::CHostDbus;
using kavreldbus::CPluginDbus;

class LifeTest : public ChannelTest {
 protected:
  void ConnectPeer(const kavreldbus::CBaseDbus& end, const std::string& peer_role) {
    peer_->Open(peer_role, kHost, kPlugin);
    ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  }
  void TellToSend() { peer_->Tell({{"do", "send"}, {"wait", true}, {"pairs", Pairs{{"a", "1"}}}}); }
  void TellToNotify() { peer_->Tell({{"do", "notify"}, {"pairs", Pairs{{"a", "1"}}}}); }

  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

// What a callback destroys, and whether it was called.
template <class End>
struct Doomed {
  std::unique_ptr<End> end;
  bool called = false;

  bool Destroy() {
    called = true;
    end.reset();
    return true;
  }
};

TEST_F(LifeTest, HostDestroyedByAMessageStillAnswersIt) {
  Doomed<CHostDbus> doomed{std::make_unique<CHostDbus>(kHost, kPlugin)};
  doomed.end->SetHostDbusMsgCb(
      [](CMessage&, void* data) { return static_cast<Doomed<CHostDbus>*>(data)->Destroy(); },
      &doomed);
  ConnectPeer(*doomed.end, "plugin");
  TellToSend();
  ASSERT_TRUE(IterateUntil([&] { return doomed.called; }));
  EXPECT_EQ(peer_->Wait("sent").at("result"), true);
}

TEST_F(LifeTest, HostDestroyedByANotification) {
  Doomed<CHostDbus> doomed{std::make_unique<CHostDbus>(kHost, kPlugin)};
  doomed.end->SetHostDbusMsgCb(
      [](CMessage&, void* data) { return static_cast<Doomed<CHostDbus>*>(data)->Destroy(); },
      &doomed);
  ConnectPeer(*doomed.end, "plugin");
  for (int i = 0; i < 20; ++i) TellToNotify();
  ASSERT_TRUE(IterateUntil([&] { return doomed.called; }));
  for (int i = 0; i < 20; ++i) peer_->Wait("notified");
  IteratePending();
  EXPECT_EQ(CountLines("send notification to host"), 1U);
}

TEST_F(LifeTest, PluginDestroyedByItsCallable) {
  Doomed<CPluginDbus> doomed{std::make_unique<CPluginDbus>(kHost, kPlugin)};
  const auto kept = std::make_shared<std::string>("what the callable holds");
  std::string seen;
  doomed.end->SetPluginDubsMsgCB([&doomed, &seen, kept](CMessage&) {
    const bool answer = doomed.Destroy();
    seen = *kept;  // the callable outlives the end until it returns
    return answer;
  });
  ConnectPeer(*doomed.end, "host");
  TellToSend();
  ASSERT_TRUE(IterateUntil([&] { return doomed.called; }));
  EXPECT_EQ(peer_->Wait("sent").at("result"), true);
  EXPECT_EQ(seen, "what the callable holds");
  EXPECT_EQ(kept.use_count(), 1);
}

TEST_F(LifeTest, CallableReplacesItself) {
  CPluginDbus end(kHost, kPlugin);
  const auto kept = std::make_shared<std::string>("first");
  std::string seen;
  end.SetPluginDubsMsgCB([&end, &seen, kept](CMessage&) {
    end.SetPluginDubsMsgCB([](CMessage&) { return false; });
    seen = *kept;
    return true;
  });
  ConnectPeer(end, "host");
  TellToSend();
  ASSERT_TRUE(IterateUntil([&] { return !seen.empty(); }));
  EXPECT_EQ(peer_->Wait("sent").at("result"), true);
  EXPECT_EQ(seen, "first");
}

TEST_F(LifeTest, CallbackSends) {
  CPluginDbus end(kHost, kPlugin);
  end.SetPluginDubsMsgCB([&end](CMessage&) {
    CMessage answer = MessageOf({{"from", "callback"}});
    return end.SendMessage(answer, 1) && end.SendNotification(answer);
  });
  ConnectPeer(end, "host");
  TellToNotify();
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Sending signal") == 1; }));
  EXPECT_EQ(peer_->Wait("received").at("pairs").get<Pairs>(), (Pairs{{"from", "callback"}}));
  EXPECT_EQ(peer_->Wait("received").at("kind"), "notification");
}

TEST_F(LifeTest, ConnectedCallbackSendsAndWaits) {
  struct Sender {
    CPluginDbus end{kHost, kPlugin};
    bool sent = false;
    bool ready = false;
  } sender;
  sender.end.SetConnectionChangedCallback(
      [](void* data) {
        auto& self = *static_cast<Sender*>(data);
        CMessage message = MessageOf({{"hello", ""}});
        self.ready = self.end.IsConnectionReady();
        self.sent = self.end.SendMessage(message, 0);
      },
      nullptr, &sender);
  ConnectPeer(sender.end, "host");
  EXPECT_TRUE(sender.ready);
  EXPECT_TRUE(sender.sent);
}

TEST_F(LifeTest, DisconnectedCallbackMaySend) {
  struct Sender {
    CPluginDbus end{kHost, kPlugin};
    bool called = false;
    bool ready = false;
    bool sent = true;
    bool notified = true;
  } sender;
  sender.end.SetConnectionChangedCallback(
      nullptr,
      [](void* data) {
        auto& self = *static_cast<Sender*>(data);
        CMessage message = MessageOf({{"bye", ""}});
        self.called = true;
        self.ready = self.end.IsConnectionReady();
        self.sent = self.end.SendMessage(message, 0);
        self.notified = self.end.SendNotification(message);
      },
      &sender);
  ConnectPeer(sender.end, "host");
  peer_->process().Kill();
  ASSERT_TRUE(IterateUntil([&] { return sender.called; }));
  EXPECT_TRUE(sender.ready);
  EXPECT_FALSE(sender.sent);
  EXPECT_FALSE(sender.notified);
  EXPECT_FALSE(sender.end.IsConnectionReady());
}

TEST_F(LifeTest, WhatWasSentBeforeTheEndStillArrives) {
  auto end = std::make_unique<CPluginDbus>(kHost, kPlugin);
  ConnectPeer(*end, "host");
  CMessage message = MessageOf({{"last", "word"}});
  EXPECT_TRUE(end->SendMessage(message, 1));
  EXPECT_TRUE(end->SendNotification(message));
  end.reset();
  EXPECT_EQ(peer_->Wait("received").at("kind"), "message");
  EXPECT_EQ(peer_->Wait("received").at("kind"), "notification");
}

TEST_F(LifeTest, WhatWaitsForADestroyedEndIsForgotten) {
  auto end = std::make_unique<CPluginDbus>(kHost, kPlugin);
  int calls = 0;
  end->SetPluginDubsMsgCB([&calls](CMessage&) { return ++calls > 0; });
  Changes changes;
  changes.Follow(*end);
  ConnectPeer(*end, "host");
  for (int i = 0; i < 50; ++i) TellToNotify();
  for (int i = 0; i < 50; ++i) peer_->Wait("notified");
  peer_->Tell({{"do", "send"}, {"wait", false}, {"pairs", Pairs{}}});
  peer_->Wait("sent");
  peer_->process().Kill();
  end.reset();
  IteratePending();
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(changes.disconnected, 0);
}

TEST_F(LifeTest, DestroyedEndIsNoLongerExported) {
  auto end = std::make_unique<CPluginDbus>(kHost, kPlugin);
  end.reset();
  const CPluginDbus next(kHost, kPlugin);  // the path is free again
  EXPECT_THAT(Errors(), testing::IsEmpty());
}

TEST_F(LifeTest, SendersOnOtherThreadsSurviveThePartnersComingAndGoing) {
  CPluginDbus end(kHost, kPlugin);
  std::atomic<bool> over = false;
  std::atomic<int> sent = 0;
  std::vector<std::thread> senders;
  senders.reserve(2);
  for (int i = 0; i < 2; ++i) {
    senders.emplace_back([&] {
      CMessage message = MessageOf({{"a", "1"}});
      while (!over) {
        // Nobody is flooded: a partner that is there answers first.
        if (!end.IsConnectionReady() || !end.SendMessage(message, 0)) {
          std::this_thread::yield();
        } else if (sent++ == 0) {
          g_main_context_wakeup(nullptr);
        }
      }
    });
  }
  for (int round = 0; round < 5; ++round) {
    const auto partner = MakeLibraryEnd();
    partner->Tell({{"do", "open"}, {"role", "host"}, {"host", kHost}, {"plugin", kPlugin}});
    EXPECT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
    EXPECT_TRUE(IterateUntil([&] { return sent > 0; }));
    partner->process().Kill();
    EXPECT_TRUE(IterateUntil([&] { return !end.IsConnectionReady(); }));
    sent = 0;
  }
  over = true;
  for (std::thread& sender : senders) sender.join();
}

// ---- Misuse that must not stay silent.

void DieInConnectedCallback() {
  const PrivateBus bus;
  DlogCapture log;
  log.Observe([](const LogEntry& entry) { (void)std::fputs(entry.text.c_str(), stderr); });
  const auto peer = MakePythonPeer();
  peer->Open("host", kHost, kPlugin);
  auto end = std::make_unique<CPluginDbus>(kHost, kPlugin);
  end->SetConnectionChangedCallback(
      [](void* data) { static_cast<std::unique_ptr<CPluginDbus>*>(data)->reset(); }, nullptr, &end);
  static_cast<void>(IterateUntil([] { return false; }));
}

TEST(ChannelDeathTest, DestroyingAnEndInItsConnectedCallbackAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(DieInConnectedCallback(), testing::KilledBySignal(SIGABRT),
              "must not be destroyed in its connected or disconnected callback");
}

}  // namespace
}  // namespace kavrel_test
