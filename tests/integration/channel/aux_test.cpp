// The auxiliary channel: events of anybody to a host, and the host's name for all to see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "channel_fixture.h"
#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusServer.h"

namespace kavrel_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* kAuxName = "org.zarnet.myhost.auxiliary";
constexpr const char* kAuxPath = "/org/zarnet/myhost/auxiliary";

struct Event {
  std::string text;
  int value;
  bool flag;
  bool operator==(const Event&) const = default;
};
void PrintTo(const Event& event, std::ostream* out) {
  *out << event.text << ' ' << event.value << ' ' << event.flag;
}

class Server {
 public:
  Server() {
    server->SetAuxDbusSignalCb(
        [](const char* text, int value, bool flag, void* self) {
          static_cast<Server*>(self)->events.push_back({text, value, flag});
          return false;
        },
        this);
  }

  std::unique_ptr<CAuxDbusServer> server = std::make_unique<CAuxDbusServer>("my-host");
  std::vector<Event> events;
};

class AuxTest : public ChannelTest {
 protected:
  // Until the name is owned, as others see it.
  void WaitForName() {
    const std::string asked = std::string("org.freedesktop.DBus");
    ASSERT_TRUE(IterateUntil([&] {
      const Json told = peer_->Do({{"do", "call"},
                                   {"destination", asked},
                                   {"path", "/org/freedesktop/DBus"},
                                   {"interface", asked},
                                   {"member", "NameHasOwner"},
                                   {"body", std::string("('") + kAuxName + "',)"}},
                                  "called");
      g_main_context_wakeup(nullptr);
      return told.at("code") == "(true,)";
    }));
  }
  void EmitFromPeer(const std::string& body, const std::string& path = kAuxPath,
                    const std::string& member = "SendSignal", int times = 1) {
    peer_->Do({{"do", "emit"},
               {"path", path},
               {"interface", kAuxName},
               {"member", member},
               {"body", body},
               {"times", times}},
              "emitted");
  }
  // Everything that the peer sent before has been dispatched when this event comes. The bus keeps
  // no order between two senders: what a client sent is waited for by itself.
  void Settle(Server& server) {
    const Event last{"settle", 0, false};
    EmitFromPeer("('settle', 0, 0)");
    ASSERT_TRUE(
        IterateUntil([&] { return !server.events.empty() && server.events.back() == last; }));
    server.events.pop_back();
  }

  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

LogEntry ServerLine(int priority, const std::string& function, const std::string& text) {
  return {priority, "kavrel-api", "AuxDbusServer.cpp", function, text};
}

LogEntry ClientLine(int priority, const std::string& function, const std::string& text) {
  return {priority, "kavrel-api", "AuxDbusClient.cpp", function, text};
}

TEST_F(AuxTest, EventsOfAClientArrive) {
  Server server;
  WaitForName();
  CAuxDbusClient client("my-host");
  client.SendNotification("hello", 5, true);
  client.SendNotification("", INT_MIN, false);
  client.SendNotification("Ähre", INT_MAX, true);
  ASSERT_TRUE(IterateUntil([&] { return server.events.size() == 3; }));
  EXPECT_THAT(server.events, ElementsAre(Event{"hello", 5, true}, Event{"", INT_MIN, false},
                                         Event{"Ähre", INT_MAX, true}));
}

TEST_F(AuxTest, EventsTravelAsPublished) {
  peer_->Do({{"do", "listen"}, {"interface", kAuxName}, {"path", kAuxPath}}, "listening");
  CAuxDbusClient client("my-host");
  client.SendNotification("hello", 5, true);
  client.SendNotification("hello", -1, false);
  const Json first = peer_->Wait("signal");
  EXPECT_EQ(first.at("member"), "SendSignal");
  EXPECT_EQ(first.at("body"), "('hello', 5, 1)");
  EXPECT_EQ(peer_->Wait("signal").at("body"), "('hello', -1, 0)");
}

TEST_F(AuxTest, OnlyAFlagOfOneIsTrue) {
  Server server;
  WaitForName();
  for (const int flag : {0, 1, 2, -1, 256, INT_MAX, INT_MIN}) {
    EmitFromPeer("('f', 0, " + std::to_string(flag) + ")");
  }
  Settle(server);
  EXPECT_THAT(server.events,
              ElementsAre(Event{"f", 0, false}, Event{"f", 0, true}, Event{"f", 0, false},
                          Event{"f", 0, false}, Event{"f", 0, false}, Event{"f", 0, false},
                          Event{"f", 0, false}));
}

TEST_F(AuxTest, PathMattersAndMemberDoesNot) {
  Server server;
  WaitForName();
  EmitFromPeer("('elsewhere', 1, 1)", "/org/zarnet/other/auxiliary");
  EmitFromPeer("('named otherwise', 1, 1)", kAuxPath, "Anything");
  Settle(server);
  EXPECT_THAT(server.events, ElementsAre(Event{"named otherwise", 1, true}));
}

TEST_F(AuxTest, ForeignBodiesAreDroppedWithOneLineEach) {
  Server server;
  WaitForName();
  const std::vector<std::string> bodies = {"()",
                                           "('a',)",
                                           "(1, 2, 3)",
                                           "('a', 1)",
                                           "('a', 1, 1, 1)",
                                           "('a', 1, true)",
                                           "('a', 'b', 'c')",
                                           "([('a', 'b')],)",
                                           "(<'a'>, 1, 1)"};
  for (const std::string& body : bodies) EmitFromPeer(body);
  Settle(server);
  EXPECT_THAT(server.events, IsEmpty());
  EXPECT_EQ(Errors().size(), bodies.size());
  EXPECT_THAT(Errors(), testing::Each(HasSubstr("dropped: body of type (")));
}

TEST_F(AuxTest, FloodOfEventsIsTakenInOrder) {
  Server server;
  WaitForName();
  EmitFromPeer("('many', 7, 1)", kAuxPath, "SendSignal", 1000);
  Settle(server);
  EXPECT_EQ(server.events.size(), 1000U);
}

TEST_F(AuxTest, WithoutACallbackEventsAreDropped) {
  const CAuxDbusServer server("my-host");
  WaitForName();
  EmitFromPeer("('nobody', 1, 1)");
  ASSERT_TRUE(IterateUntil([&] { return CountLines("signal_name=SendSignal") == 1; }));
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(AuxTest, ServerDestroyedByAnEvent) {
  Server server;
  server.server->SetAuxDbusSignalCb(
      [](const char*, int, bool, void* self) {
        static_cast<Server*>(self)->server.reset();
        return true;
      },
      &server);
  WaitForName();
  EmitFromPeer("('end', 1, 1)", kAuxPath, "SendSignal", 10);
  ASSERT_TRUE(IterateUntil([&] { return server.server == nullptr; }));
  IteratePending();
  EXPECT_EQ(CountLines("signal_name=SendSignal"), 1U);
}

TEST_F(AuxTest, ServerDestroyedBeforeItsNameIsOwned) {
  for (int i = 0; i < 20; ++i) {
    const CAuxDbusServer server("my-host");
    if (i % 2 == 0) IteratePending();
  }
  IteratePending();
}

TEST_F(AuxTest, NameIsGivenUpWithTheServer) {
  {
    const CAuxDbusServer server("my-host");
    WaitForName();
  }
  const Json told = peer_->Do({{"do", "own"}, {"name", kAuxName}}, "owned");
  EXPECT_EQ(told.at("code"), 1);
}

TEST_F(AuxTest, ServerLines) {
  Server server;
  WaitForName();
  const std::string who = peer_->Do({{"do", "who"}}, "who").at("who");
  EmitFromPeer("('a', 1, 1)");
  ASSERT_TRUE(IterateUntil([&] { return server.events.size() == 1; }));
  const auto lines = log_.Take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].function, "m_OnDbusAcquiredCb");
  EXPECT_THAT(lines[0].text, MatchesRegex("bus name acquired, connection = 0x[0-9a-f]+\n"));
  EXPECT_EQ(lines[1], ServerLine(kLogInfo, "m_OnSignalCallCb",
                                 "sender=" + who + " obj_path=" + kAuxPath +
                                     " iface_name=" + kAuxName + " signal_name=SendSignal\n"));
}

