// How two ends find each other, lose each other and find each other again; and what others on the
// bus can make of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "channel_fixture.h"

namespace kavrel_test {
namespace {

using kavreldbus::CHostDbus;
using kavreldbus::CPluginDbus;

// Rounds of what may depend on timing: many when somebody wants to know for certain.
int Rounds(int usual) {
  return std::getenv("KAVREL_TEST_LONG") != nullptr ? 1000 : usual;
}

using MakePeer = std::unique_ptr<BusPeer> (*)();
struct Partners {
  const char* name;
  MakePeer host;
  MakePeer plugin;
};
void PrintTo(const Partners& partners, std::ostream* out) {
  *out << partners.name;
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

TEST_P(Pair, FindsEachOtherHostFirst) {
  for (int round = 1; round <= Rounds(5); ++round) {
    OpenHost();
    OpenPlugin();
    ExpectReady();
    EXPECT_EQ(host_->Count("connected"), round);
    EXPECT_EQ(plugin_->Count("connected"), round);
    Close();
  }
}

TEST_P(Pair, FindsEachOtherPluginFirst) {
  for (int round = 1; round <= Rounds(5); ++round) {
    OpenPlugin();
    OpenHost();
    ExpectReady();
    EXPECT_EQ(host_->Count("connected"), round);
    EXPECT_EQ(plugin_->Count("connected"), round);
    Close();
  }
}

// Both ready, or both taken on and neither ready when their SYNs crossed. Messages flow either way.
TEST_P(Pair, FindsEachOtherAtOnce) {
  int crossed = 0;
  for (int round = 0; round < Rounds(10); ++round) {
    const auto open = [](const char* role) {
      return Json{{"do", "open"}, {"role", role}, {"host", kHost}, {"plugin", kPlugin}};
    };
    host_->Tell(open("host"));
    plugin_->Tell(open("plugin"));
    host_->Wait("opened");
    plugin_->Wait("opened");
    // An end takes nobody on before its loop runs; it does when it tells of a message.
    while (!plugin_->IsReady() && !plugin_->Notify({{"knock", ""}})) {
    }
    while (!host_->IsReady() && !host_->Notify({{"knock", ""}})) {
    }
    EXPECT_TRUE(host_->Send(true, {{"to", "plugin"}}));
    EXPECT_TRUE(plugin_->Send(true, {{"to", "host"}}));
    const bool ready = host_->IsReady();
    EXPECT_EQ(ready, plugin_->IsReady());
    if (!ready) ++crossed;
    Close();
  }
  RecordProperty("crossed", crossed);
}

constexpr Partners kLibraryOnly = {"library_and_library", MakeLibraryEnd, MakeLibraryEnd};
constexpr Partners kLibraryHost = {"library_host", MakeLibraryEnd, MakePythonPeer};
constexpr Partners kLibraryPlugin = {"library_plugin", MakePythonPeer, MakeLibraryEnd};
std::string PartnersName(const testing::TestParamInfo<Partners>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Implementations, Pair,
                         testing::Values(kLibraryOnly, kLibraryHost, kLibraryPlugin), PartnersName);

// The ends of one library cannot cross at will: the second implementation speaks by hand.
class HandshakeTest : public ChannelTest {
 protected:
  // Listens and takes on, but says nothing of the handshake by itself.
  void OpenSilently() {
    peer_->Do({{"do", "open"}, {"host", kHost}, {"plugin", kPlugin}, {"steps", Json::array()}},
              "opened");
  }
  void Say(BusPeer& who, const std::string& step) {
    EXPECT_EQ(who.Do({{"do", "say"}, {"name", kBaseName + ("_" + step)}}, "said").at("code"), 1);
  }
  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

TEST_F(HandshakeTest, CrossedSynsLeaveBothUnreadyAndTalking) {
  OpenSilently();
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
  OpenSilently();
  Say(*peer_, "SYN");
  Say(*peer_, "SYN");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Already monitored") == 1; }));
  EXPECT_EQ(CountLines("m_BroadcastName: org.zarnet.kavrel.hello_SYN_ACK"), 1U);
  EXPECT_EQ(end.State(), 2);
}

TEST_F(HandshakeTest, AckWithoutAPartnerChangesNothing) {
  const OpenPlugin end(kHost, kPlugin);
  Say(*peer_, "ACK");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
  EXPECT_EQ(end.State(), 1);
  EXPECT_EQ(CountLines("Monitor unique name"), 0U);
}

// Whoever may own the names decides who the partner is: that is why the bus's policy must say who.
TEST_F(HandshakeTest, StrangerThatSaysSynAckIsTakenForThePartner) {
  OpenPlugin end(kHost, kPlugin);
  Say(*peer_, "SYN_ACK");
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  auto real = MakePythonPeer();
  real->Open("host", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return CountLines("Already monitored") == 1; }));
  EXPECT_FALSE(real->IsReady());
  peer_->process().Kill();
  ASSERT_TRUE(IterateUntil([&] { return !end.IsConnectionReady(); }));
  real->Do({{"do", "close"}}, "closed");
  real->Open("host", kHost, kPlugin);
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  real->Wait("connected");
}

TEST_F(HandshakeTest, AckOfAStrangerMakesAnEndReady) {
  const OpenPlugin end(kHost, kPlugin);
  OpenSilently();
  Say(*peer_, "SYN");
  ASSERT_TRUE(IterateUntil([&] { return end.State() == 2; }));
  const auto stranger = MakePythonPeer();
  Say(*stranger, "ACK");
  EXPECT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
}

// The broadcast is lost; when the holder lets go, its own release is what the other end takes.
TEST_F(HandshakeTest, HeldSynNameLosesTheAnnouncement) {
  const std::string syn = std::string(kBaseName) + "_SYN";
  const auto squatter = MakePythonPeer();
  peer_->Open("host", kHost, kPlugin);
  ASSERT_EQ(squatter->Do({{"do", "own"}, {"name", syn}}, "owned").at("code"), 1);
  const OpenPlugin end(kHost, kPlugin);
  EXPECT_THAT(Errors(), testing::ElementsAre("Cannot own name due to return code = 3\n"));
  EXPECT_EQ(end.State(), 1);
  const std::string who = squatter->Do({{"do", "who"}}, "who").at("who");
  squatter->Do({{"do", "release"}, {"name", syn}}, "released");
  EXPECT_EQ(peer_->Wait("heard").at("who"), who);
}

TEST_F(HandshakeTest, ForgedOwnerChangeIsIgnored) {
  const OpenPlugin end(kHost, kPlugin);
  const std::string body = "('org.zarnet.kavrel.hello_SYN', ':1.77', '')";
  for (const Json& destination : {Json(), Json(OwnUniqueName())}) {
    Json forged = {{"do", "emit"},
                   {"path", "/org/freedesktop/DBus"},
                   {"interface", "org.freedesktop.DBus"},
                   {"member", "NameOwnerChanged"},
                   {"body", body}};
    if (!destination.is_null()) forged["destination"] = destination;
    peer_->Do(forged, "emitted");
  }
  Say(*peer_, "ACK");  // comes after them
  ASSERT_TRUE(IterateUntil([&] { return CountLines("m_ACKNameOwnerChanged") == 2; }));
  EXPECT_EQ(end.State(), 1);
  EXPECT_EQ(CountLines(":1.77"), 0U);
}

// ---- One side goes, in each state of the other.

struct Departure {
  const char* name;
  std::vector<std::string> steps;  // that the partner takes before it goes
  int state;                       // in which the survivor is then
};
void PrintTo(const Departure& departure, std::ostream* out) {
  *out << departure.name;
}

class Survivor : public ChannelTest, public testing::WithParamInterface<Departure> {};

TEST_P(Survivor, FindsTheNextPartner) {
  OpenHost end(kHost, kPlugin);
  Changes changes;
  changes.Follow(end);
  const Departure& departure = GetParam();
  for (int round = 1; round <= 3; ++round) {
    const auto partner = MakePythonPeer();
    partner->Do({{"do", "open"}, {"host", kHost}, {"plugin", kPlugin}, {"steps", departure.steps}},
                "opened");
    if (departure.state > 1) {
      ASSERT_TRUE(IterateUntil([&] { return end.State() == departure.state; }));
    }
    partner->process().Kill();
    if (departure.state > 1) {
      ASSERT_TRUE(IterateUntil([&] { return end.State() == 0; }));
      EXPECT_EQ(changes.disconnected, round);
    }
  }
  const auto next = MakeLibraryEnd();
  next->Tell({{"do", "open"}, {"role", "plugin"}, {"host", kHost}, {"plugin", kPlugin}});
  ASSERT_TRUE(IterateUntil([&] { return end.IsConnectionReady(); }));
  next->Wait("connected");
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end.SendMessage(message, 0));
}

std::string DepartureName(const testing::TestParamInfo<Departure>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(States, Survivor,
                         testing::Values(Departure{"silent", {}, 1}, Departure{"syn", {"SYN"}, 2},
                                         Departure{"ready", {"SYN", "SYN_ACK", "ACK"}, 3}),
                         DepartureName);

// Processes that are killed and come back, at any moment of the handshake.
class Restart : public testing::TestWithParam<bool> {};

TEST_P(Restart, SideThatComesBackIsFound) {
  const PrivateBus bus;
  const bool host_restarts = GetParam();
  const auto stays = MakeLibraryEnd();
  stays->Open(host_restarts ? "plugin" : "host", kHost, kPlugin);
  const int rounds = Rounds(10);
  for (int round = 1; round <= rounds; ++round) {
    const auto goes = MakeLibraryEnd();
    const Json open = {{"do", "open"},
                       {"role", host_restarts ? "host" : "plugin"},
                       {"host", kHost},
                       {"plugin", kPlugin}};
    goes->Tell(open);
    if (round % 2 == 0) continue;  // killed wherever it is
    goes->Wait("connected");
    while (!stays->IsReady()) {
    }
    EXPECT_TRUE(goes->Send(true, {{"round", std::to_string(round)}}));
  }
  const auto last = MakeLibraryEnd();
  last->Open(host_restarts ? "host" : "plugin", kHost, kPlugin);
  last->Wait("connected");
  EXPECT_TRUE(last->Send(true, {}));
}

std::string SideName(const testing::TestParamInfo<bool>& info) {
  return info.param ? "host" : "plugin";
}
INSTANTIATE_TEST_SUITE_P(Sides, Restart, testing::Bool(), SideName);

}  // namespace
}  // namespace kavrel_test
