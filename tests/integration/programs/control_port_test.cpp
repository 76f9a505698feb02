// What anybody might send to the viewer's control port.
#include <control_protocol.h>
#include <glib.h>
#include <gmock/gmock.h>

#include <deque>
#include <nlohmann/json.hpp>

#include "programs.h"

namespace kavrel_test {
namespace {

using kavrel_programs::ControlParcel;
using kavrel_programs::ControlReply;
using nlohmann::json;

class ControlPort : public Programs {
 protected:
  ControlPort() : runtime_("KAVREL_RUNTIME_DIR", directory_.path()), viewer_(StartViewer()) {
    EXPECT_EQ(rpc_port_proxy_create(&proxy_), 0);
    EXPECT_EQ(
        rpc_port_proxy_connect_sync(proxy_, "org.zarnet.kavrel", kavrel_programs::kControlPort), 0);
    EXPECT_EQ(rpc_port_proxy_get_port(proxy_, RPC_PORT_PORT_MAIN, &port_), 0);
  }
  ~ControlPort() override { rpc_port_proxy_destroy(proxy_); }

  /// The answer to a parcel that `fill` has filled.
  template <class Fill>
  ControlReply Send(const Fill& fill) {
    const ControlParcel parcel = ControlParcel::Create();
    fill(parcel.get());
    EXPECT_EQ(rpc_port_parcel_send(parcel.get(), port_), 0);
    int error = 0;
    const auto reply = kavrel_programs::ReadControlReply(port_, *parcel.Sequence(), error);
    EXPECT_TRUE(reply) << error;
    return reply.value_or(ControlReply{});
  }

  static void Key(rpc_port_parcel_h parcel, const char* key, bool released, int device) {
    rpc_port_parcel_write_int32(parcel, 2);
    rpc_port_parcel_write_string(parcel, key);
    rpc_port_parcel_write_bool(parcel, released);
    rpc_port_parcel_write_int32(parcel, device);
  }

  ScopedEnvironment runtime_;
  std::unique_ptr<ChildProcess> viewer_;
  rpc_port_proxy_h proxy_ = nullptr;
  rpc_port_h port_ = nullptr;
};

TEST_F(ControlPort, RefusesWhatItDoesNotKnow) {
  const auto expect_refused = [&](const auto& fill) {
    const ControlReply reply = Send(fill);
    EXPECT_FALSE(reply.done);
    EXPECT_EQ(reply.text, "this is no request that the viewer knows");
  };
  expect_refused([](rpc_port_parcel_h) {});
  for (const int command : {0, 1000, -1, 2147483647, -2147483647}) {
    expect_refused([&](rpc_port_parcel_h parcel) { rpc_port_parcel_write_int32(parcel, command); });
  }
  expect_refused([](rpc_port_parcel_h parcel) { rpc_port_parcel_write_string(parcel, "1"); });
  expect_refused([](rpc_port_parcel_h parcel) {
    rpc_port_parcel_write_int32(parcel, 1);
    rpc_port_parcel_write_array_count(parcel, 2147483647);
  });
  expect_refused([](rpc_port_parcel_h parcel) { rpc_port_parcel_write_int32(parcel, 2); });
  for (const int device : {-1, 5, 2147483647}) {
    expect_refused([&](rpc_port_parcel_h parcel) { Key(parcel, "7", false, device); });
  }
  for (const std::string& key : {std::string(), std::string("a b"), std::string("\x1b[2J"),
                                 std::string(65, 'x'), std::string(500000, 'x')}) {
    expect_refused([&](rpc_port_parcel_h parcel) { Key(parcel, key.c_str(), false, 0); });
  }
  expect_refused([](rpc_port_parcel_h parcel) {
    Key(parcel, "7", false, 0);
    rpc_port_parcel_write_bool(parcel, true);
  });
}

/// Follows what happens on a connection of its own. Events come while it waits for one.
class Following {
 public:
  Following() {
    EXPECT_EQ(rpc_port_proxy_create(&proxy_), 0);
    EXPECT_EQ(rpc_port_proxy_add_received_event_cb(proxy_, &Following::Received, this), 0);
    EXPECT_EQ(
        rpc_port_proxy_connect_sync(proxy_, "org.zarnet.kavrel", kavrel_programs::kControlPort), 0);
    EXPECT_EQ(rpc_port_proxy_get_port(proxy_, RPC_PORT_PORT_MAIN, &port_), 0);
    EXPECT_EQ(rpc_port_proxy_get_port(proxy_, RPC_PORT_PORT_CALLBACK, &events_), 0);
  }
  ~Following() { rpc_port_proxy_destroy(proxy_); }
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

  ControlReply Ask(kavrel_programs::ControlCommand command) {
    kavrel_programs::ControlRequest request;
    request.command = command;
    int sequence = 0;
    EXPECT_EQ(kavrel_programs::SendControlRequest(port_, request, sequence), 0);
    int error = 0;
    return kavrel_programs::ReadControlReply(port_, sequence, error).value_or(ControlReply{});
  }

  /// The next event of that kind.
  json WaitFor(const std::string& kind) {
    bool late = false;
    const guint timer =
        g_timeout_add(static_cast<guint>(kGenerous.count()), &Following::Late, &late);
    json found = "no such event";
    while (!late && found.is_string()) {
      for (; !arrived_.empty(); arrived_.pop_front()) {
        if (arrived_.front().value("event", "") != kind) continue;
        found = arrived_.front();
        arrived_.pop_front();
        break;
      }
      if (found.is_string()) g_main_context_iteration(nullptr, TRUE);
    }
    if (!late) g_source_remove(timer);
    return found;
  }