class OpenServer : public CAuxDbusServer {
 public:
  using CAuxDbusServer::CAuxDbusServer;
  using CAuxDbusServer::m_OnDbusAcquiredCb;
  using CAuxDbusServer::m_OnSignalCallCb;
};

TEST_F(AuxTest, ServerCallbacksWithoutUserDataOrConnection) {
  OpenServer server("my-host");
  OpenServer::m_OnDbusAcquiredCb(nullptr, kAuxName, nullptr);
  OpenServer::m_OnSignalCallCb(nullptr, "s", "p", "i", "m", nullptr, &server);
  const std::string seen = "sender=s obj_path=p iface_name=i signal_name=m\n";
  const auto lines = log_.Take();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[1], ServerLine(kLogError, "m_OnDbusAcquiredCb", "user data is NULL!\n"));
  EXPECT_EQ(lines[2], ServerLine(kLogInfo, "m_OnSignalCallCb", seen));
  EXPECT_EQ(lines[3],
            ServerLine(kLogError, "m_OnSignalCallCb", "Empty user_data or invalid connection.\n"));
  GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
  OpenServer::m_OnDbusAcquiredCb(connection, "no name", &server);
  g_object_unref(connection);
  EXPECT_EQ(log_.Take().back(),
            ServerLine(kLogError, "m_OnDbusAcquiredCb", "subscribe for signal failed\n\n"));
}

// ---- Clients

struct Watcher {
  int appeared = 0;
  int vanished = 0;
  bool vanished_without_connection = false;

