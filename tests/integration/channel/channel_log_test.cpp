// Every line of the channel's main flows: priority, tag, file, function, text and order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "channel_fixture.h"

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::SizeIs;

LogEntry Info(const std::string& function, const std::string& text) {
  return {kLogInfo, "kavrel-api", "BaseDbus.cpp", function, text};
}

LogEntry Error(const std::string& function, const std::string& text) {
  return {kLogError, "kavrel-api", "BaseDbus.cpp", function, text};
}

using Lines = std::vector<LogEntry>;

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Lines BroadcastLines(const std::string& name) {
  return {Info("m_BroadcastName", "m_BroadcastName: " + name + "\n"),
          Info("m_BroadcastName", "Become primary owner for name. Releasing it.\n")};
}

Lines ConstructionLines(const std::string& host, const std::string& plugin, const std::string& self,
                        const std::string& dashless) {
  const std::string base = "org.zarnet." + dashless + "." + plugin;
  const std::string path = "/org/zarnet/" + dashless + "/CommunicationChannel/" + plugin;
  const std::string f = "CBaseDbus";
  return Lines{
             Info(f, "Constructor - host name: " + host + " , plugin name: " + plugin + " \n"),
             Info(f, "XML parsed\n"),
             Info(f, "Getting connection to DBUS\n"),
             Info(f, "Working with unique name " + self + "\n"),
             Info(f, "Registering Object and Interface on path " + path + "\n"),
             Info(f, "Monitoring name: [" + base + "] waiting for communication partner\n"),
             Info(f, "Notify others using name " + base + "\n"),
         } +
         BroadcastLines(base + "_SYN");
}

std::string Change(const std::string& name, const std::string& before, const std::string& after) {
  return "name:[" + name + "] with unique name changed from '" + before + "' => '" + after + "' \n";
}

// What an end logs when somebody owns and releases a SYN or SYN_ACK name and it takes nobody on.
Lines HeardLines(const std::string& step_function, const std::string& name,
                 const std::string& speaker) {
  const std::string filter = "m_NameOwnerChangedCallback";
  const std::string text = "m_NameOwnerChangedCallback:signal notification ";
  return {Info(step_function, step_function + "\n"), Info(filter, text + Change(name, "", speaker)),
          Info(step_function, step_function + "\n"),
          Info(filter, text + Change(name, speaker, ""))};
}

Lines HeardAckLines(const std::string& name, const std::string& speaker) {
  const std::string f = "m_AckNameOwnerChangedCallback";
  const std::string text = "m_ACKNameOwnerChangedCallback: signal notification ";
  return {Info(f, text + Change(name, "", speaker)), Info(f, text + Change(name, speaker, ""))};
}

Lines TakeOnLines(const std::string& partner) {
  const std::string f = "m_NameOwnerChangedCallback";
  return {Info(f, "Monitor unique name " + partner + "\n"),
          Info(f, "Partner is available and has unique name " + partner + "\n"),
          Info(f, "Create proxy for " + partner + " on obj " + kPath + "\n"),
          Info(f, "Subscribe for signals from " + partner + " on object " + kPath + ".\n")};
}

constexpr const char* kSynHeard = "m_SynNameOwnerChangedCallback";
constexpr const char* kSynAckHeard = "m_SynAckNameOwnerChangedCallback";

class ChannelLogTest : public ChannelTest {
 protected:
  std::string Name(const std::string& suffix) const { return kBaseName + suffix; }

