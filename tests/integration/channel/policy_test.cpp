// The policy file for the system bus in a real bus daemon, tried by three users. Runs as root.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "channel_fixture.h"
#include "repetitions.h"

namespace kavrel_test {
namespace {

using testing::HasSubstr;

// What a system bus allows when no service has said anything, and one service that has.
constexpr const char* kSystemDefaults = R"(
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
  </policy>
  <policy context="default">
    <allow own="org.example.Other"/>
    <allow send_destination="org.example.Other"/>
  </policy>
)";

// A user and a group that every Debian has stand for the platform's.
constexpr const char* kGroup = "games";
constexpr const char* kMember = "games";
constexpr const char* kStranger = "nobody";

std::string PolicyFor(const std::string& group) {
  std::string text = ReadFile(KAVREL_POLICY_TEMPLATE);
  const std::string place = "@KAVREL_DBUS_GROUP@";
  const auto at = text.find(place);
  EXPECT_NE(at, std::string::npos);
  return text.replace(at, place.size(), group);
}

struct User {
  const char* name;
  const char* group;  // null: root, as the test itself
  bool may;
};
void PrintTo(const User& user, std::ostream* out) {
  *out << user.name;
}

std::unique_ptr<BusPeer> MakePeerOf(const User& user) {
  return user.group == nullptr ? MakePythonPeer() : MakePythonPeerAs(user.name, user.group);
}

class PolicyTest : public testing::TestWithParam<User> {
 protected:
  PolicyTest() {
    std::ofstream(directory_.Path("policy.conf")) << PolicyFor(kGroup);
    bus_ = std::make_unique<PrivateBus>(BusOptions{
        .configuration =
            kSystemDefaults + ("<include>" + directory_.Path("policy.conf") + "</include>\n"),
        .closed = true});
    user_ = MakePeerOf(GetParam());
  }

  Json Own(const std::string& name) { return user_->Do({{"do", "own"}, {"name", name}}, "owned"); }
  Json Call(const Json& destination, const std::string& interface, const std::string& member) {
    return user_->Do({{"do", "call"},
                      {"destination", destination},
                      {"path", kPath},
                      {"interface", interface},
                      {"member", member},
                      {"body", "([('a', '1')],)"}},
                     "called");
  }
  void ExpectAllowed(const Json& told) {
    if (GetParam().may) {
      EXPECT_EQ(told.value("error", ""), "");
    } else {
      EXPECT_THAT(told.value("error", ""), HasSubstr("AccessDenied"));
    }
  }
  // Emits as the user, then as root, and tells whose signals a listener got.
  int SignalsThatArrive(const std::string& interface, const std::string& path,
                        const std::string& body) {
    const auto listener = MakePythonPeer();
    listener->Do({{"do", "listen"}, {"interface", interface}, {"path", path}}, "listening");
    const Json emit = {{"do", "emit"},
                       {"path", path},
                       {"interface", interface},
                       {"member", "SendSignal"},
                       {"body", body}};
    user_->Do(emit, "emitted");
    user_->Do({{"do", "own"}, {"name", "org.example.Other"}}, "owned");  // the bus has seen it
    const auto root = MakePythonPeer();
    const std::string last = root->Do({{"do", "who"}}, "who").at("who");
    root->Do(emit, "emitted");
    int others = 0;
    while (listener->Wait("signal").at("who") != last) ++others;
    return others;
  }

