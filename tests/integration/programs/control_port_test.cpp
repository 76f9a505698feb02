// What anybody might send to the viewer's control port.
#include <control_protocol.h>
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "programs.h"

namespace kavrel_test {
namespace {

using kavrel_programs::ControlParcel;
using kavrel_programs::ControlReply;

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