  // An end in this process and a partner in another, ready, with nothing more on its way.
  void Connect(kavreldbus::CBaseDbus& end) {
    peer_->Open("host", kHost, kPlugin);
    ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
    ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
    IteratePending();
    log_.Take();
  }

  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

TEST_F(ChannelLogTest, ConstructionOfEachKindOfEnd) {
  {
    const kavreldbus::CHostDbus host("my-host", "p1");
    EXPECT_THAT(
        log_.Take(),
        ElementsAreArray(ConstructionLines("my-host", "p1", OwnUniqueName(), "myhost") +
                         Lines{{kLogInfo, "kavrel-api", "HostDbus.cpp", "CHostDbus", "\n"}}));
  }
  EXPECT_THAT(log_.Take(), ElementsAre(Info("~CBaseDbus", "\n")));
  {
    const kavreldbus::CPluginDbus plugin("my-host", "p1");
    EXPECT_THAT(log_.Take(),
                ElementsAreArray(ConstructionLines("my-host", "p1", OwnUniqueName(), "myhost")));
  }
  EXPECT_THAT(log_.Take(), ElementsAre(Info("~CBaseDbus", "\n")));
}

TEST_F(ChannelLogTest, SecondEndOfAHandshake) {
  const std::string partner = peer_->Open("host", kHost, kPlugin).at("who");
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Changes changes;
  changes.Follow(end);
  const std::string self = OwnUniqueName();
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
  EXPECT_EQ(changes.connected, 1);
  EXPECT_THAT(log_.Take(), ElementsAreArray(ConstructionLines(kHost, kPlugin, self, kHost) +
                                            HeardLines(kSynHeard, Name("_SYN"), self) +
                                            HeardLines(kSynAckHeard, Name("_SYN_ACK"), partner) +
                                            TakeOnLines(partner) + BroadcastLines(Name("_ACK")) +
                                            Lines{Info(kSynAckHeard, "connection established\n")} +
                                            HeardAckLines(Name("_ACK"), self)));
}

TEST_F(ChannelLogTest, FirstEndOfAHandshake) {
  kavreldbus::CHostDbus end(kHost, kPlugin);
  const std::string self = OwnUniqueName();
  ASSERT_TRUE(IterateUntil([&] { return CountLines("' => ''") == 1; }));  // its own SYN
  log_.Take();
  const std::string partner = peer_->Open("plugin", kHost, kPlugin).at("who");
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  EXPECT_THAT(
      log_.Take(),
      ElementsAreArray(HeardLines(kSynHeard, Name("_SYN"), partner) + TakeOnLines(partner) +
                       BroadcastLines(Name("_SYN_ACK")) +
                       HeardLines(kSynAckHeard, Name("_SYN_ACK"), self) +
                       HeardAckLines(Name("_ACK"), partner) +
                       // Told also without a connected callback; the other end tells only with one.
                       Lines{Info("m_AckNameOwnerChangedCallback", "connection established\n")}));
}

TEST_F(ChannelLogTest, SecondEndWithoutACallbackDoesNotTellOfTheConnection) {
  peer_->Open("host", kHost, kPlugin);
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
  EXPECT_TRUE(end.IsConnectionReady());
  EXPECT_EQ(CountLines("connection established"), 0U);
}

TEST_F(ChannelLogTest, PartnerLoss) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end);
  const std::string partner = peer_->Do({{"do", "who"}}, "who").at("who");
  peer_->process().Kill();
  ASSERT_TRUE(IterateUntil([&] { return !end.IsConnectionReady(); }));
  const std::string f = "m_PartnerNameVanishedCallback";
  EXPECT_THAT(log_.Take(), ElementsAre(Info(f, f + " dbus name:[" + partner + "]\n"),
                                       Info(f, "Connection lost with partner id=" + partner + "\n"),
                                       Info(f, "Stop watching old partner messages.\n")));
}

TEST_F(ChannelLogTest, SendingBeforeThereIsAPartner) {
  OpenPlugin end(kHost, kPlugin);
  log_.Take();
  CMessage message;
  EXPECT_FALSE(end.SendMessage(message, 0));
  EXPECT_FALSE(end.SendMessage(message, 1));
  EXPECT_FALSE(end.SendNotification(message));
  EXPECT_THAT(log_.Take(),
              ElementsAre(Error("m_SendSyncMessage", "Proxy not ready\n"),
                          Error("m_SendAsyncMessage", "Proxy not ready\n"),
                          Error("SendNotification", "SignalSubscription not ready\n")));
}

TEST_F(ChannelLogTest, Sending) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end);
  CMessage message = MessageOf({{"a", "1"}, {"b", "2"}});
  EXPECT_TRUE(end.SendMessage(message, 0));
  peer_->Tell({{"do", "answer"}, {"value", false}});
  peer_->Do({{"do", "state"}}, "state");
  EXPECT_FALSE(end.SendMessage(message, 0));
  EXPECT_TRUE(end.SendMessage(message, 1));
  EXPECT_TRUE(end.SendNotification(message));
  EXPECT_THAT(
      log_.Take(),
      ElementsAre(Info("m_SendSyncMessage", "Sending sync message with 2 key-value pairs\n"),
                  Info("m_SendSyncMessage", "Reply with 1\n"),
                  Info("m_SendSyncMessage", "Sending sync message with 2 key-value pairs\n"),
                  Info("m_SendSyncMessage", "Reply with 0\n"),
                  Info("m_SendAsyncMessage", "Sending async message with 2 key-value pairs\n"),
                  Info("SendNotification", "Sending signal with 2 key-value pairs\n")));
}