 private:
  static gboolean Late(void* late) {
    *static_cast<bool*>(late) = true;
    return G_SOURCE_REMOVE;
  }

  static void Received(const char* /*endpoint*/, const char* /*port*/, void* self) {
    auto& following = *static_cast<Following*>(self);
    int error = 0;
    const ControlParcel parcel = ControlParcel::Take(following.events_, error);
    ControlReply part;
    EXPECT_EQ(kavrel_programs::DecodeControlPart(parcel, part), 0);
    following.arrived_.push_back(json::parse(part.text));
  }

  rpc_port_proxy_h proxy_ = nullptr;
  rpc_port_h port_ = nullptr;
  rpc_port_h events_ = nullptr;
  std::deque<json> arrived_;
};

TEST_F(ControlPort, TellsFollowersWhatHappens) {
  Following following;
  EXPECT_EQ(following.Ask(kavrel_programs::ControlCommand::kFollow).text, R"({"sequence":0})");
  EXPECT_EQ(Tool({"set", "pip_focus", "7"}).exit_code, 0);
  EXPECT_EQ(Tool({"call", "show-sleep-timer-popup", "1"}).exit_code, 0);
  const json set = following.WaitFor("set");
  EXPECT_EQ(set["property"], "pip_focus");
  EXPECT_EQ(set["value"], 7);
  const json call = following.WaitFor("call");
  EXPECT_EQ(call["method"], "ShowSleepTimerPopup");
  EXPECT_EQ(call["arguments"], json::parse(R"({"show":1})"));
  EXPECT_EQ(call["client"]["sender"], "kavrelctl");
  EXPECT_EQ(call["state"], json::parse(R"({"visible_banners":"sleep-timer",
      "banner_show_state":1,"use_4_direction_key":1})"));
  EXPECT_EQ(Tool({"keys", "send", "7", "--device", "vr"}).exit_code, 0);
  const json key = following.WaitFor("key");
  EXPECT_EQ(key["device"], "vr");
  EXPECT_EQ(key["taken_by"], "viewer");
}

TEST_F(ControlPort, LooksForWhatOthersHaveSet) {
  Following following;
  following.Ask(kavrel_programs::ControlCommand::kFollow);
  EXPECT_EQ(Tool({"set", "analog_clean_view_state", "on"}).exit_code, 0);
  const json answer = json::parse(following.Ask(kavrel_programs::ControlCommand::kLook).text);
  EXPECT_EQ(answer["sequence"], 1);
  const json set = following.WaitFor("set");
  EXPECT_EQ(set["sequence"], 1);
  EXPECT_EQ(set["value"], true);
}

TEST_F(ControlPort, ServesSixteenFollowersAndForgetsThem) {
  for (int round = 0; round < 2; ++round) {
    std::vector<std::unique_ptr<Following>> all;
    for (int i = 0; i < 16; ++i) {
      all.push_back(std::make_unique<Following>());
      ControlReply reply;
      // The viewer may not have noticed yet that those of the first round have gone.
      do {
        reply = all.back()->Ask(kavrel_programs::ControlCommand::kFollow);
      } while (!reply.done && round > 0);
      EXPECT_TRUE(reply.done) << reply.text;
    }
    Following late;
    EXPECT_FALSE(late.Ask(kavrel_programs::ControlCommand::kFollow).done);
    EXPECT_EQ(Tool({"keys", "send", "7"}).exit_code, 0);
    for (const auto& following : all) EXPECT_EQ(following->WaitFor("key")["key"], "7");
  }
}

TEST_F(ControlPort, TellsAboutItself) {
  Following connection;
  const json about = json::parse(connection.Ask(kavrel_programs::ControlCommand::kAbout).text);
  EXPECT_EQ(about["version"], KAVREL_VERSION);
  EXPECT_EQ(about["pid"], viewer_->pid());
  EXPECT_EQ(about["app_id"], "org.zarnet.kavrel");
  EXPECT_EQ(about["clients"], json::array());
}

TEST_F(ControlPort, ServesManyInARow) {
  for (int i = 0; i < 50; ++i) {
    const ControlReply reply = Send([](rpc_port_parcel_h parcel) { Key(parcel, "7", true, 4); });
    EXPECT_TRUE(reply.done);
    EXPECT_EQ(reply.text, R"({"key":"7","type":"released","taken_by":"nobody","plugin":null,)"
                          R"("exclusive":false})");
  }
}

TEST_F(ControlPort, TellsWhatIsOnTheScreen) {
  const auto screen = [&] {
    const ControlReply reply =
        Send([](rpc_port_parcel_h parcel) { rpc_port_parcel_write_int32(parcel, 4); });
    EXPECT_TRUE(reply.done) << reply.text;
    return nlohmann::json::parse(reply.text);
  };
  EXPECT_EQ(screen()["banners"], nlohmann::json::array());
  Tool({"call", "show-source-banner", "1", "HDMI", "Player", "1080p"});
  Tool({"call", "show-sleep-timer-popup", "1"});
  EXPECT_EQ(screen()["banners"],
            nlohmann::json::parse(R"([{"name":"source","texts":["HDMI","Player","1080p"]}])"));
  EXPECT_EQ(screen()["popups"][0]["name"], "sleep-timer");
  EXPECT_EQ(screen()["viewer_state"], "RESUME");
}

}  // namespace
}  // namespace kavrel_test
