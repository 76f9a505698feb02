// What the bus limits: match rules of a connection, calls that wait for an answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "channel_fixture.h"
#include "legacy/AuxDbusServer.h"

namespace kavrel_test {
namespace {

using kavreldbus::CHostDbus;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string MatchRules(int limit) {
  return "<limit name=\"max_match_rules_per_connection\">" + std::to_string(limit) + "</limit>\n";
}

class LimitsTest : public testing::Test {
 protected:
  std::vector<std::string> Refusals() const {
    std::vector<std::string> texts;
    for (const LogEntry& entry : log_.entries()) {
      if (entry.text.starts_with("The bus refused match rule")) texts.push_back(entry.text);
    }
    return texts;
  }

  DlogCapture log_;
};

TEST_F(LimitsTest, EndWithAPartnerTakesFiveMatchRules) {
  const PrivateBus bus({.configuration = MatchRules(5)});
  const CHostDbus end(kHost, kPlugin);
  const auto peer = MakePythonPeer();
  peer->Open("plugin", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  EXPECT_THAT(Refusals(), IsEmpty());
  const CHostDbus one_too_many(kHost, "second");
  EXPECT_THAT(Refusals(), SizeIs(3));
  EXPECT_THAT(Refusals(), Each(HasSubstr("org.zarnet.kavrel.second_")));
  EXPECT_THAT(Refusals(), Each(HasSubstr("LimitsExceeded")));
}

TEST_F(LimitsTest, RuleThatAPartnerCostsIsToldTooWhenItIsRefused) {
  const PrivateBus bus({.configuration = MatchRules(4)});
  const CHostDbus end(kHost, kPlugin);
  EXPECT_THAT(Refusals(), IsEmpty());
  const auto peer = MakePythonPeer();
  peer->Open("plugin", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return !Refusals().empty(); }));
  EXPECT_THAT(Refusals(), SizeIs(1));
}

// 512 rules are what a system bus takes. Without a partner an end costs three.
TEST_F(LimitsTest, UsualBusTakesTheDocumentedNumberOfEnds) {
  const PrivateBus bus;
  std::vector<std::unique_ptr<CHostDbus>> ends;
  ends.reserve(512 / 3);
  for (int i = 0; i < 512 / 3; ++i) {
    ends.push_back(std::make_unique<CHostDbus>(kHost, "p" + std::to_string(i)));
  }
  EXPECT_THAT(Refusals(), IsEmpty());
  ends.push_back(std::make_unique<CHostDbus>(kHost, "last"));
  EXPECT_THAT(Refusals(), SizeIs(1));
  ends.pop_back();
  ends.pop_back();
  ends.push_back(std::make_unique<CHostDbus>(kHost, "next"));
  EXPECT_THAT(Refusals(), SizeIs(1));  // rules given back serve the next end
}

// With its partners, and with the rule of its auxiliary channel.
TEST_F(LimitsTest, HostHoldsTheDocumentedNumberOfPartners) {
  constexpr int kDocumented = 102;
  const PrivateBus bus;
  const CAuxDbusServer server(kHost);
  ASSERT_TRUE(IterateUntil([&] {
    return std::ranges::any_of(log_.entries(), [](const LogEntry& entry) {
      return entry.text.starts_with("bus name acquired");
    });
  }));
  const auto partner = MakePythonPeer();
  std::vector<std::unique_ptr<OpenHost>> ends;
  for (int i = 0; i <= kDocumented; ++i) {
    EXPECT_THAT(Refusals(), IsEmpty()) << i;
    const std::string plugin = "p" + std::to_string(i);
    ends.push_back(std::make_unique<OpenHost>(kHost, plugin));
    const std::string name = "org.zarnet.kavrel." + plugin + "_SYN";
    partner->Do({{"do", "become_another"}}, "who");
    EXPECT_EQ(partner->Do({{"do", "say"}, {"name", name}}, "said").at("code"), 1);
    OpenHost& end = *ends.back();
    if (i == kDocumented) break;
    ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; })) << i;
  }
  EXPECT_THAT(Refusals(), testing::Not(IsEmpty()));
}

// A bus counts calls that wait for an answer, 128 a connection, and then refuses all further ones.
TEST_F(LimitsTest, StoppedPartnerDoesNotStopTheOthers) {
  const PrivateBus bus;
  CHostDbus to_stopped(kHost, "stopped");
  CHostDbus to_healthy(kHost, "healthy");
  const auto stopped = MakePythonPeer();
  const auto healthy = MakePythonPeer();
  stopped->Open("plugin", kHost, "stopped");
  healthy->Open("plugin", kHost, "healthy");
  ASSERT_TRUE(IterateUntil(
      [&] { return to_stopped.IsConnectionReady() && to_healthy.IsConnectionReady(); }));
  stopped->process().Signal(SIGSTOP);
  for (int i = 0; i < 1000; ++i) {
    CMessage key = MessageOf({{"key", std::to_string(i)}});
    ASSERT_TRUE(to_stopped.SendMessage(key, 1));
    ASSERT_TRUE(to_healthy.SendMessage(key, 1));
  }
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(healthy->Wait("received").at("pairs").get<Pairs>(),
              (Pairs{{"key", std::to_string(i)}}));
  }
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(to_healthy.SendMessage(message, 0));
  stopped->process().Signal(SIGCONT);
  for (int i = 0; i < 1000; ++i) stopped->Wait("received");
}

}  // namespace
}  // namespace kavrel_test
