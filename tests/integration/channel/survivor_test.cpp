// One side goes, in each state of both, and the other finds the next one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "handshake_fixture.h"

namespace kavrel_test {
namespace {

struct Departure {
  const char* name;
  bool partner_first;              // whether the partner is there before the survivor starts
  std::vector<std::string> steps;  // of the handshake that the partner says
  int state;                       // in which the survivor is then
  const char* held;                // the step that the partner is about to say when it is killed
  int connected;                   // how often the survivor was ready in the end
};
void PrintTo(const Departure& departure, std::ostream* out) {
  *out << departure.name;
}

// An end of either class, with its state in reach.
struct Survivor {
  template <class End>
  static Survivor Make() {
    auto end = std::make_unique<End>(kHost, kPlugin);
    End& known = *end;
    return {std::move(end), [&known] { return known.State(); }};
  }
  std::unique_ptr<kavreldbus::CBaseDbus> end;
  std::function<int()> state;
};

class Departures : public ChannelTest,
                   public testing::WithParamInterface<std::tuple<Departure, bool>> {
 protected:
  static bool IsHost() { return std::get<1>(GetParam()); }
  static Survivor MakeSurvivor() {
    return IsHost() ? Survivor::Make<OpenHost>() : Survivor::Make<OpenPlugin>();
  }
};

TEST_P(Departures, LeaveTheSurvivorToTheNextPartner) {
  const Departure& departure = std::get<0>(GetParam());
  const auto partner = MakePythonPeer();
  if (departure.partner_first) OpenWithSteps(*partner, departure.steps);
  const Survivor survivor = MakeSurvivor();
  Changes changes;
  changes.Follow(*survivor.end);
  if (!departure.partner_first) OpenWithSteps(*partner, departure.steps);
  ASSERT_TRUE(IterateUntil([&] { return survivor.state() == departure.state; }));
  if (departure.held != nullptr) Hold(*partner, departure.held);
  partner->process().Kill();
  const bool was_taken_on = departure.state > 1 || departure.held != nullptr;
  if (was_taken_on) {
    ASSERT_TRUE(IterateUntil([&] { return CountLines("Connection lost with partner") == 1; }));
    EXPECT_EQ(survivor.state(), 0);
  }
  EXPECT_EQ(changes.connected, departure.connected);
  EXPECT_EQ(changes.disconnected, was_taken_on ? 1 : 0);
  for (int round = 1; round <= 2; ++round) {
    const auto next = MakeLibraryEnd();
    next->Tell({{"do", "open"},
                {"role", IsHost() ? "plugin" : "host"},
                {"host", kHost},
                {"plugin", kPlugin}});
    ASSERT_TRUE(IterateUntil([&] { return survivor.end->IsConnectionReady(); }));
    next->Wait("connected");
    CMessage message = MessageOf({{"a", "1"}});
    EXPECT_TRUE(survivor.end->SendMessage(message, 0));
    next->process().Kill();
    ASSERT_TRUE(IterateUntil([&] { return survivor.state() == 0; }));
  }
  EXPECT_EQ(changes.connected, departure.connected + 2);
}

const std::vector<std::string> kAll = {"SYN", "SYN_ACK", "ACK"};

INSTANTIATE_TEST_SUITE_P(
    States, Departures,
    testing::Combine(testing::Values(Departure{"silent", false, {}, 1, nullptr, 0},
                                     Departure{"saying_syn", false, {}, 1, "SYN", 0},
                                     Departure{"said_syn", false, {"SYN"}, 2, nullptr, 0},
                                     Departure{"saying_ack", false, {"SYN"}, 2, "ACK", 1},
                                     Departure{"ready_as_second", false, kAll, 3, nullptr, 1},
                                     Departure{"silent_as_first", true, {}, 1, nullptr, 0},
                                     Departure{"saying_syn_ack", true, {}, 1, "SYN_ACK", 1},
                                     Departure{"ready_as_first", true, kAll, 3, nullptr, 1}),
                     testing::Bool()),
    [](const auto& instance) {
      return std::string(std::get<0>(instance.param).name) +
             (std::get<1>(instance.param) ? "_to_host" : "_to_plugin");
    });

// Processes that are killed and come back, at any moment of the handshake.
class Restart : public testing::TestWithParam<bool> {
 protected:
  Restart() {
    stays_->Do(OpenRole(!GetParam()), "opened");
    who_stays_ = WhoIs(*stays_);
  }
  static Json OpenRole(bool host) {
    return {
        {"do", "open"}, {"role", host ? "host" : "plugin"}, {"host", kHost}, {"plugin", kPlugin}};
  }
  // The bus has forgotten whoever was killed, and so has the end that stays: a SYN that comes
  // before that is not answered.
  void WaitUntilAlone() {
    const std::string bus = "org.freedesktop.DBus";
    std::string names;
    do {
      names = Call(bus, "/org/freedesktop/DBus", bus, "ListNames", "()");
    } while (std::count(names.begin(), names.end(), ':') > 2);
    // What the bus told of it before has been heard when this is answered.
    Call(who_stays_, kPath, kInterface, "Send", "(@a(ss) [],)");
    while (stays_->Notify({})) {
    }
  }
  std::string Call(const std::string& destination, const std::string& path,
                   const std::string& interface, const std::string& member,
                   const std::string& body) {
    return onlooker_
        ->Do({{"do", "call"},
              {"destination", destination},
              {"path", path},
              {"interface", interface},
              {"member", member},
              {"body", body}},
             "called")
        .at("code");
  }

  PrivateBus bus_;
  std::unique_ptr<BusPeer> onlooker_ = MakePythonPeer();
  std::unique_ptr<BusPeer> stays_ = MakeLibraryEnd();
  std::string who_stays_;
};

TEST_P(Restart, SideThatComesBackIsFound) {
  constexpr int kRounds = 20;
  for (int round = 1; round <= kRounds; ++round) {
    const auto killed = MakeLibraryEnd();
    killed->Tell(OpenRole(GetParam()));
    // Sooner or later, but never where the next one would be: that is what is waited for below.
    for (int i = 0; i < round / 2; ++i) stays_->IsReady();
    killed->process().Kill();
    WaitUntilAlone();
    const auto comes_back = MakeLibraryEnd();
    comes_back->Tell(OpenRole(GetParam()));
    comes_back->Wait("connected");
    while (!stays_->IsReady()) {
    }
    EXPECT_TRUE(comes_back->Send(true, {{"round", std::to_string(round)}}));
    comes_back->process().Kill();
    WaitUntilAlone();
  }
}

INSTANTIATE_TEST_SUITE_P(Sides, Restart, testing::Bool(), [](const auto& instance) {
  return std::string(instance.param ? "host" : "plugin");
});

}  // namespace
}  // namespace kavrel_test