TEST_F(ChannelLogTest, SendingToAPartnerThatHasGone) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end);
  peer_->process().Kill();
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_FALSE(end.SendMessage(message, 0));  // before the loop has heard of it
  const auto lines = log_.Take();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], Info("m_SendSyncMessage", "Sending sync message with 1 key-value pairs\n"));
  EXPECT_EQ(lines[1].priority, kLogError);
  EXPECT_EQ(lines[1].function, "m_SendSyncMessage");
  EXPECT_THAT(lines[1].text,
              testing::MatchesRegex("Error while sending message \\[[0-9]+\\] .*\n"));
}

std::string Arrival(const std::string& function, const std::string& sender, const std::string& kind,
                    const std::string& member) {
  return function + " sender=" + sender + " obj_path=" + kPath + " iface_name=" + kInterface + " " +
         kind + "=" + member + "\n";
}

TEST_F(ChannelLogTest, ReceivingAtThePlugin) {
  kavreldbus::CPluginDbus end(kHost, kPlugin);
  Connect(end);
  const std::string partner = peer_->Do({{"do", "who"}}, "who").at("who");
  peer_->Tell({{"do", "send"}, {"wait", false}, {"pairs", Pairs{{"a", "1"}}}});
  peer_->Tell({{"do", "notify"}, {"pairs", Pairs{{"a", "1"}}}});
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_SignalCallback") == 1; }));
  EXPECT_THAT(
      log_.Take(),
      ElementsAre(
          Info("m_MethodCallback", Arrival("m_MethodCallback", partner, "method_name", "Send")),
          Info("m_MethodCallback", std::string("dbus object name: ") + kPath + "\n"),
          LogEntry{kLogInfo, "kavrel-api", "PluginDbus.cpp", "t_HandleMessage",
                   "message to plugin:hello\n"},
          Info("m_SignalCallback",
               Arrival("m_SignalCallback", partner, "signal_name", "SendSignal"))));
}

TEST_F(ChannelLogTest, ReceivingAtTheHost) {
  kavreldbus::CHostDbus end("my-host", kPlugin);
  peer_->Open("plugin", "my-host", kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  log_.Take();
  peer_->Tell({{"do", "send"}, {"wait", false}, {"pairs", Pairs{}}});
  peer_->Tell({{"do", "notify"}, {"pairs", Pairs{}}});
  ASSERT_TRUE(IterateUntil([&] { return CountLines("send notification to host") == 1; }));
  const auto lines = log_.Take();
  EXPECT_THAT(lines, SizeIs(5));
  EXPECT_EQ(lines.at(2), (LogEntry{kLogInfo, "kavrel-api", "HostDbus.cpp", "t_HandleMessage",
                                   "message to host:my-host\n"}));
  EXPECT_EQ(lines.at(4), (LogEntry{kLogInfo, "kavrel-api", "HostDbus.cpp", "t_HandleNotification",
                                   "send notification to host\n"}));
}

TEST_F(ChannelLogTest, BaseTakesMessagesAndRefusesNotifications) {
  OpenBase end(kHost, kPlugin);
  peer_->Open("host", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  log_.Take();
  peer_->Tell({{"do", "notify"}, {"pairs", Pairs{}}});
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Default handler") == 1; }));
  EXPECT_EQ(log_.Take().back(), Info("t_HandleNotification", "Default handler\n"));
}

TEST_F(ChannelLogTest, CallbacksWithoutUserDataOrConnection) {
  OpenBase end(kHost, kPlugin);
  log_.Take();
  const kavrel::glib::Variant release =
      kavrel::glib::Sink(g_variant_new("(sss)", "org.zarnet.x", ":1.99", ""));
  const std::string empty = "Empty user_data or connection not valid.\n";
  EXPECT_FALSE(OpenBase::m_NameOwnerChangedCallback(nullptr, release.get(), &end));
  OpenBase::m_SynNameOwnerChangedCallback(nullptr, "", "", "", "", release.get(), nullptr);
  OpenBase::m_SynAckNameOwnerChangedCallback(nullptr, "", "", "", "", release.get(), &end);
  OpenBase::m_AckNameOwnerChangedCallback(nullptr, "", "", "", "", release.get(), &end);
  OpenBase::m_PartnerNameVanishedCallback(nullptr, ":1.99", &end);
  OpenBase::m_SignalCallback(nullptr, "s", "p", "i", "m", nullptr, &end);
  OpenBase::m_MethodCallback(nullptr, "s", "p", "i", "m", nullptr, nullptr, nullptr);
  const std::string filter = "m_NameOwnerChangedCallback";
  const std::string change = Change("org.zarnet.x", ":1.99", "");
  const Lines filtered = {Info(filter, filter + ":signal notification " + change),
                          Error(filter, empty)};
  EXPECT_THAT(log_.Take(),
              ElementsAreArray(
                  filtered + Lines{Info(kSynHeard, std::string(kSynHeard) + "\n")} + filtered +
                  Lines{Info(kSynAckHeard, std::string(kSynAckHeard) + "\n")} + filtered +
                  Lines{Info("m_AckNameOwnerChangedCallback",
                             "m_ACKNameOwnerChangedCallback: signal notification " + change),
                        Error("m_AckNameOwnerChangedCallback", empty),
                        Info("m_PartnerNameVanishedCallback",
                             "m_PartnerNameVanishedCallback dbus name:[:1.99]\n"),
                        Error("m_PartnerNameVanishedCallback", empty),
                        Info("m_SignalCallback",
                             "m_SignalCallback sender=s obj_path=p iface_name=i signal_name=m\n"),
                        Error("m_SignalCallback", empty),
                        Info("m_MethodCallback",
                             "m_MethodCallback sender=s obj_path=p iface_name=i method_name=m\n"),
                        Error("m_MethodCallback", empty)}));
}

TEST_F(ChannelLogTest, HandshakeNameThatSomebodyElseHolds) {
  ASSERT_EQ(peer_->Do({{"do", "own"}, {"name", Name("_SYN")}}, "owned").at("code"), 1);
  const kavreldbus::CPluginDbus end(kHost, kPlugin);
  const auto lines = log_.Take();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2],
            Info("m_BroadcastName", "m_BroadcastName: " + Name("_SYN") + "\n"));
  EXPECT_EQ(lines.back(), Error("m_BroadcastName", "Cannot own name due to return code = 3\n"));
}

