// What a third process on the bus can make of a handshake. Whoever may own the names decides who
// the partner is: these outcomes are why the bus's policy must say who may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "handshake_fixture.h"

namespace kavrel_test {
namespace {

using testing::ElementsAre;

class StrangerTest : public SteppedTest {
 protected:
  // The stranger is the partner until it leaves the bus; then the real one is found.
  void ExpectRealPartnerOnlyAfterTheStranger(kavreldbus::CBaseDbus& end) {
    auto real = MakePythonPeer();
    real->Open("host", kHost, kPlugin);
    ASSERT_TRUE(IterateUntil([&] { return CountLines("Already monitored") == 1; }));
    EXPECT_FALSE(real->IsReady());
    stranger_->process().Kill();
    ASSERT_TRUE(IterateUntil([&] { return CountLines("Connection lost with partner") == 1; }));
    EXPECT_FALSE(end.IsConnectionReady());
    real->Do({{"do", "close"}}, "closed");
    real->Open("host", kHost, kPlugin);
    ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
    real->Wait("connected");
  }

  std::unique_ptr<BusPeer> stranger_ = MakePythonPeer();
};

TEST_F(StrangerTest, ThatSaysSynIsTakenForThePartner) {
  OpenPlugin end(kHost, kPlugin);
  Say(*stranger_, "SYN");
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; }));
  ExpectRealPartnerOnlyAfterTheStranger(end);
}

TEST_F(StrangerTest, ThatSaysSynAckIsTakenForThePartner) {
  OpenPlugin end(kHost, kPlugin);
  Say(*stranger_, "SYN_ACK");
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  ExpectRealPartnerOnlyAfterTheStranger(end);
}

TEST_F(StrangerTest, AckMakesAnEndReady) {
  const OpenPlugin end(kHost, kPlugin);
  OpenWithSteps(*peer_, {});
  Say(*peer_, "SYN");
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; }));
  Say(*stranger_, "ACK");
  EXPECT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
}

// The broadcast is lost; when the holder lets go, its own release is what the other end takes.
TEST_F(StrangerTest, HoldsSynAndTheAnnouncementIsLost) {
  peer_->Open("host", kHost, kPlugin);
  Hold(*stranger_, "SYN");
  const OpenPlugin end(kHost, kPlugin);
  EXPECT_THAT(Errors(), ElementsAre("Cannot own name due to return code = 3\n"));
  EXPECT_EQ(end.State(), 1);
  LetGo(*stranger_, "SYN");
  EXPECT_EQ(peer_->Wait("heard").at("who"), WhoIs(*stranger_));
}

// Not even a name that its holder would give away is taken from it.
TEST_F(StrangerTest, HoldsANameThatMayBeReplacedAndKeepsIt) {
  constexpr int kAllowReplacement = 1;
  Hold(*stranger_, "SYN", kAllowReplacement);
  const OpenPlugin end(kHost, kPlugin);
  EXPECT_THAT(Errors(), ElementsAre("Cannot own name due to return code = 3\n"));
}

// The first end has taken the second on and can send to it; the second takes the holder on.
TEST_F(StrangerTest, HoldsSynAckAndTheAnswerIsLost) {
  const OpenPlugin end(kHost, kPlugin);
  Hold(*stranger_, "SYN_ACK");
  peer_->Open("host", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; }));
  EXPECT_THAT(Errors(), ElementsAre("Cannot own name due to return code = 3\n"));
  EXPECT_FALSE(peer_->IsReady());
  LetGo(*stranger_, "SYN_ACK");
  EXPECT_EQ(peer_->Wait("heard").at("who"), WhoIs(*stranger_));
  peer_->Wait("connected");
  EXPECT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));  // by the host's ACK
}

// The second end counts itself ready although its ACK is lost; the first becomes so by the holder's
// release.
TEST_F(StrangerTest, HoldsAckAndTheLastStepIsLost) {
  peer_->Open("host", kHost, kPlugin);
  Hold(*stranger_, "ACK");
  OpenPlugin end(kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  EXPECT_THAT(Errors(), ElementsAre("Cannot own name due to return code = 3\n"));
  EXPECT_FALSE(peer_->IsReady());
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end.SendMessage(message, 0));
  LetGo(*stranger_, "ACK");
  peer_->Wait("connected");
  EXPECT_TRUE(peer_->IsReady());
}

TEST_F(StrangerTest, ForgesOwnerChangesInVain) {
  const OpenPlugin end(kHost, kPlugin);
  const std::string body = "('org.zarnet.kavrel.hello_SYN', ':1.77', '')";
  for (const Json& destination : {Json(), Json(OwnUniqueName())}) {
    Json forged = {{"do", "emit"},
                   {"path", "/org/freedesktop/DBus"},
                   {"interface", "org.freedesktop.DBus"},
                   {"member", "NameOwnerChanged"},
                   {"body", body}};
    if (!destination.is_null()) forged["destination"] = destination;
    stranger_->Do(forged, "emitted");
  }
  Say(*stranger_, "ACK");  // comes after them
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
  EXPECT_EQ(end.State(), 1);
  EXPECT_EQ(CountLines(":1.77"), 0U);
}

}  // namespace
}  // namespace kavrel_test
