// Bodies, paths and members that no honest partner sends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string_view>

#include "channel_fixture.h"
#include "repetitions.h"
#include "shared_connection.h"

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BodyTest : public ChannelTest {
 protected:
  BodyTest() {
    end_.SetPluginDubsMsgCB([this](CMessage& message) {
      taken_.push_back(PairsOf(message));
      return true;
    });
    peer_->Open("host", kHost, kPlugin);
    EXPECT_TRUE(IterateUntil([&] { return end_.IsConnectionReady(); }));
  }

  Json Call(const std::string& member, const std::string& body, int limit = -1,
            const std::string& path = kPath) {
    peer_->Tell({{"do", "call"},
                 {"destination", OwnUniqueName()},
                 {"path", path},
                 {"interface", kInterface},
                 {"member", member},
                 {"body", body},
                 {"limit", limit}});
    // The loop runs beside the peer's wait: a timer of GIO's looks at what the peer has told.
    Json told;
    const bool came = IterateUntil([&] {
      const auto line =
          peer_->process().WaitForLine("\"event\":\"called\"", std::chrono::milliseconds(1));
      if (line) told = Json::parse(*line);
      g_main_context_wakeup(nullptr);
      return line.has_value();
    });
    EXPECT_TRUE(came);
    return told;
  }
  void Emit(const std::string& member, const std::string& body, const std::string& path = kPath) {
    peer_->Do({{"do", "emit"},
               {"destination", OwnUniqueName()},
               {"path", path},
               {"interface", kInterface},
               {"member", member},
               {"body", body}},
              "emitted");
  }
  // A message that comes after everything sent before.
  void Settle() {
    const Pairs settled = {{"settle", ""}};
    peer_->Tell({{"do", "notify"}, {"pairs", settled}});
    ASSERT_TRUE(IterateUntil([&] { return !taken_.empty() && taken_.back() == settled; }));
    taken_.pop_back();
  }

  OpenPlugin end_{kHost, kPlugin};
  std::vector<Pairs> taken_;
  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

class ForeignBodyOnTheBus : public BodyTest, public testing::WithParamInterface<const char*> {};

TEST_P(ForeignBodyOnTheBus, IsDroppedWithOneLineAndNeverRead) {
  const Json told = Call("Send", GetParam());
  EXPECT_THAT(told.value("error", ""), HasSubstr("InvalidArgs"));
  EXPECT_THAT(Errors(), ElementsAre(HasSubstr("Call of Send from")));
  log_.Take();
  Emit("SendSignal", GetParam());
  Settle();
  EXPECT_THAT(Errors(), ElementsAre(HasSubstr("Notification from")));
  EXPECT_THAT(taken_, IsEmpty());
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end_.SendMessage(message, 0));
}

INSTANTIATE_TEST_SUITE_P(Types, ForeignBodyOnTheBus,
                         testing::Values("()", "('a',)", "(1, 2)", "([('a', 'b', 'c')],)",
                                         "([('a', 'b')], 'more')", "({'a': 'b'},)", "([1, 2],)",
                                         "(<[('a', 'b')]>,)", "([@a(ss) []],)", "(0.5, true, 'x')"),
                         Numbered<const char*>);

class ForeignReply : public BodyTest, public testing::WithParamInterface<const char*> {};

TEST_P(ForeignReply, IsDroppedAndCountsAsFalse) {
  peer_->Tell({{"do", "answer_body"}, {"body", GetParam()}});
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_FALSE(end_.SendMessage(message, 0));
  EXPECT_THAT(Errors(), ElementsAre(HasSubstr("Reply dropped: body of type ")));
}

INSTANTIATE_TEST_SUITE_P(Types, ForeignReply,
                         testing::Values("()", "('true',)", "(1,)", "(true, true)", "([true],)"),
                         Numbered<const char*>);