// Registrations of the process are numbered: somebody else can take them away.
TEST_F(ChannelLogTest, ObjectThatIsNoLongerRegistered) {
  {
    const kavreldbus::CPluginDbus end(kHost, kPlugin);
    const kavrel::glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    for (guint id = 1; id < 1000; ++id) {
      g_dbus_connection_unregister_object(connection.get(), id);
    }
    log_.Take();
  }
  EXPECT_THAT(log_.Take(),
              ElementsAre(Info("~CBaseDbus", "\n"), Error("~CBaseDbus", "Assertion failed\n")));
}

// What a bus's policy can refuse an end; the bus and the end go on.
std::vector<LogEntry> LinesOfAnEndRefused(const std::string& rule) {
  const PrivateBus bus({.configuration = "<policy context=\"mandatory\">" + rule + "</policy>\n"});
  DlogCapture log;
  const kavreldbus::CPluginDbus end(kHost, kPlugin);
  auto lines = log.Take();
  lines.erase(lines.begin(), lines.begin() + 8);  // up to and with the broadcast's own line
  return lines;
}

TEST(ChannelLog, NameThatThePolicyRefuses) {
  const auto lines = LinesOfAnEndRefused("<deny own_prefix=\"org.zarnet\"/>");
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0].priority, kLogError);
  EXPECT_EQ(lines[0].function, "m_BroadcastName");
  EXPECT_THAT(lines[0].text,
              testing::MatchesRegex("Error:\\[9\\] during request name call: .*AccessDenied.*\n"));
  EXPECT_EQ(lines[1], Error("m_BroadcastName", "Cannot get response for name request\n"));
}

TEST(ChannelLog, ReleaseThatThePolicyRefuses) {
  EXPECT_THAT(LinesOfAnEndRefused("<deny send_interface=\"org.freedesktop.DBus\" "
                                  "send_member=\"ReleaseName\"/>"),
              ElementsAre(Info("m_BroadcastName", "Become primary owner for name. Releasing it.\n"),
                          Error("m_BroadcastName", "Release failed due to empty response.\n")));
}

TEST(ChannelLog, ConstructionWithoutABus) {
  const ScopedEnvironment nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
  DlogCapture log;
  OpenPlugin end(kHost, kPlugin);
  auto lines = log.Take();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ(lines[2], Info("CBaseDbus", "Getting connection to DBUS\n"));
  EXPECT_EQ(lines[3].priority, kLogError);
  EXPECT_THAT(lines[3].text,
              testing::MatchesRegex("Error while connecting to system bus \\[[0-9]+\\] .*\n\n"));
  EXPECT_EQ(end.State(), 0);
  CMessage message;
  EXPECT_FALSE(end.SendMessage(message, 0));
  EXPECT_FALSE(end.SendMessage(message, 1));
  EXPECT_FALSE(end.SendNotification(message));
  EXPECT_THAT(log.Take(), ElementsAre(Error("m_SendSyncMessage", "Connection not set.\n"),
                                      Error("m_SendAsyncMessage", "Connection not set.\n"),
                                      Error("SendNotification", "Connection not set.\n")));
}

}  // namespace
}  // namespace kavrel_test
