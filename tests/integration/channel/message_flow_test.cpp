// What arrives at the other end, and what comes back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "channel_fixture.h"

namespace kavrel_test {
namespace {

// An end of the library in this process and the second implementation as its partner.
class MessageFlowTest : public ChannelTest {
 protected:
  template <class End>
  void Connect(const End& end, const std::string& peer_role) {
    peer_->Open(peer_role, kHost, kPlugin);
    ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  }
  // Lets the peer send while this process's loop runs; returns the answer.
  bool SendFromPeer(const Pairs& pairs) {
    const std::size_t before = CountLines("m_MethodCallback");
    peer_->Tell({{"do", "send"}, {"wait", true}, {"pairs", pairs}});
    EXPECT_TRUE(IterateUntil([&] { return CountLines("m_MethodCallback") > before; }));
    return peer_->Wait("sent").at("result").get<bool>();
  }
  void NotifyFromPeer(const Pairs& pairs) {
    const std::size_t before = CountLines("m_SignalCallback");
    peer_->Tell({{"do", "notify"}, {"pairs", pairs}});
    EXPECT_TRUE(IterateUntil([&] { return CountLines("m_SignalCallback") > before; }));
  }

  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

struct Taken {
  std::vector<Pairs> messages;
  bool answer = true;

  static bool Take(CMessage& message, void* self) {
    auto& taken = *static_cast<Taken*>(self);
    taken.messages.push_back(PairsOf(message));
    return taken.answer;
  }
};

TEST_F(MessageFlowTest, HostWithoutACallbackAnswersFalse) {
  const kavreldbus::CHostDbus end(kHost, kPlugin);
  Connect(end, "plugin");
  EXPECT_FALSE(SendFromPeer({{"a", "1"}}));
  NotifyFromPeer({{"a", "1"}});
}

TEST_F(MessageFlowTest, HostLearnsWhoSentAMessage) {
  kavreldbus::CHostDbus end(kHost, kPlugin);
  Taken taken;
  end.SetHostDbusMsgCb(&Taken::Take, &taken);
  Connect(end, "plugin");
  EXPECT_TRUE(SendFromPeer({{"a", "1"}, {"b", "2"}}));
  EXPECT_TRUE(SendFromPeer({{"name", "somebody"}}));
  taken.answer = false;
  EXPECT_FALSE(SendFromPeer({}));
  EXPECT_THAT(taken.messages, testing::ElementsAre(Pairs{{"a", "1"}, {"b", "2"}, {"name", kPlugin}},
                                                   Pairs{{"name", "somebody"}, {"name", kPlugin}},
                                                   Pairs{{"name", kPlugin}}));
}

TEST_F(MessageFlowTest, HostGetsNotificationsAsTheyWereSent) {
  kavreldbus::CHostDbus end(kHost, kPlugin);
  Taken taken;
  end.SetHostDbusMsgCb(&Taken::Take, &taken);
  Connect(end, "plugin");
  NotifyFromPeer({{"a", "1"}});
  NotifyFromPeer({});
  EXPECT_THAT(taken.messages, testing::ElementsAre(Pairs{{"a", "1"}}, Pairs{}));
}

TEST_F(MessageFlowTest, HostCallbackCanBeReplacedAndTakenAway) {
  kavreldbus::CHostDbus end(kHost, kPlugin);
  Taken first;
  Taken second;
  end.SetHostDbusMsgCb(&Taken::Take, &first);
  Connect(end, "plugin");
  end.SetHostDbusMsgCb(&Taken::Take, &second);
  EXPECT_TRUE(SendFromPeer({{"a", "1"}}));
  end.SetHostDbusMsgCb(nullptr, nullptr);
  EXPECT_FALSE(SendFromPeer({{"a", "1"}}));
  EXPECT_EQ(first.messages.size(), 0U);
  EXPECT_EQ(second.messages.size(), 1U);
}

TEST_F(MessageFlowTest, PluginGetsMessagesAndNotificationsAlike) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end, "host");
  EXPECT_FALSE(SendFromPeer({{"a", "1"}}));  // nobody takes it
  std::vector<Pairs> taken;
  end.SetPluginDubsMsgCB([&](CMessage& message) {
    taken.push_back(PairsOf(message));
    return true;
  });
  EXPECT_TRUE(SendFromPeer({{"a", "1"}}));
  NotifyFromPeer({{"a", "1"}});
  EXPECT_THAT(taken, testing::ElementsAre(Pairs{{"a", "1"}}, Pairs{{"a", "1"}}));
}

TEST_F(MessageFlowTest, PluginCallableCanBeReplaced) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end, "host");
  const auto alive = std::make_shared<int>(0);
  end.SetPluginDubsMsgCB([alive](CMessage&) { return false; });
  EXPECT_FALSE(SendFromPeer({}));
  EXPECT_EQ(alive.use_count(), 2);
  end.SetPluginDubsMsgCB([](CMessage&) { return true; });
  EXPECT_EQ(alive.use_count(), 1);
  EXPECT_TRUE(SendFromPeer({}));
  end.SetPluginDubsMsgCB(nullptr);
  EXPECT_FALSE(SendFromPeer({}));
}

