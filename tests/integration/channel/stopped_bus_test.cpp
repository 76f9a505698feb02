// A bus that is stopped, and partners that wait for each other: the library's own limits, which
// take as long as they are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "channel_fixture.h"

namespace kavrel_test {
namespace {

using kavreldbus::CPluginDbus;
using testing::Contains;
using testing::HasSubstr;

// Two ends on a bus of their own, each waiting for the other's answer on its loop's thread.
struct Deadlock {
  PrivateBus bus;
  std::unique_ptr<BusPeer> host = MakeLibraryEnd();
  std::unique_ptr<BusPeer> plugin = MakeLibraryEnd();

  Deadlock() {
    host->Open("host", kHost, kPlugin);
    plugin->Open("plugin", kHost, kPlugin);
    host->Wait("connected");
    plugin->Wait("connected");
    plugin->Tell({{"do", "ask_back"}, {"value", true}});
    plugin->Do({{"do", "state"}}, "state");
    host->Tell({{"do", "send"}, {"wait", true}, {"pairs", Pairs{{"wait", "for me"}}}});
  }
};

// All that takes 25 seconds, side by side.
TEST(StoppedBus, HoldsNobodyForLongerThanOneTimeOut) {
  Deadlock deadlock;
  DlogCapture log;
  const PrivateBus bus;
  const CPluginDbus before(kHost, kPlugin);
  const auto first_end = MakeLibraryEnd();
  bus.Stop();
  first_end->Tell({{"do", "open"}, {"role", "host"}, {"host", kHost}, {"plugin", "first"}});
  const OpenPlugin late(kHost, "late");
  // 25 seconds, twice at most: the announcement is given up when the first call is not answered.
  std::vector<std::string> errors;
  for (const LogEntry& entry : log.entries()) {
    if (entry.priority == kLogError) errors.push_back(entry.text);
  }
  EXPECT_THAT(errors, testing::ElementsAre(HasSubstr("during request name call: "),
                                           "Cannot get response for name request\n"));
  EXPECT_EQ(late.State(), 1);
  // Logging in to the bus has a limit too: that end is dead, its process is not.
  first_end->Wait("opened");
  EXPECT_FALSE(first_end->IsReady());
  EXPECT_THAT(first_end->process().errors(),
              HasSubstr("Error while connecting to system bus [19]"));
  // Of the two that waited for each other the first gave up, and both go on.
  EXPECT_EQ(deadlock.host->Wait("sent").at("result"), false);
  EXPECT_THAT(deadlock.host->process().errors(), HasSubstr("Error while sending message [24]"));
  EXPECT_EQ(deadlock.plugin->Wait("asked_back").at("result"), true);
  deadlock.plugin->Tell({{"do", "ask_back"}, {"value", false}});
  EXPECT_TRUE(deadlock.plugin->IsReady());
  EXPECT_TRUE(deadlock.host->Send(true, {{"after", "all"}}));
  EXPECT_TRUE(deadlock.plugin->Send(true, {{"after", "all"}}));
  bus.Continue();
}

// More than fits into the socket: what is left after 5 seconds is given up, with a line.
TEST(StoppedBus, HoldsADestroyedEndForTheFlushLimit) {
  DlogCapture log;
  const PrivateBus bus;
  const auto peer = MakePythonPeer();
  auto end = std::make_unique<CPluginDbus>(kHost, kPlugin);
  peer->Open("host", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end->IsConnectionReady(); }));
  bus.Stop();
  CMessage message = MessageOf({{"large", std::string(std::size_t{1024} * 1024, 'x')}});
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(end->SendMessage(message, 1));
  end.reset();
  EXPECT_THAT(log.entries().back().text, HasSubstr("Error while flushing the connection: "));
  EXPECT_EQ(log.entries().back().priority, kLogError);
  bus.Continue();
}

}  // namespace
}  // namespace kavrel_test
