// Names that a program, or another process by announcing them, can give an end although no bus
// takes them. They must cost no more than a line: GIO's own criticals end the process in these
// tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "channel_fixture.h"
#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusServer.h"
#include "repetitions.h"

namespace kavrel_test {
namespace {

using kavreldbus::CHostDbus;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class NamesOnBusTest : public ChannelTest {
 protected:
  NamesOnBusTest()
      : before_(g_log_set_always_fatal(static_cast<GLogLevelFlags>(
            G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING))) {}
  ~NamesOnBusTest() override { g_log_set_always_fatal(before_); }

 private:
  GLogLevelFlags before_;
};

TEST_F(NamesOnBusTest, DashInAPluginName) {
  OpenHost end(kHost, "my-plugin");
  EXPECT_THAT(Errors(),
              ElementsAre(AllOf(StartsWith("Error:["), HasSubstr("] while registering object: "),
                                HasSubstr("CommunicationChannel/my-plugin"))));
  log_.Take();
  // A partner can still say the names; nothing can be sent to it.
  const auto peer = MakePythonPeer();
  EXPECT_EQ(
      peer->Do({{"do", "say"}, {"name", "org.zarnet.kavrel.my-plugin_SYN"}}, "said").at("code"), 1);
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; }));
  EXPECT_THAT(Errors(), ElementsAre(StartsWith("Error while registering proxy  \"/org/zarnet")));
  log_.Take();
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_FALSE(end.SendMessage(message, 0));
  EXPECT_FALSE(end.SendMessage(message, 1));
  EXPECT_FALSE(end.SendNotification(message));
  EXPECT_THAT(Errors(), ElementsAre("Proxy not ready\n", "Proxy not ready\n",
                                    "SignalSubscription not ready\n"));
}

TEST_F(NamesOnBusTest, DigitAtTheStartOfAPluginName) {
  const OpenHost end(kHost, "7up");
  EXPECT_THAT(Errors(),
              ElementsAre(AllOf(StartsWith("Error:["), HasSubstr("] during request name call: "),
                                HasSubstr("org.zarnet.kavrel.7up_SYN")),
                          "Cannot get response for name request\n"));
}

TEST_F(NamesOnBusTest, DigitAtTheStartOfAHostName) {
  const OpenHost end("7up", kPlugin);
  EXPECT_THAT(Errors(), Contains(HasSubstr("org.zarnet.7up.DbusCommunication")));
  log_.Take();
  const CAuxDbusServer server("7up");
  EXPECT_THAT(Errors(), ElementsAre("\"org.zarnet.7up.auxiliary\" is not a name of a bus\n"));
  log_.Take();
  CAuxDbusClient client("7up");
  client.RegisterDbusNameHandler(nullptr, nullptr, nullptr);
  client.SendNotification("text", 1, true);
  EXPECT_THAT(Errors(),
              ElementsAre("\"org.zarnet.7up.auxiliary\" is not a name of a bus\n",
                          AllOf(StartsWith("Error while sending signal ["), HasSubstr("7up"))));
}

class StrangeName : public NamesOnBusTest, public testing::WithParamInterface<std::string> {};

TEST_P(StrangeName, CostsLinesOnly) {
  CMessage message = MessageOf({{"a", "1"}});
  {
    CHostDbus end(kHost, GetParam());
    EXPECT_FALSE(end.SendMessage(message, 1));
  }
  {
    CHostDbus end(GetParam(), kPlugin);
    EXPECT_FALSE(end.SendMessage(message, 1));
  }
  {
    const CAuxDbusServer server(GetParam());
    CAuxDbusClient client(GetParam());
    client.SendNotification(GetParam().c_str(), 1, true);
    IteratePending();
  }
  CHostDbus healthy(kHost, kPlugin);
  const auto peer = MakeLibraryEnd();
  peer->Open("plugin", kHost, kPlugin);
  EXPECT_TRUE(IterateUntil([&] { return healthy.IsConnectionReady(); }));
}

INSTANTIATE_TEST_SUITE_P(Names, StrangeName,
                         testing::Values("", "-", "--", ".", "..", "a.b", "a/b", "/", "a b", "_",
                                         "ä", "\xff\xfe", "'/><node/><x y='", "a'b", "a\"b", "<",
                                         "&amp;", "%s%n", "\n", ":1.1", std::string(300, 'x'),
                                         std::string(70000, 'y')),
                         Numbered<std::string>);

// Every name of one byte, some or all of two, and some of any bytes. Where it can be neither path
// nor name, lines.
TEST_F(NamesOnBusTest, NamesOfAnyBytesCostLinesOnly) {
  std::mt19937 random(37);
  std::vector<std::string> names;
  for (int byte = 1; byte < 256; ++byte) names.emplace_back(1, static_cast<char>(byte));
  const int of_two = Repetitions(50, 255 * 255);
  for (int i = 0; i < of_two; ++i) {
    const unsigned number = of_two < 255 * 255 ? static_cast<unsigned>(random() % (255 * 255))
                                               : static_cast<unsigned>(i);
    names.push_back({static_cast<char>(1 + number / 255), static_cast<char>(1 + number % 255)});
  }
  const int others = Repetitions(200, 10000);
  for (int i = 0; i < others; ++i) {
    std::string name(1 + random() % 40, 'x');
    for (char& byte : name) byte = static_cast<char>(1 + random() % (i % 2 == 0 ? 255 : 127));
    names.push_back(name);
  }
  CMessage message = MessageOf({{"a", "1"}});
  for (const std::string& name : names) {
    CHostDbus by_plugin(kHost, name);
    CHostDbus by_host(name, kPlugin);
    EXPECT_FALSE(by_plugin.SendMessage(message, 1));
    EXPECT_FALSE(by_host.SendNotification(message));
    IteratePending();
  }
  const CHostDbus healthy(kHost, kPlugin);
  const auto peer = MakeLibraryEnd();
  peer->Open("plugin", kHost, kPlugin);
  EXPECT_TRUE(IterateUntil([&] { return healthy.IsConnectionReady(); }));
}

}  // namespace
}  // namespace kavrel_test
