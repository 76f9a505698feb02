// Plug-ins, and strangers on the bus, that mean harm.
#include <gio/gio.h>

#include "framework_fixture.h"
#include "repetitions.h"
#include "shared_connection.h"

namespace framework_test {
namespace {

struct Unreference {
  void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
};

/// Somebody on the bus who announces plug-ins that are none.
class Stranger {
 public:
  void Announce(const std::string& name, int type, bool added) const {
    Emit(g_variant_new("(sii)", name.c_str(), type, added ? 1 : 0));
  }
  void Emit(GVariant* body) const {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, "/org/zarnet/kavrel/auxiliary",
                                  "org.zarnet.kavrel.auxiliary", "SendSignal", body, nullptr);
  }
  void Flush() const { g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr); }

 private:
  std::unique_ptr<GDBusConnection, Unreference> connection_{kavrel_test::OpenOwnConnection()};
};

std::vector<std::string> HarmfulNames() {
  std::vector<std::string> names = {"",
                                    "-",
                                    "a-b",
                                    "1digit",
                                    "dot.ted",
                                    "sla/sh",
                                    "%s%n%s%n",
                                    "new\nline",
                                    "\xc3\xa4",
                                    std::string(255, 'x'),
                                    std::string(256, 'x'),
                                    std::string(100000, 'x')};
  const int others = kavrel_test::Repetitions(500, 10000);
  for (int number = 0; number < others; ++number) names.push_back("n" + std::to_string(number));
  return names;
}

using FrameworkHostileTest = FrameworkTest;

TEST_F(FrameworkHostileTest, EndlessAnnouncementsAreCapped) {
  constexpr long kBounded = 8L * 1024 * 1024;
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "6", "glib", "Red"});
  host->Tell("cost");
  const Cost before = TakeCost(*host, "cost");
  const Stranger stranger;
  const std::vector<std::string> names = HarmfulNames();
  int type = -2;
  for (const std::string& name : names) {
    stranger.Announce(name, type, true);
    type = type == 9 ? -2 : type + 1;
  }
  stranger.Flush();
  EXPECT_TRUE(host->TakeHolding("refused: 96 are registered")) << host->Everything();
  ExpectKey(*host, "Red", *plugin);
  host->Tell("cost");
  const Cost after = TakeCost(*host, "cost");
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_LT(after.bytes, before.bytes + kBounded);
  for (const std::string& name : names) {
    for (const int leaving : {4, 5, 6}) stranger.Announce(name, leaving, false);
  }
  stranger.Flush();
  const auto next = MakePlugin(*host, {"next", "5", "glib", "Blue"});
  ExpectKey(*host, "Blue", *next);
  ExpectKey(*host, "Red", *plugin);
}

TEST_F(FrameworkHostileTest, AnnouncementsOfAnotherFormAreDropped) {
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "6", "glib", "Red"});
  const Stranger stranger;
  stranger.Emit(nullptr);
  stranger.Emit(g_variant_new("(s)", "clock"));
  stranger.Emit(g_variant_new("(iis)", 6, 1, "clock"));
  stranger.Emit(g_variant_new("(siii)", "clock", 6, 0, 0));
  stranger.Flush();
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(host->TakeHolding("dropped: body of type (")) << host->Everything();
  }
  ExpectKey(*host, "Red", *plugin);
}

TEST_F(FrameworkHostileTest, EndlessKeysAreCapped) {
  const auto host = MakeHost();
  const auto other = MakePlugin(*host, {"other", "6", "glib", "Red"});
  const auto plugin = MakePlugin(*host, {"greedy", "5", "glib"});
  plugin->Tell("many 3000");
  plugin->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=greedy");
  ExpectKey(*host, "K1023", *plugin);
  ExpectNobodyTakes(*host, "K1024");
  ExpectKey(*host, "Red", *other);
}

}  // namespace
}  // namespace framework_test
