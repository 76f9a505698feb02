// The fake itself: what it records, keeps, raises and notices.
#include "fake_rpc_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string>& Events() {
  static std::vector<std::string> events;
  return events;
}

class FakeRpcPortTest : public testing::Test {
 protected:
  FakeRpcPortTest() { Events().clear(); }

  rpc_port_proxy_h ConnectedProxy() {
    rpc_port_proxy_h proxy = nullptr;
    EXPECT_EQ(rpc_port_proxy_create(&proxy), 0);
    EXPECT_EQ(rpc_port_proxy_connect_sync(proxy, "viewer", "port"), 0);
    return proxy;
  }

  FakeRpcPort rpc_;
};

TEST_F(FakeRpcPortTest, RecordsCallsAndKeepsWhatWasSent) {
  const rpc_port_proxy_h proxy = ConnectedProxy();
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_header_h header = nullptr;
  rpc_.SetNextSequence(7);
  EXPECT_EQ(rpc_port_parcel_create(&parcel), 0);
  EXPECT_EQ(rpc_port_parcel_get_header(parcel, &header), 0);
  EXPECT_EQ(rpc_port_parcel_header_set_tag(header, "1.9.1"), 0);
  EXPECT_EQ(rpc_port_parcel_write_int32(parcel, 8), 0);
  EXPECT_EQ(rpc_port_parcel_write_bool(parcel, true), 0);
  EXPECT_EQ(rpc_port_parcel_write_string(parcel, "text"), 0);
  EXPECT_EQ(rpc_port_parcel_write_array_count(parcel, 3), 0);
  EXPECT_EQ(rpc_port_parcel_send(parcel, rpc_.main_port()), 0);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), 0);
  EXPECT_EQ(rpc_port_proxy_destroy(proxy), 0);
  EXPECT_THAT(rpc_.TakeCalls(),
              ElementsAre("proxy_create(proxy1)", "proxy_connect_sync(proxy1, viewer, port)",
                          "parcel_create(p1)", "parcel_get_header(p1)",
                          "parcel_header_set_tag(h1, \"1.9.1\")", "parcel_write_int32(p1, 8)",
                          "parcel_write_bool(p1, true)", "parcel_write_string(p1, \"text\")",
                          "parcel_write_array_count(p1, 3)", "parcel_send(p1, main1)",
                          "parcel_destroy(p1)", "proxy_destroy(proxy1)"));
  EXPECT_THAT(rpc_.TakeSent(),
              ElementsAre(SentParcel{"main1", {"1.9.1", 7, {8, true, "text", ArrayCount{3}}}}));
  EXPECT_THAT(rpc_.TakeCalls(), IsEmpty());
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), IsEmpty());
  EXPECT_THAT(rpc_.misuses(), IsEmpty());
}

TEST_F(FakeRpcPortTest, GivesQueuedParcelsItemByItem) {
  ConnectedProxy();
  rpc_.Queue(rpc_.main_port(), {"tag", 5, {1, true, "text", ArrayCount{-2}}});
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create_from_port(&parcel, rpc_.main_port()), 0);
  std::int32_t number = 99;
  bool flag = false;
  char* text = nullptr;
  int count = 0;
  EXPECT_EQ(rpc_port_parcel_read_string(parcel, &text), -EBADMSG);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(rpc_port_parcel_read_int32(parcel, &number), 0);
  EXPECT_EQ(rpc_port_parcel_read_bool(parcel, &flag), 0);
  EXPECT_EQ(rpc_port_parcel_read_string(parcel, &text), 0);
  EXPECT_EQ(rpc_port_parcel_read_array_count(parcel, &count), 0);
  EXPECT_EQ(rpc_port_parcel_read_int32(parcel, &number), -ENODATA);
  EXPECT_EQ(number, 1);
  EXPECT_TRUE(flag);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(count, -2);
  EXPECT_EQ(FakeRpcPort::LiveTexts(), 1U);
  std::free(text);
  EXPECT_EQ(FakeRpcPort::LiveTexts(), 0U);
  EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, rpc_.main_port()), -EPIPE);
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1", "p1"));
}

TEST_F(FakeRpcPortTest, KeepsTheHeader) {
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_header_h header = nullptr;
  ASSERT_EQ(rpc_port_parcel_create(&parcel), 0);
  ASSERT_EQ(rpc_port_parcel_get_header(parcel, &header), 0);
  char* tag = nullptr;
  int sequence = 0;
  EXPECT_EQ(rpc_port_parcel_header_get_tag(header, &tag), 0);
  EXPECT_EQ(tag, nullptr);
  rpc_port_parcel_header_set_tag(header, "");
  rpc_port_parcel_header_set_seq_num(header, 17);
  EXPECT_EQ(rpc_port_parcel_header_get_tag(header, &tag), 0);
  EXPECT_STREQ(tag, "");
  std::free(tag);
  EXPECT_EQ(rpc_port_parcel_header_get_seq_num(header, &sequence), 0);
  EXPECT_EQ(sequence, 17);
}

TEST_F(FakeRpcPortTest, FailsWhenTold) {
  rpc_port_parcel_h parcel = nullptr;
  rpc_.Fail("parcel_create", -12);
  EXPECT_EQ(rpc_port_parcel_create(&parcel), -12);
  EXPECT_EQ(rpc_port_parcel_create(&parcel), 0);
  rpc_.Fail("parcel_write_int32", -90, 2);
  EXPECT_EQ(rpc_port_parcel_write_int32(parcel, 1), 0);
  EXPECT_EQ(rpc_port_parcel_write_int32(parcel, 2), -90);
  EXPECT_EQ(rpc_port_parcel_write_int32(parcel, 3), 0);
  rpc_.FailAlways("parcel_destroy", -1);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), -1);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), -1);
  rpc_.Recover("parcel_destroy");
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), 0);
}

