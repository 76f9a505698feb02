// How two ends find each other, whoever comes first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "handshake_fixture.h"
#include "repetitions.h"

namespace kavrel_test {
namespace {

using MakePeer = std::unique_ptr<BusPeer> (*)();
struct Partners {
  const char* name;
  MakePeer host;
  MakePeer plugin;
  int rounds;
  int long_rounds = 1000;

  int Rounds() const { return Repetitions(rounds, long_rounds); }
};
void PrintTo(const Partners& partners, std::ostream* out) {
  *out << partners.name;
}
std::string PartnersName(const testing::TestParamInfo<Partners>& info) {
  return info.param.name;
}

class Pair : public testing::TestWithParam<Partners> {
 protected:
  void OpenHost() { host_->Open("host", kHost, kPlugin); }
  void OpenPlugin() { plugin_->Open("plugin", kHost, kPlugin); }
  void ExpectReady() {
    host_->Wait("connected");
    plugin_->Wait("connected");
    EXPECT_TRUE(host_->IsReady());
    EXPECT_TRUE(plugin_->IsReady());
    EXPECT_TRUE(host_->Send(true, {{"to", "plugin"}}));
    EXPECT_TRUE(plugin_->Send(true, {{"to", "host"}}));
  }
  void Close() {
    host_->Do({{"do", "close"}}, "closed");
    plugin_->Do({{"do", "close"}}, "closed");
  }

  PrivateBus bus_;
  std::unique_ptr<BusPeer> host_ = GetParam().host();
  std::unique_ptr<BusPeer> plugin_ = GetParam().plugin();
};

class EitherOrder : public Pair {};

TEST_P(EitherOrder, FindsEachOtherHostFirst) {
  const int rounds = GetParam().Rounds();
  for (int round = 1; round <= rounds; ++round) {
    OpenHost();
    OpenPlugin();
    ExpectReady();
    ASSERT_EQ(host_->Count("connected"), round);
    ASSERT_EQ(plugin_->Count("connected"), round);
    Close();
  }
}

TEST_P(EitherOrder, FindsEachOtherPluginFirst) {
  const int rounds = GetParam().Rounds();
  for (int round = 1; round <= rounds; ++round) {
    OpenPlugin();
    OpenHost();
    ExpectReady();
    ASSERT_EQ(host_->Count("connected"), round);
    ASSERT_EQ(plugin_->Count("connected"), round);
    Close();
  }
}

// A thousand starts of each order, in parts that can run beside each other.
constexpr int kPart = 250;
INSTANTIATE_TEST_SUITE_P(
    Implementations, EitherOrder,
    testing::Values(Partners{"library_1_of_4", MakeLibraryEnd, MakeLibraryEnd, kPart, 10 * kPart},
                    Partners{"library_2_of_4", MakeLibraryEnd, MakeLibraryEnd, kPart, 10 * kPart},
                    Partners{"library_3_of_4", MakeLibraryEnd, MakeLibraryEnd, kPart, 10 * kPart},
                    Partners{"library_4_of_4", MakeLibraryEnd, MakeLibraryEnd, kPart, 10 * kPart},
                    Partners{"library_host", MakeLibraryEnd, MakePythonPeer, 20},
                    Partners{"library_plugin", MakePythonPeer, MakeLibraryEnd, 20}),
    PartnersName);

class AtOnce : public Pair {};

// Both ready, or both taken on and neither ready when their SYNs crossed. Messages flow either way.
TEST_P(AtOnce, FindsEachOther) {
  int crossed = 0;
  const int rounds = GetParam().Rounds();
  for (int round = 0; round < rounds; ++round) {
    const auto open = [](const char* role) {
      return Json{{"do", "open"}, {"role", role}, {"host", kHost}, {"plugin", kPlugin}};
    };
    host_->Tell(open("host"));
    plugin_->Tell(open("plugin"));
    host_->Wait("opened");
    plugin_->Wait("opened");
    // An end takes nobody on before its loop runs; it can send as soon as it has.
    while (!plugin_->Notify({{"knock", ""}})) {
    }
    while (!host_->Notify({{"knock", ""}})) {
    }
    ASSERT_TRUE(host_->Send(true, {{"to", "plugin"}}));
    ASSERT_TRUE(plugin_->Send(true, {{"to", "host"}}));
    const bool ready = host_->IsReady();
    ASSERT_EQ(ready, plugin_->IsReady());
    if (!ready) ++crossed;
    Close();
  }
  RecordProperty("figures", "crossed: " + std::to_string(crossed));
}

INSTANTIATE_TEST_SUITE_P(
    Implementations, AtOnce,
    testing::Values(Partners{"library_and_library", MakeLibraryEnd, MakeLibraryEnd, 50, 10000},
                    Partners{"library_host", MakeLibraryEnd, MakePythonPeer, 20},
                    Partners{"library_plugin", MakePythonPeer, MakeLibraryEnd, 20}),
    PartnersName);

class HandshakeTest : public SteppedTest {};

TEST_F(HandshakeTest, CrossedSynsLeaveBothUnreadyAndTalking) {
  OpenWithSteps(*peer_, {});
  OpenPlugin end(kHost, kPlugin);
  Changes changes;
  changes.Follow(end);
  Pairs received;
  end.SetPluginDubsMsgCB([&](CMessage& message) {
    received = PairsOf(message);
    return true;
  });
  peer_->Wait("heard");  // its SYN, which the peer took it on from
  Say(*peer_, "SYN");
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; }));
  peer_->Wait("heard");  // its SYN_ACK, which the peer does not answer
  Say(*peer_, "SYN_ACK");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Already monitored") == 1; }));
  EXPECT_EQ(end.State(), 2);
  EXPECT_FALSE(end.IsConnectionReady());
  EXPECT_FALSE(peer_->IsReady());
  EXPECT_EQ(changes.connected, 0);
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end.SendMessage(message, 0));
  EXPECT_TRUE(end.SendNotification(message));
  EXPECT_EQ(peer_->Wait("received").at("kind"), "message");
  EXPECT_EQ(peer_->Wait("received").at("kind"), "notification");
  peer_->Tell({{"do", "notify"}, {"pairs", Pairs{{"b", "2"}}}});
  ASSERT_TRUE(IterateUntil([&] { return !received.empty(); }));
  EXPECT_EQ(received, (Pairs{{"b", "2"}}));
}

