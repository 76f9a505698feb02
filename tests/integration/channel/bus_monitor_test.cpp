// "kavrelctl bus": what it prints about a bus on which hosts and plug-ins talk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "channel_fixture.h"

namespace kavrel_test {
namespace {

using testing::HasSubstr;

class BusMonitorTest : public testing::Test {
 protected:
  std::unique_ptr<ChildProcess> StartMonitor(std::vector<std::string> options) const {
    std::vector<std::string> arguments = {KAVREL_CTL, "bus"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    auto monitor = std::make_unique<ChildProcess>(ChildOptions{.arguments = arguments});
    EXPECT_TRUE(monitor->WaitForLine("watching the bus")) << monitor->errors();
    return monitor;
  }
  Json Next(ChildProcess& monitor) const {
    const auto line = monitor.WaitForLine("{");
    EXPECT_TRUE(line) << monitor.errors();
    return line ? Json::parse(*line) : Json();
  }
  void ExpectHandshake(const Json& event, const std::string& step, const Json& who) const {
    EXPECT_EQ(event, (Json{{"event", "handshake"},
                           {"host", "kavrel"},
                           {"plugin", "hello"},
                           {"step", step},
                           {"who", who}}));
  }

  PrivateBus bus_;
};

TEST_F(BusMonitorTest, TellsAWholeLife) {
  const auto monitor = StartMonitor({"--json"});
  const auto host = MakePythonPeer();
  const auto plugin = MakePythonPeer();
  const Json first = host->Open("host", kHost, kPlugin).at("who");
  const Json second = plugin->Open("plugin", kHost, kPlugin).at("who");
  plugin->Wait("connected");
  host->Wait("connected");
  ExpectHandshake(Next(*monitor), "SYN", first);
  ExpectHandshake(Next(*monitor), "SYN", second);
  ExpectHandshake(Next(*monitor), "SYN_ACK", first);
  ExpectHandshake(Next(*monitor), "ACK", second);
  const Pairs pairs = {{"a", "1"}, {"a", "2"}};
  plugin->Tell({{"do", "send"}, {"wait", true}, {"pairs", pairs}});
  host->Wait("received");
  plugin->Wait("sent");
  Json expected = {{"event", "message"}, {"host", "kavrel"}, {"plugin", "hello"}, {"from", second},
                   {"to", first},        {"waits", true},    {"pairs", pairs}};
  EXPECT_EQ(Next(*monitor), expected);
  host->Send(false, pairs);
  expected = {{"event", "message"}, {"host", "kavrel"}, {"plugin", "hello"}, {"from", first},
              {"to", second},       {"waits", false},   {"pairs", pairs}};
  EXPECT_EQ(Next(*monitor), expected);
  host->Notify(pairs);
  expected = {{"event", "notification"}, {"host", "kavrel"}, {"plugin", "hello"},
              {"from", first},           {"to", second},     {"pairs", pairs}};
  EXPECT_EQ(Next(*monitor), expected);
  plugin->process().Kill();
  expected = {{"event", "left"}, {"host", "kavrel"}, {"plugin", "hello"}, {"who", second}};
  EXPECT_EQ(Next(*monitor), expected);
}

TEST_F(BusMonitorTest, KnowsWhoIsHost) {
  const auto early = MakeLibraryEnd();
  early->Tell({{"do", "serve_aux"}, {"host", "kavrel"}});
  const auto plugin = MakeLibraryEnd();
  plugin->Tell({{"do", "open_aux"}, {"host", "kavrel"}});
  plugin->Wait("appeared");
  const auto monitor = StartMonitor({"--json"});
  plugin->Do({{"do", "announce"}, {"text", "hello"}, {"value", 5}, {"flag", true}},
             "announce_sent");
  Json event = Next(*monitor);
  EXPECT_EQ(event.at("event"), "auxiliary");
  EXPECT_EQ(event.at("from_role"), "plugin");
  EXPECT_EQ(event.at("text"), "hello");
  EXPECT_EQ(event.at("value"), 5);
  EXPECT_EQ(event.at("flag"), 1);
  early->process().Kill();
  EXPECT_EQ(Next(*monitor).at("event"), "host_down");
  const auto late = MakeLibraryEnd();
  late->Tell({{"do", "serve_aux"}, {"host", "kavrel"}});
  EXPECT_EQ(Next(*monitor).at("event"), "host_up");
  late->Open("host", kHost, kPlugin);
  EXPECT_EQ(Next(*monitor).at("who_role"), "host");
}

TEST_F(BusMonitorTest, TellsForeignBodiesAndHeldNames) {
  const auto monitor = StartMonitor({"--json"});
  const auto stranger = MakePythonPeer();
  const Json who = stranger->Do({{"do", "who"}}, "who").at("who");
  stranger->Do({{"do", "emit"},
                {"path", kPath},
                {"interface", kInterface},
                {"member", "SendSignal"},
                {"body", "(1, 'two')"}},
               "emitted");
  EXPECT_EQ(Next(*monitor).at("problem"), "body of type (is), must be (a(ss))");
  stranger->Do({{"do", "own"}, {"name", std::string(kBaseName) + "_SYN_ACK"}}, "owned");
  const Json held = Next(*monitor);
  EXPECT_EQ(held, (Json{{"event", "held"},
                        {"host", "kavrel"},
                        {"plugin", "hello"},
                        {"step", "SYN_ACK"},
                        {"who", who}}));
}

TEST_F(BusMonitorTest, DoesNotTakeAStrangersWordForTheBus) {
  const auto monitor = StartMonitor({"--json"});
  const auto stranger = MakePythonPeer();
  stranger->Do({{"do", "emit"},
                {"path", "/org/zarnet/kavrel"},
                {"interface", "org.freedesktop.DBus"},
                {"member", "NameOwnerChanged"},
                {"body", std::string("('") + kBaseName + "_SYN', ':1.77', '')"}},
               "emitted");
  const Json who = stranger->Do({{"do", "who"}}, "who").at("who");
  stranger->Do({{"do", "call"},  // a call is no event
                {"destination", who},
                {"path", "/org/zarnet/kavrel/auxiliary"},
                {"interface", "org.zarnet.kavrel.auxiliary"},
                {"member", "SendSignal"},
                {"body", "('hello', 5, 1)"},
                {"limit", 10}},
               "called");
  stranger->Do({{"do", "say"}, {"name", std::string(kBaseName) + "_ACK"}}, "said");
  ExpectHandshake(Next(*monitor), "ACK", who);
}

TEST_F(BusMonitorTest, SpeaksToPeople) {
  const auto monitor = StartMonitor({});
  const auto host = MakePythonPeer();
  const auto plugin = MakePythonPeer();
  host->Open("host", kHost, kPlugin);
  plugin->Open("plugin", kHost, kPlugin);
  plugin->Wait("connected");
  host->Wait("connected");
  host->Send(false, {{"key", "KEY_\x1b[2J"}, {"long", std::string(5000, 'x')}});
  EXPECT_THAT(monitor->WaitForLine("SYN_ACK").value_or(""), HasSubstr("kavrel/hello  :1."));
  const std::string line = monitor->WaitForLine("message").value_or("");
  EXPECT_THAT(line, HasSubstr("  message  key=KEY_\\x1b[2J  long=xxx"));
  EXPECT_LT(line.size(), 400U);
}

TEST_F(BusMonitorTest, EndsAfterEnoughLines) {
  const auto monitor = StartMonitor({"--count", "2"});
  const auto host = MakePythonPeer();
  const auto plugin = MakePythonPeer();
  host->Open("host", kHost, kPlugin);
  plugin->Open("plugin", kHost, kPlugin);
  EXPECT_EQ(monitor->WaitForExit(), 0);
}

TEST_F(BusMonitorTest, EndsWithTheBus) {
  const auto monitor = StartMonitor({});
  bus_.Kill();
  EXPECT_EQ(monitor->WaitForExit(), 1);
  EXPECT_THAT(monitor->errors(), HasSubstr("the bus has gone"));
}

TEST_F(BusMonitorTest, EndsOnRequest) {
  const auto monitor = StartMonitor({});
  monitor->Signal(SIGINT);
  EXPECT_EQ(monitor->WaitForExit(), 0);
}

TEST(BusMonitor, SaysWhyItCannotConnect) {
  const ScopedEnvironment nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
  ChildProcess monitor({.arguments = {KAVREL_CTL, "bus"}});
  EXPECT_EQ(monitor.WaitForExit(), 1);
  EXPECT_THAT(monitor.errors(), HasSubstr("cannot connect to the system bus: "));
}

// A monitor that answered a call that it sees would be thrown out by the bus.
TEST_F(BusMonitorTest, NeverSaysAWord) {
  const auto monitor = StartMonitor({"--json"});
  const auto stranger = MakePythonPeer();
  stranger->Do({{"do", "own"}, {"name", "org.example.Nobody"}}, "owned");
  for (int i = 0; i < 20; ++i) {
    stranger->Tell({{"do", "call"},
                    {"destination", "org.example.Nobody"},
                    {"path", kPath},
                    {"interface", kInterface},
                    {"member", "Send"},
                    {"body", "([('a', '1')],)"},
                    {"limit", 10}});
  }
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Next(*monitor).at("event"), "message");
  EXPECT_FALSE(monitor->WaitForExit(std::chrono::milliseconds(0)));
}

}  // namespace
}  // namespace kavrel_test