TEST_F(FakeRpcPortTest, RaisesTheProxysEvents) {
  rpc_port_proxy_h proxy = nullptr;
  ASSERT_EQ(rpc_port_proxy_create(&proxy), 0);
  int user_data = 0;
  rpc_port_proxy_add_connected_event_cb(
      proxy,
      [](const char* endpoint, const char* port_name, rpc_port_h port, void* data) {
        rpc_port_h callback_port = nullptr;
        rpc_port_proxy_get_port(*static_cast<rpc_port_proxy_h*>(data), RPC_PORT_PORT_CALLBACK,
                                &callback_port);
        Events().push_back(std::string("connected ") + endpoint + ' ' + port_name +
                           (port != callback_port ? " two ports" : " one port"));
      },
      &proxy);
  rpc_port_proxy_add_disconnected_event_cb(
      proxy, [](const char*, const char*, void* data) { ++*static_cast<int*>(data); }, &user_data);
  rpc_port_proxy_add_rejected_event_cb(
      proxy, [](const char*, const char*, void* data) { *static_cast<int*>(data) += 10; },
      &user_data);
  rpc_port_proxy_add_received_event_cb(
      proxy, [](const char*, const char*, void* data) { *static_cast<int*>(data) += 100; },
      &user_data);
  EXPECT_EQ(rpc_port_proxy_connect(proxy, "viewer", "port"), 0);
  EXPECT_EQ(rpc_.main_port(), nullptr);
  rpc_.RaiseConnected();
  EXPECT_THAT(Events(), ElementsAre("connected viewer port two ports"));
  EXPECT_EQ(rpc_.NameOf(rpc_.main_port()), "main1");
  EXPECT_EQ(rpc_.NameOf(rpc_.callback_port()), "callback1");
  rpc_.RaiseDisconnected();
  rpc_.RaiseRejected();
  rpc_.RaiseReceived();
  EXPECT_EQ(user_data, 111);
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_create(&parcel);
  EXPECT_EQ(rpc_port_parcel_send(parcel, rpc_.main_port()), -EPIPE);
}

TEST_F(FakeRpcPortTest, RaisesTheStubsEvents) {
  rpc_port_stub_h stub = nullptr;
  ASSERT_EQ(rpc_port_stub_create(&stub, "port"), 0);
  rpc_port_stub_add_connected_event_cb(
      stub,
      [](const char* sender, const char* instance, void*) {
        Events().push_back(std::string("connected ") + sender + ' ' + instance);
      },
      nullptr);
  rpc_port_stub_add_disconnected_event_cb(
      stub,
      [](const char* sender, const char* instance, void*) {
        Events().push_back(std::string("disconnected ") + sender + ' ' + instance);
      },
      nullptr);
  rpc_port_stub_add_received_event_cb(
      stub,
      [](const char*, const char*, rpc_port_h port, void*) {
        rpc_port_parcel_h parcel = nullptr;
        std::int32_t number = 0;
        rpc_port_parcel_create_from_port(&parcel, port);
        rpc_port_parcel_read_int32(parcel, &number);
        return number;
      },
      nullptr);
  EXPECT_EQ(rpc_port_stub_listen(stub), 0);
  rpc_port_h port = nullptr;
  EXPECT_EQ(rpc_port_stub_get_port(stub, RPC_PORT_PORT_CALLBACK, "i1", &port), -ENOENT);
  rpc_.RaiseClientConnected("client", "i1");
  EXPECT_EQ(rpc_port_stub_get_port(stub, RPC_PORT_PORT_CALLBACK, "i1", &port), 0);
  EXPECT_EQ(rpc_.NameOf(port), "callback1");
  EXPECT_EQ(rpc_.RaiseRequest("client", "i1", {std::nullopt, 1, {17}}), 17);
  EXPECT_EQ(rpc_port_disconnect(port), 0);
  EXPECT_EQ(rpc_port_disconnect(port), -EPIPE);
  rpc_.RaiseClientDisconnected("client", "i1");
  EXPECT_EQ(rpc_port_stub_get_port(stub, RPC_PORT_PORT_CALLBACK, "i1", &port), -ENOENT);
  EXPECT_THAT(Events(), ElementsAre("connected client i1", "disconnected client i1"));
}

TEST_F(FakeRpcPortTest, NoticesTheUseOfWhatIsGone) {
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_header_h header = nullptr;
  rpc_port_parcel_create(&parcel);
  rpc_port_parcel_get_header(parcel, &header);
  rpc_port_parcel_destroy(parcel);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), -EINVAL);
  EXPECT_EQ(rpc_port_parcel_header_set_tag(header, "tag"), -EINVAL);
  EXPECT_EQ(rpc_port_parcel_send(header, header), -EINVAL);
  EXPECT_EQ(rpc_port_disconnect(nullptr), -EINVAL);
  EXPECT_THAT(rpc_.misuses(), ElementsAre("parcel_destroy(p1)", "parcel_header_set_tag(h1)",
                                          "parcel_send(h1)", "parcel_send(h1)"));
}

TEST_F(FakeRpcPortTest, LetsTheTestAnswerAtTheSend) {
  ConnectedProxy();
  rpc_.OnSend([this](rpc_port_h port, const ParcelContent& content) {
    rpc_.Queue(port, {"answer", content.sequence, {0}});
  });
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_create(&parcel);
  EXPECT_EQ(rpc_port_parcel_send(parcel, rpc_.main_port()), 0);
  EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, rpc_.main_port()), 0);
}

}  // namespace
}  // namespace kavrel_test
