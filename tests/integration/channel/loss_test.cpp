// The bus itself dies, or stops.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "channel_fixture.h"
#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusServer.h"
#include "shared_connection.h"

namespace kavrel_test {
namespace {

using kavreldbus::CHostDbus;
using kavreldbus::CPluginDbus;
using testing::Contains;
using testing::HasSubstr;

class LossTest : public ChannelTest {
 protected:
  void Connect(const kavreldbus::CBaseDbus& end) {
    peer_->Open("host", kHost, kPlugin);
    ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  }

  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

TEST_F(LossTest, BusThatDiesIsToldOnceAndTheProcessLives) {
  OpenPlugin end(kHost, kPlugin);
  const OpenPlugin other(kHost, "other");
  Changes changes;
  changes.Follow(end);
  Connect(end);
  bus_.Kill();
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 0 && other.State() == 0; }));
  IteratePending();
  EXPECT_EQ(changes.disconnected, 1);
  EXPECT_EQ(CountLines("Connection to the system bus lost (closed by the bus)"), 1U);
  EXPECT_EQ(CountLines("Connection lost with partner id=:"), 1U);
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_FALSE(end.SendMessage(message, 0));
  EXPECT_FALSE(end.SendMessage(message, 1));
  EXPECT_FALSE(end.SendNotification(message));
}

// Before the loop has run the end still counts on its partner.
TEST_F(LossTest, SendingOnALostConnectionFailsWithALineEach) {
  CPluginDbus end(kHost, kPlugin);
  Connect(end);
  bus_.Kill();
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_FALSE(end.SendMessage(message, 0));  // returns when the connection has been lost
  EXPECT_FALSE(end.SendNotification(message));
  EXPECT_THAT(Errors(), Contains(HasSubstr("Error while sending message [")));
  EXPECT_THAT(Errors(), Contains(HasSubstr("Error while sending signal [")));
}

TEST_F(LossTest, ConnectionThatIsStillHeldIsNotUsedAgain) {
  const CPluginDbus first(kHost, kPlugin);
  bus_.Kill();
  ASSERT_TRUE(IterateUntil([&] { return CountLines("system bus lost") == 1; }));
  bus_.Start();
  OpenPlugin second(kHost, "second");
  EXPECT_THAT(Errors(), Contains(HasSubstr("Error while connecting to system bus [18] ")));
  EXPECT_EQ(second.State(), 0);
  CAuxDbusClient client(kHost);
  EXPECT_THAT(Errors(), Contains(HasSubstr("occurs while connecting to system bus\n\n")));
}

// What users do when the bus died: destroy everything that was made on it, and make it again.
TEST_F(LossTest, EndsMadeAgainOnTheNextBusFindEachOther) {
  {
    const CPluginDbus first(kHost, kPlugin);
    Connect(first);
    CAuxDbusClient client(kHost);
    const CAuxDbusServer server(kHost);
    ASSERT_TRUE(IterateUntil([&] { return CountLines("bus name acquired") == 1; }));
    bus_.Kill();
    ASSERT_TRUE(IterateUntil([&] { return CountLines("system bus lost") == 1; }));
  }
  bus_.Start();
  ForgetSystemBus();
  peer_ = MakePythonPeer();
  CPluginDbus again(kHost, kPlugin);
  Connect(again);
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(again.SendMessage(message, 0));
}

TEST_F(LossTest, StoppedBusDoesNotHoldSendersThatDoNotWait) {
  CPluginDbus end(kHost, kPlugin);
  Connect(end);
  bus_.Stop();
  CMessage message = MessageOf({{"a", "1"}});
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(end.SendMessage(message, 1));
  bus_.Continue();
  for (int i = 0; i < 100; ++i) peer_->Wait("received");
}

}  // namespace
}  // namespace kavrel_test