Pairs ManyPairs(int count) {
  Pairs pairs;
  for (int i = 0; i < count; ++i) pairs.emplace_back("k" + std::to_string(i % 100), "v");
  return pairs;
}

struct Content {
  const char* name;
  Pairs pairs;
};
void PrintTo(const Content& content, std::ostream* out) {
  *out << content.name;
}
std::string ContentName(const testing::TestParamInfo<Content>& info) {
  return info.param.name;
}

class Payload : public MessageFlowTest, public testing::WithParamInterface<Content> {};

TEST_P(Payload, ArrivesAsSentInBothDirections) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end, "host");
  CMessage message = MessageOf(GetParam().pairs);
  EXPECT_TRUE(end.SendMessage(message, 0));
  Json event = peer_->Wait("received");
  EXPECT_TRUE(event.at("pairs").get<Pairs>() == GetParam().pairs);
  EXPECT_EQ(event.at("member"), "Send");
  EXPECT_EQ(event.at("waits"), true);
  EXPECT_TRUE(end.SendMessage(message, 1));
  event = peer_->Wait("received");
  EXPECT_TRUE(event.at("pairs").get<Pairs>() == GetParam().pairs);
  EXPECT_EQ(event.at("waits"), false);
  EXPECT_TRUE(end.SendNotification(message));
  event = peer_->Wait("received");
  EXPECT_TRUE(event.at("pairs").get<Pairs>() == GetParam().pairs);
  EXPECT_EQ(event.at("member"), "SendSignal");

  Pairs taken;
  end.SetPluginDubsMsgCB([&](CMessage& arrived) {
    taken = PairsOf(arrived);
    return true;
  });
  EXPECT_TRUE(SendFromPeer(GetParam().pairs));
  EXPECT_TRUE(taken == GetParam().pairs);
}

INSTANTIATE_TEST_SUITE_P(
    Messages, Payload,
    testing::Values(Content{"empty", {}},
                    Content{"duplicates", {{"a", "1"}, {"b", "2"}, {"a", "3"}}},
                    Content{"empty_texts", {{"", ""}, {"", "x"}}},
                    Content{"not_ascii", {{"Ähre", "日本"}}},
                    Content{"ten_thousand_pairs", ManyPairs(10'000)},
                    Content{"one_mebibyte", {{"big", std::string(std::size_t{1024} * 1024, 'x')}}}),
    ContentName);

TEST_F(MessageFlowTest, SendingWithACallbackGetsTheAnswer) {
  OpenPlugin end(kHost, kPlugin);
  Connect(end, "host");
  CMessage message = MessageOf({{"a", "1"}});
  bool answered = false;
  EXPECT_TRUE(end.m_SendAsyncMessage(
      message,
      [](GObject* source, GAsyncResult* result, void* data) {
        const kavrel::glib::Variant reply(
            g_dbus_proxy_call_finish(G_DBUS_PROXY(source), result, nullptr));
        *static_cast<bool*>(data) = reply != nullptr;
      },
      &answered));
  EXPECT_TRUE(IterateUntil([&] { return answered; }));
}

TEST_F(MessageFlowTest, TextsThatAreNotUtf8StayHere) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end, "host");
  CMessage message = MessageOf({{"a", "\xff"}});
  EXPECT_FALSE(end.SendMessage(message, 0));
  EXPECT_FALSE(end.SendMessage(message, 1));
  EXPECT_FALSE(end.SendNotification(message));
  const std::string reason = "a text that is not UTF-8\n";
  EXPECT_THAT(Errors(), testing::ElementsAre(testing::HasSubstr(reason), testing::HasSubstr(reason),
                                             testing::HasSubstr(reason)));
  CMessage healthy = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end.SendMessage(healthy, 0));
}

// The bus would close the connection of whoever sends more than it takes.
TEST_F(MessageFlowTest, MessageThatTheBusWouldNotTakeStaysHere) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end, "host");
  CMessage large = MessageOf({{"a", std::string(std::size_t{32} * 1024 * 1024, 'x')}});
  EXPECT_FALSE(end.SendMessage(large, 0));
  EXPECT_FALSE(end.SendMessage(large, 1));
  EXPECT_TRUE(end.IsConnectionReady());
  CMessage healthy = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end.SendMessage(healthy, 0));
}

}  // namespace
}  // namespace kavrel_test