  void Register(CAuxDbusClient& client) {
    client.RegisterDbusNameHandler([](GDBusConnection*, const char*, const char*,
                                      void* self) { ++static_cast<Watcher*>(self)->appeared; },
                                   [](GDBusConnection* connection, const char*, void* self) {
                                     auto& watcher = *static_cast<Watcher*>(self);
                                     ++watcher.vanished;
                                     watcher.vanished_without_connection = connection == nullptr;
                                   },
                                   this);
  }
};

TEST_F(AuxTest, ClientSeesTheHostComeAndGo) {
  CAuxDbusClient client("my-host");
  Watcher watcher;
  log_.Take();
  watcher.Register(client);
  EXPECT_THAT(log_.Take(), ElementsAre(ClientLine(kLogInfo, "RegisterDbusNameHandler", "\n")));
  ASSERT_TRUE(IterateUntil([&] { return watcher.vanished == 1; }));  // not there yet
  for (int round = 1; round <= 3; ++round) {
    const auto host = MakeLibraryEnd();
    host->Tell({{"do", "serve_aux"}, {"host", "my-host"}});
    ASSERT_TRUE(IterateUntil([&] { return watcher.appeared == round; }));
    host->process().Kill();
    ASSERT_TRUE(IterateUntil([&] { return watcher.vanished == round + 1; }));
  }
  client.UnregisterDbusNameHandler();
  const auto host = MakeLibraryEnd();
  host->Tell({{"do", "serve_aux"}, {"host", "my-host"}});
  WaitForName();
  IteratePending();
  EXPECT_EQ(watcher.appeared, 3);
  client.UnregisterDbusNameHandler();  // nothing left to stop
}

TEST_F(AuxTest, ClientSeesTheBusGo) {
  CAuxDbusClient client("my-host");
  const CAuxDbusServer server("my-host");
  Watcher watcher;
  watcher.Register(client);
  ASSERT_TRUE(IterateUntil([&] { return watcher.appeared == 1; }));
  bus_.Kill();
  ASSERT_TRUE(IterateUntil([&] { return watcher.vanished_without_connection; }));
  client.SendNotification("lost", 1, true);
  EXPECT_THAT(Errors(), Contains(MatchesRegex("Error while sending signal \\[[0-9]+\\] .*\n")));
  client.UnregisterDbusNameHandler();
}

TEST_F(AuxTest, WatchOutlivesTheClientUnlessItIsStopped) {
  auto client = std::make_unique<CAuxDbusClient>("my-host");
  static Watcher watcher;  // called until the test's process ends
  watcher.Register(*client);
  ASSERT_TRUE(IterateUntil([&] { return watcher.vanished == 1; }));
  client.reset();
  const CAuxDbusServer server("my-host");
  EXPECT_TRUE(IterateUntil([&] { return watcher.appeared == 1; }));
  bus_.Kill();  // the watch holds the connection, which must end with the test
  EXPECT_TRUE(IterateUntil([&] { return watcher.vanished == 2; }));
}

TEST_F(AuxTest, NullTextIsNotSent) {
  peer_->Do({{"do", "listen"}, {"interface", kAuxName}, {"path", kAuxPath}}, "listening");
  CAuxDbusClient client("my-host");
  log_.Take();
  client.SendNotification(nullptr, 1, true);
  client.SendNotification("\xff", 1, true);
  const auto lines = log_.Take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], ClientLine(kLogError, "SendNotification", "No message send\n"));
  EXPECT_THAT(lines[1].text,
              MatchesRegex("Error while sending signal \\[[0-9]+\\] the text is not UTF-8\n"));
  client.SendNotification("after", 1, true);
  EXPECT_EQ(peer_->Wait("signal").at("body"), "('after', 1, 1)");
}

TEST_F(AuxTest, LastEventLeavesWithTheClient) {
  peer_->Do({{"do", "listen"}, {"interface", kAuxName}, {"path", kAuxPath}}, "listening");
  {
    CAuxDbusClient client("my-host");
    for (int i = 0; i < 100; ++i) client.SendNotification("removed", i, false);
  }
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(peer_->Wait("signal").at("body"), "('removed', " + std::to_string(i) + ", 0)");
  }
}

TEST(AuxWithoutBus, ClientLogsEachAttempt) {
  const ScopedEnvironment nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
  DlogCapture log;
  CAuxDbusClient client("my-host");
  auto lines = log.Take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].priority, kLogError);
  EXPECT_EQ(lines[0].function, "CAuxDbusClient");
  EXPECT_THAT(
      lines[0].text,
      MatchesRegex("Error \\[[0-9]+\\]: \\[.*\\] occurs while connecting to system bus\n\n"));
  client.SendNotification("a", 1, true);
  client.SendNotification(nullptr, 1, true);
  const LogEntry line = ClientLine(kLogError, "SendNotification", "No connection setup\n");
  EXPECT_THAT(log.Take(), ElementsAre(line, line));
}

}  // namespace
}  // namespace kavrel_test
