// kavrelctl status, doctor and keys list.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

class Health : public PluginPrograms {
 protected:
  json Status(int exit_code) const {
    const Outcome outcome = Tool({"status", "--json", "--timeout", "20"});
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.errors;
    return json::parse(outcome.output);
  }

  /// What the doctor says about one thing.
  json Doctor(const std::string& about, int exit_code) const {
    const Outcome outcome = Tool({"doctor", "--json"});
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.output << outcome.errors;
    const json findings = json::parse(outcome.output)["findings"];
    for (const json& finding : findings) {
      if (finding["about"] == about) return finding;
    }
    return {};
  }
};

TEST_F(Health, StatusTellsWhoServes) {
  const json nobody = Status(1);
  EXPECT_EQ(nobody["reachable"], false);
  EXPECT_THAT(nobody["interface"]["error"], HasSubstr("nobody listens"));
  EXPECT_EQ(nobody["runtime_directory"], directory_.path());
  const auto viewer = StartViewer();
  const json status = Status(0);
  EXPECT_EQ(status["reachable"], true);
  EXPECT_EQ(status["viewer_pid"], viewer->pid());
  EXPECT_EQ(status["viewer_version"], KAVREL_VERSION);
  EXPECT_EQ(status["plugins"], true);
  EXPECT_EQ(status["clients"], json::array({"kavrelctl"}));
  EXPECT_EQ(status["control"]["socket"],
            directory_.path() + "/rpc/org.zarnet.kavrel:KavrelViewerControl");
  EXPECT_TRUE(std::filesystem::is_socket(status["control"]["socket"].get<std::string>()));
  const Outcome text = Tool({"status"});
  EXPECT_THAT(text.output, HasSubstr("\nplug-ins           yes\n"));
  EXPECT_THAT(text.output, HasSubstr("\nclients            1: kavrelctl\n"));
  EXPECT_EQ(text.output.find('\x1b'), std::string::npos);
}

TEST_F(Health, NothingIsWrongWhereThingsAreAsTheyShould) {
  const auto viewer = StartViewer();
  const Outcome outcome = Tool({"doctor"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, HasSubstr("ok       runtime directory: " + directory_.path()));
  EXPECT_THAT(outcome.output, HasSubstr("ok       bus policy: this user may own names"));
  EXPECT_THAT(outcome.output, HasSubstr("ok       state store: opens"));
  EXPECT_THAT(outcome.output, HasSubstr("ok       sockets of viewers: none"));
}

TEST_F(Health, DoctorSaysWhatToDoAboutDirectories) {
  ASSERT_EQ(::chmod(directory_.path().c_str(), 0777), 0);
  const json finding = Doctor("runtime directory", 1);
  EXPECT_EQ(finding["health"], "problem");
  EXPECT_EQ(finding["advice"], "chmod 700 " + directory_.path());
}

TEST_F(Health, DoctorFindsWhatAKilledViewerHasLeft) {
  auto viewer = StartViewer();
  EXPECT_EQ(Doctor("sockets of viewers", 0)["health"], "ok");
  EXPECT_EQ(Doctor("event files", 0)["health"], "ok");
  viewer->Kill();
  const json sockets = Doctor("sockets of viewers", 0);
  EXPECT_EQ(sockets["health"], "warning");
  EXPECT_THAT(sockets["advice"], HasSubstr("/rpc/org.zarnet.kavrel:KavrelAppApi "));
  const json events = Doctor("event files", 0);
  EXPECT_THAT(events["advice"], HasSubstr("host_ready"));
  for (const json& finding : {sockets, events}) {
    EXPECT_EQ(Script(finding["advice"]).exit_code, 0);
  }
  EXPECT_EQ(Doctor("sockets of viewers", 0)["health"], "ok");
  EXPECT_EQ(Doctor("event files", 0)["health"], "ok");
}

TEST_F(Health, DoctorTellsOfADamagedStore) {
  StartViewer();
  std::ofstream(directory_.Path("vconf/memory.mdb.damaged")) << "x";
  EXPECT_EQ(Doctor("volatile values", 0)["health"], "warning");
}

TEST_F(Health, DoctorTellsOfTheBus) {
  bus_.Kill();
  const json finding = Doctor("system bus", 0);
  EXPECT_EQ(finding["health"], "warning");
  EXPECT_THAT(finding["what"], HasSubstr("plug-ins are off without it"));
}

TEST_F(Health, KeysListTellsTheOwner) {
  const auto viewer = StartViewer();
  EXPECT_EQ(Tool({"keys", "list"}).output, "KEY  OWNER  ALSO WANTED BY\n");
  const auto plugin = StartListener(*viewer, "listener", {"--key", "XF86Red"});
  const json keys = json::parse(Tool({"keys", "list", "--json"}).output);
  EXPECT_EQ(keys, json::parse(R"([{"key":"XF86Red","exclusive":false,"owner":null,
      "others":["listener"]}])"));
  const auto owner = StartListener(*viewer, "owner", {"--exclusive", "XF86Red"});
  EXPECT_EQ(json::parse(Tool({"keys", "list", "--json"}).output),
            json::parse(R"([{"key":"XF86Red","exclusive":true,"owner":"owner",
      "others":["listener"]}])"));
}

}  // namespace
}  // namespace kavrel_test