TEST_F(HandshakeTest, AloneAnEndStaysAnnounced) {
  const OpenPlugin end(kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return CountLines("' => ''") == 1; }));  // its own SYN
  EXPECT_EQ(end.State(), 1);
  EXPECT_FALSE(end.IsConnectionReady());
  EXPECT_EQ(CountLines("Monitor unique name"), 0U);
}

TEST_F(HandshakeTest, RepeatedSynIsAnsweredOnce) {
  const OpenPlugin end(kHost, kPlugin);
  OpenWithSteps(*peer_, {});
  Say(*peer_, "SYN");
  Say(*peer_, "SYN");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Already monitored") == 1; }));
  EXPECT_EQ(CountLines("m_BroadcastName: org.zarnet.kavrel.hello_SYN_ACK"), 1U);
  EXPECT_EQ(end.State(), 2);
}

// Repeated by a partner that is ready, too: neither end makes anything of it.
TEST_F(HandshakeTest, StepsRepeatedToAReadyEndChangeNothing) {
  const OpenPlugin end(kHost, kPlugin);
  peer_->Open("host", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  const std::size_t said = CountLines("m_BroadcastName: ");
  Say(*peer_, "SYN");
  Say(*peer_, "SYN_ACK");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Already monitored") == 2; }));
  EXPECT_TRUE(end.IsConnectionReady());
  EXPECT_EQ(CountLines("m_BroadcastName: "), said);
}

TEST_F(HandshakeTest, AckWithoutAPartnerChangesNothing) {
  const OpenPlugin end(kHost, kPlugin);
  Say(*peer_, "ACK");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
  EXPECT_EQ(end.State(), 1);
  EXPECT_EQ(CountLines("Monitor unique name"), 0U);
}

}  // namespace
}  // namespace kavrel_test