  TemporaryDirectory directory_;
  std::unique_ptr<PrivateBus> bus_;
  std::unique_ptr<BusPeer> user_;
};

TEST_P(PolicyTest, NamesAreForTheGroup) {
  for (const char* name :
       {"org.zarnet.kavrel.hello_SYN", "org.zarnet.kavrel.hello_SYN_ACK",
        "org.zarnet.kavrel.hello_ACK", "org.zarnet.kavrel.auxiliary", "org.zarnet.other.x_SYN"}) {
    ExpectAllowed(Own(name));
  }
}

TEST_P(PolicyTest, MessagesAreForTheGroup) {
  const auto host = MakePythonPeer();
  const Json opened = host->Open("host", kHost, kPlugin);
  ExpectAllowed(Call(opened.at("who"), kInterface, "Send"));
  EXPECT_EQ(host->Do({{"do", "state"}}, "state").at("ready"), false);
  EXPECT_EQ(host->Count("received"), GetParam().may ? 1 : 0);
}

TEST_P(PolicyTest, NotificationsAreForTheGroup) {
  EXPECT_EQ(SignalsThatArrive(kInterface, kPath, "([('a', '1')],)"), GetParam().may ? 1 : 0);
}

TEST_P(PolicyTest, AuxiliaryEventsAreForTheGroup) {
  EXPECT_EQ(SignalsThatArrive("org.zarnet.kavrel.auxiliary", "/org/zarnet/kavrel/auxiliary",
                              "('hello', 5, 1)"),
            GetParam().may ? 1 : 0);
}

TEST_P(PolicyTest, HandshakeIsForTheGroup) {
  const auto host = MakeLibraryEnd();
  host->Open("host", kHost, kPlugin);
  if (!GetParam().may) {
    ExpectAllowed(user_->Do({{"do", "say"}, {"name", "org.zarnet.kavrel.hello_SYN"}}, "said"));
    EXPECT_FALSE(host->IsReady());
    return;
  }
  user_->Open("plugin", kHost, kPlugin);
  user_->Wait("connected");
  host->Wait("connected");
  EXPECT_TRUE(user_->Send(true, {{"to", "host"}}));
  EXPECT_TRUE(host->Send(true, {{"to", "plugin"}}));
  EXPECT_TRUE(host->Notify({{"to", "plugin"}}));
}

class StrangerRace : public PolicyTest {};

// A stranger tries to say every step while the pair does.
TEST_P(StrangerRace, KeepsNoPairApart) {
  const auto host = MakeLibraryEnd();
  const auto plugin = MakeLibraryEnd();
  const std::vector<std::string> steps = {"_SYN", "_SYN_ACK", "_ACK"};
  const int starts = Repetitions(10, 1000);
  for (int start = 0; start < starts; ++start) {
    for (const std::string& step : steps) {
      user_->Tell({{"do", "say"}, {"name", kBaseName + step}});
    }
    host->Open("host", kHost, kPlugin);
    plugin->Open("plugin", kHost, kPlugin);
    host->Wait("connected");
    plugin->Wait("connected");
    EXPECT_TRUE(plugin->Send(true, {{"to", "host"}}));
    for (std::size_t said = 0; said < steps.size(); ++said) ExpectAllowed(user_->Wait("said"));
    host->Do({{"do", "close"}}, "closed");
    plugin->Do({{"do", "close"}}, "closed");
  }
}

INSTANTIATE_TEST_SUITE_P(Users, StrangerRace, testing::Values(User{kStranger, "nogroup", false}),
                         [](const auto& user) { return std::string(user.param.name); });

// Everything that has nothing to do with the channel is as it was without the file.
TEST_P(PolicyTest, OtherServicesAreUnaffected) {
  const auto service = MakePythonPeer();
  EXPECT_EQ(service->Do({{"do", "own"}, {"name", "org.example.Other"}}, "owned").at("code"), 1);
  EXPECT_THAT(Call("org.example.Other", "org.example.Other", "Send").value("error", ""),
              HasSubstr("Unknown"));  // it got there and was answered
  const auto nobody = MakePythonPeer();
  const Json who = nobody->Do({{"do", "who"}}, "who").at("who");
  EXPECT_THAT(Call(who, "org.example.Unknown", "Other").value("error", ""),
              HasSubstr("AccessDenied"));  // as before: nothing allows that
  EXPECT_EQ(SignalsThatArrive("org.example.Other", kPath, "('text',)"), 1);
}

INSTANTIATE_TEST_SUITE_P(Users, PolicyTest,
                         testing::Values(User{"root", nullptr, true}, User{kMember, kGroup, true},
                                         User{kStranger, "nogroup", false}),
                         [](const auto& user) { return std::string(user.param.name); });

}  // namespace
}  // namespace kavrel_test