TEST_F(BodyTest, MemberOfASignalDoesNotMatter) {
  Emit("Anything", "([('a', '1')],)");
  Settle();
  EXPECT_THAT(taken_, ElementsAre(Pairs{{"a", "1"}}));
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(BodyTest, MethodThatIsNotDescribedIsRefusedByGio) {
  EXPECT_THAT(Call("Other", "([('a', '1')],)").value("error", ""), HasSubstr("UnknownMethod"));
  EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(BodyTest, CallOfAPathThatNobodyServesIsRefusedByGio) {
  const Json told = Call("Send", "([('a', '1')],)", -1, std::string(kPath) + "/more");
  EXPECT_THAT(told.value("error", ""), HasSubstr("Unknown"));
  EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(BodyTest, SignalFromAnotherPathIsNotHeard) {
  Emit("SendSignal", "([('a', '1')],)", std::string(kPath) + "/more");
  Settle();
  EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(BodyTest, SignalFromAnotherSenderIsNotHeard) {
  const auto stranger = MakePythonPeer();
  stranger->Do({{"do", "emit"},
                {"destination", OwnUniqueName()},
                {"path", kPath},
                {"interface", kInterface},
                {"member", "SendSignal"},
                {"body", "([('a', '1')],)"}},
               "emitted");
  Settle();
  EXPECT_THAT(taken_, IsEmpty());
}

// Where the object's handlers are found under another path they do not answer at all.
TEST_F(BodyTest, CallUnderAnotherPathGetsNoAnswer) {
  const std::string other = "/org/zarnet/kavrel/CommunicationChannel/other";
  const kavrel::glib::NodeInfo node(g_dbus_node_info_new_for_xml(
      "<node><interface name='org.zarnet.kavrel.DbusCommunication'><method name='Send'>"
      "<arg type='a(ss)' direction='in'/><arg type='b' direction='out'/></method>"
      "</interface></node>",
      nullptr));
  const kavrel::glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  kavrel::glib::Error error;
  const auto registration = kavrel::glib::RegisterObject(
      connection.get(), other.c_str(), node.get(), &kavreldbus::CBaseDbus::m_vTable, &end_, error);
  ASSERT_TRUE(registration) << error.message();
  const Json told = Call("Send", "([('a', '1')],)", 300, other);
  EXPECT_THAT(told.value("error", ""), testing::AnyOf(HasSubstr("Timeout"), HasSubstr("NoReply")));
  EXPECT_EQ(CountLines(("dbus object name: " + std::string(kPath)).c_str()), 1U);
  EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(BodyTest, HandlersTestBodiesThemselves) {
  const kavrel::glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  const auto number = kavrel::glib::Sink(g_variant_new("(i)", 1));
  EXPECT_FALSE(OpenPlugin::m_NameOwnerChangedCallback(connection.get(), number.get(), &end_));
  OpenPlugin::m_AckNameOwnerChangedCallback(connection.get(), "", "", "", "", number.get(), &end_);
  OpenPlugin::m_AckNameOwnerChangedCallback(connection.get(), "", "", "", "", nullptr, &end_);
  EXPECT_THAT(Errors(),
              ElementsAre(HasSubstr("NameOwnerChanged dropped: body of type (i), must be (sss)"),
                          HasSubstr("body of type (i)"), HasSubstr("body of type none")));
  EXPECT_TRUE(end_.IsConnectionReady());
}

// More pairs than are read, in a message that the bus takes.
TEST_F(BodyTest, EndlessPairsAreDroppedWithOneLine) {
  const int pairs = Repetitions(100'000, 1'000'000);
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
  for (int i = 0; i < pairs; ++i) g_variant_builder_add(&builder, "(ss)", "", "");
  const kavrel::glib::Connection stranger(OpenOwnConnection());
  std::string error;
  const auto answered = [](GObject* source, GAsyncResult* result, gpointer text) {
    GError* problem = nullptr;
    GVariant* const answer =
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &problem);
    *static_cast<std::string*>(text) = answer != nullptr ? "answered" : problem->message;
    if (answer != nullptr) g_variant_unref(answer);
    g_clear_error(&problem);
  };
  g_dbus_connection_call(stranger.get(), OwnUniqueName().c_str(), kPath, kInterface, "Send",
                         g_variant_new("(a(ss))", &builder), nullptr, G_DBUS_CALL_FLAGS_NONE,
                         G_MAXINT, nullptr, answered, &error);
  ASSERT_TRUE(IterateUntil([&] { return !error.empty(); }));
  EXPECT_THAT(error, HasSubstr("InvalidArgs"));
  EXPECT_THAT(Errors(), ElementsAre(HasSubstr(std::to_string(pairs) + " pairs, at most 65536")));
  EXPECT_THAT(taken_, IsEmpty());
  CMessage message = MessageOf({{"a", "1"}});
  EXPECT_TRUE(end_.SendMessage(message, 0));
}

// A type of any depth that a body can have, without what GIO would not take from a bus.
std::string RandomType(std::mt19937& random, int depth) {
  static constexpr std::string_view kBasic = "ybnqiuxtdsog";
  const auto basic = [&] { return std::string(1, kBasic[random() % kBasic.size()]); };
  if (depth == 0) return basic();
  switch (random() % 6) {
    case 0:
      return "a" + RandomType(random, depth - 1);
    case 1:
      return "a{" + basic() + RandomType(random, depth - 1) + "}";
    case 2:
      return "(" + RandomType(random, depth - 1) + RandomType(random, depth - 1) + ")";
    case 3:
      return "v";
    case 4:
      return "(ss)";
    default:
      return basic();
  }
}

std::string RandomBodyType(std::mt19937& random) {
  std::string type = "(";
  for (unsigned count = random() % 4; count > 0; --count) type += RandomType(random, 3);
  return type + ")";
}

TEST_F(BodyTest, BodiesOfAnyTypeAreDroppedUnread) {
  std::mt19937 random(35);
  const kavrel::glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  std::size_t foreign = 0;
  std::size_t own = 0;
  const int bodies = Repetitions(20'000, 100'000);
  for (int i = 0; i < bodies; ++i) {
    const std::string type = i % 100 == 0 ? "(a(ss))" : RandomBodyType(random);
    const std::string bytes(random() % 64, static_cast<char>(random()));
    const auto body = kavrel::glib::Sink(g_variant_new_from_data(
        G_VARIANT_TYPE(type.c_str()), bytes.data(), bytes.size(), FALSE, nullptr, nullptr));
    ++(type == "(a(ss))" ? own : foreign);
    OpenPlugin::m_SignalCallback(connection.get(), ":1.9", kPath, kInterface, "SendSignal",
                                 body.get(), &end_);
  }
  EXPECT_EQ(taken_.size(), own);
  EXPECT_EQ(Errors().size(), foreign);
  EXPECT_THAT(Errors(), testing::Each(HasSubstr("Notification from :1.9 dropped: body of type (")));
}

}  // namespace
}  // namespace kavrel_test
