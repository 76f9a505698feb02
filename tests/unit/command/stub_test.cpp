// The stub's life: construction, listening, connections, disconnections, requests as a whole.
#include <stdexcept>

#include "stub_fixture.h"

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Call = ServiceLog::Call;

TEST_F(StubTest, RegistersForEventsInOrder) {
  stub_.reset();
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("stub_create(stub1, KavrelAppApi)", "stub_add_connected_event_cb(stub1)",
                          "stub_add_disconnected_event_cb(stub1)",
                          "stub_add_received_event_cb(stub1)", "stub_destroy(stub1)"));
}

TEST_F(StubTest, ThrowsWhenNoStubCanBeMade) {
  Forget();
  rpc_.Fail("stub_create", -12);
  EXPECT_THROW(stub::KavrelAppApi(), stub::InvalidIOException);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("stub_create(stub2, KavrelAppApi)",
                          StubLine(6, "KavrelAppApi", "Failed to create stub handle")));
}

TEST_F(StubTest, Listens) {
  Forget();
  stub_->Listen(factory_);
  EXPECT_THAT(TakeTimeline(), ElementsAre("stub_listen(stub1)"));
}

TEST_F(StubTest, ThrowsForTwoFailuresToListen) {
  for (const int result : {-22, -5}) {
    Forget();
    rpc_.Fail("stub_listen", result);
    EXPECT_THROW(stub_->Listen(factory_), stub::InvalidIOException);
    EXPECT_THAT(TakeTimeline(),
                ElementsAre("stub_listen(stub1)", StubLine(6, "Listen", "Failed to listen stub")));
  }
}

TEST_F(StubTest, OnlyLogsOtherFailuresToListen) {
  for (const int result : {-13, -1, 1}) {
    Forget();
    rpc_.Fail("stub_listen", result);
    stub_->Listen(factory_);
    EXPECT_THAT(TakeTimeline(),
                ElementsAre("stub_listen(stub1)", StubLine(6, "Listen", "Failed to listen stub")));
  }
}

TEST_F(StubTest, ListenReplacesTheFactory) {
  stub_->Listen(factory_);
  const std::weak_ptr<RecordingFactory> first = factory_;
  factory_ = std::make_shared<RecordingFactory>(services_);
  EXPECT_FALSE(first.expired());
  stub_->Listen(factory_);
  EXPECT_TRUE(first.expired());
  ConnectClient();
  EXPECT_NE(factory_->latest, nullptr);
}

TEST_F(StubTest, AConnectionGetsAServiceWithItsCallbackPort) {
  Listen();
  rpc_.RaiseClientConnected("client", "i1");
  EXPECT_THAT(TakeTimeline(), ElementsAre("stub_get_port(stub1, callback, i1)"));
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "OnClientConnected", {}}));
  EXPECT_EQ(factory_->latest->GetSender(), "client");
  EXPECT_EQ(factory_->latest->GetInstance(), "i1");
  factory_->latest->Disconnect();
  EXPECT_EQ(rpc_.TakeCalls().back(), "disconnect(callback1)");
}

TEST_F(StubTest, AConnectionWithoutCallbackPortGetsNoService) {
  Listen();
  rpc_.Fail("stub_get_port", -2);
  rpc_.RaiseClientConnected("client", "i1");
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("stub_get_port(stub1, callback, i1)",
                          StubLine(6, "OnConnectedCB", "Failed to get the port(-2)")));
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  EXPECT_EQ(services_.alive, 0);
  rpc_.RaiseClientDisconnected("client", "i1");
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  EXPECT_THAT(TakeTimeline(), IsEmpty());
}

TEST_F(StubTest, AClientWithoutServiceIsRefused) {
  const auto expect_refused = [this] {
    Forget();
    rpc_.RaiseClientConnected("client", "i1");
    EXPECT_THAT(TakeLines(), SizeIs(1));
    EXPECT_THAT(rpc_.TakeCalls().back(), testing::StartsWith("disconnect(callback"));
    EXPECT_EQ(services_.alive, 0);
    EXPECT_EQ(Request({11, 1}), -1);
    rpc_.RaiseClientDisconnected("client", "i1");
    EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  };
  expect_refused();  // before Listen
  Listen();
  factory_->make_nothing = true;
  expect_refused();
  factory_->fail = [] { throw std::runtime_error("no thread"); };
  expect_refused();
}

TEST_F(StubTest, InstancesOfOneSenderHaveServicesOfTheirOwn) {
  ConnectClient();
  rpc_.RaiseClientConnected("client", "i2");
  EXPECT_EQ(services_.alive, 2);
  services_.TakeCalls();
  rpc_.RaiseClientDisconnected("client", "i1");
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "OnClientDisconnected", {}}));
  EXPECT_EQ(services_.alive, 1);
  EXPECT_EQ(Request({11, 1}), -1);
  EXPECT_EQ(rpc_.RaiseRequest("client", "i2", {"1.9.1", 1, {11, 1}}), 0);
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i2", "ShowChannelBanner", {1}}));
}

TEST_F(StubTest, ADisconnectionOfNobodyIsIgnored) {
  ConnectClient();
  rpc_.RaiseClientDisconnected("client", "unknown");
  EXPECT_THAT(TakeTimeline(), IsEmpty());
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  EXPECT_EQ(services_.alive, 1);
}

TEST_F(StubTest, TheEndTellsAllServicesBeforeTheHandleGoes) {
  Listen();
  for (const char* const instance : {"i1", "i2", "i3"}) {
    rpc_.RaiseClientConnected("client", instance);
  }
  services_.TakeCalls();
  Forget();
  std::vector<std::string> calls_before_each;
  services_.in_call = [&] {
    for (const std::string& call : rpc_.TakeCalls()) calls_before_each.push_back(call);
  };
  rpc_.TakeCalls();
  stub_.reset();
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "OnClientDisconnected", {}},
                                                 Call{"i2", "OnClientDisconnected", {}},
                                                 Call{"i3", "OnClientDisconnected", {}}));
  EXPECT_THAT(calls_before_each, IsEmpty());
  EXPECT_THAT(TakeTimeline(), ElementsAre("stub_destroy(stub1)"));
  EXPECT_EQ(services_.alive, 0);
  EXPECT_EQ(factory_.use_count(), 1);
}

// The test of the result is the wrong way round and stays so.
TEST_F(StubTest, DisconnectLogsSuccessAndKeepsThePort) {
  ConnectClient();
  factory_->latest->Disconnect();
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("disconnect(callback1)",
                          StubLine(6, "Disconnect", "Failed to disconnect the port(0)")));
  rpc_.Fail("disconnect", -32);
  factory_->latest->Disconnect();
  EXPECT_THAT(TakeTimeline(), ElementsAre("disconnect(callback1)"));
  factory_->latest->Disconnect();
  EXPECT_THAT(TakeTimeline(), ElementsAre("disconnect(null)"));
}

TEST_F(StubTest, ARequestOfAnUnknownInstanceIsRefused) {
  ConnectClient();
  EXPECT_EQ(rpc_.RaiseRequest("client", "unknown", {"1.9.1", 1, {11, 1}}), -1);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre(StubLine(6, "OnReceivedCB", "Failed to find KavrelAppApi context(unknown)")));
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
}

TEST_F(StubTest, AMissingCallbackPortIsLoggedAndIgnored) {
  ConnectClient();
  rpc_.Fail("stub_get_port", -2);
  EXPECT_EQ(Request({11, 1}), 0);
  EXPECT_THAT(TakeLines(), ElementsAre(StubLine(6, "OnReceivedCB", "Failed to get callback port"),
                                       StubLine(5, "OnReceivedCB", "[Sequence] 77")));
  EXPECT_THAT(services_.TakeCalls(), SizeIs(1));
}

TEST_F(StubTest, ARequestThatCannotBeReadEndsWithThatResult) {
  ConnectClient();
  rpc_.Fail("parcel_create_from_port", -74);
  EXPECT_EQ(Request({11, 1}), -74);
  EXPECT_THAT(TakeLines(),
              ElementsAre(StubLine(6, "OnReceivedCB", "Failed to create parcel from port")));
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
}

TEST_F(StubTest, OneWayRequestInOrder) {
  ConnectClient();
  EXPECT_EQ(Request({11, 5}), 0);
  EXPECT_THAT(
      WithoutReads(TakeTimeline()),
      ElementsAre("stub_get_port(stub1, callback, i1)", "parcel_create_from_port(p1, main1)",
                  "parcel_get_header(p1)", "parcel_header_get_seq_num(h1)",
                  StubLine(5, "OnReceivedCB", "[Sequence] 77"), "parcel_create(p2)",
                  "parcel_get_header(p2)", "parcel_header_set_tag(h2, \"1.9.1\")",
                  "parcel_header_set_seq_num(h2, 77)", "parcel_destroy(p1)", "parcel_destroy(p2)"));
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "ShowChannelBanner", {5}}));
}

TEST_F(StubTest, AnsweredRequestInOrder) {
  ConnectClient();
  services_.answer = {42, true};
  EXPECT_EQ(Request({8}), 0);
  EXPECT_THAT(
      WithoutReads(TakeTimeline()),
      ElementsAre("stub_get_port(stub1, callback, i1)", "parcel_create_from_port(p1, main1)",
                  "parcel_get_header(p1)", "parcel_header_get_seq_num(h1)",
                  StubLine(5, "OnReceivedCB", "[Sequence] 77"), "parcel_create(p2)",
                  "parcel_get_header(p2)", "parcel_header_set_tag(h2, \"1.9.1\")",
                  "parcel_header_set_seq_num(h2, 77)", "parcel_write_int32(p2, 0)",
                  "parcel_write_int32(p2, 42)", "parcel_write_bool(p2, true)",
                  "parcel_send(p2, main1)", StubLine(4, "OnReceivedCB", "Parcel send result(0)"),
                  "parcel_destroy(p1)", "parcel_destroy(p2)"));
  EXPECT_THAT(rpc_.TakeSent(), ElementsAre(SentParcel{"main1", {"1.9.1", 77, {0, 42, true}}}));
}

TEST_F(StubTest, TheSendsResultIsTheHandlers) {
  ConnectClient();
  services_.answer = {1, true};
  rpc_.Fail("parcel_send", -32);
  EXPECT_EQ(Request({8}), -32);
  EXPECT_THAT(TakeLines(), ElementsAre(StubLine(5, "OnReceivedCB", "[Sequence] 77"),
                                       StubLine(4, "OnReceivedCB", "Parcel send result(-32)")));
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
}

TEST_F(StubTest, AFailingParcelOrHeaderEndsTheRequestUncalled) {
  ConnectClient();
  for (const char* const function : {"parcel_create", "parcel_get_header", "parcel_header_set_tag",
                                     "parcel_header_set_seq_num"}) {
    SCOPED_TRACE(function);
    Forget();
    rpc_.Fail(function, -12);
    EXPECT_EQ(Request({11, 1}), -1);
    const std::vector<std::string> lines = TakeLines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_THAT(lines.back(), testing::StartsWith(StubLine(6, "OnReceivedCB", "")));
    EXPECT_THAT(lines.back(), testing::HasSubstr("i1"));
  }
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
}

TEST_F(StubTest, AResultThatCannotBeWrittenIsNotSent) {
  ConnectClient();
  services_.answer = {1, true};
  for (const int nth : {1, 2}) {
    rpc_.Fail("parcel_write_int32", -90, nth);
    EXPECT_EQ(Request({8}), -1);
  }
  rpc_.Fail("parcel_write_bool", -90);
  EXPECT_EQ(Request({8}), -1);
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
}

TEST_F(StubTest, AnUnknownCommandIsRefused) {
  ConnectClient();
  for (const int id : {0, 1, 55, -1, 1000000, -2147483647 - 1, 2147483647}) {
    Forget();
    EXPECT_EQ(Request({id, 1, "text"}), -1);
    EXPECT_THAT(TakeLines(), ElementsAre(StubLine(5, "OnReceivedCB", "[Sequence] 77"),
                                         StubLine(6, "OnReceivedCB",
                                                  "Unknown command(" + std::to_string(id) + ")")));
  }
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
}

TEST_F(StubTest, ADisconnectionDuringAnOperationKeepsItsObject) {
  ConnectClient();
  services_.answer = {1, true};
  int alive_inside = -1;
  services_.in_call = [&] {
    services_.in_call = nullptr;
    rpc_.RaiseClientDisconnected("client", "i1");
    alive_inside = services_.alive;
  };
  EXPECT_EQ(Request({8}), -32);
  EXPECT_EQ(alive_inside, 1);
  EXPECT_EQ(services_.alive, 0);
}

TEST_F(StubTest, MayEndInsideAnOperation) {
  ConnectClient();
  services_.answer = {1, true};
  services_.in_call = [&] {
    services_.in_call = nullptr;
    stub_.reset();
  };
  EXPECT_EQ(Request({8}), -32);
  EXPECT_EQ(services_.alive, 0);
  EXPECT_THAT(rpc_.LiveHandles(), IsEmpty());
}

TEST_F(StubTest, MayEndInsideADisconnection) {
  ConnectClient();
  rpc_.RaiseClientConnected("client", "i2");
  services_.TakeCalls();
  services_.in_call = [&] {
    services_.in_call = nullptr;
    stub_.reset();
  };
  rpc_.RaiseClientDisconnected("client", "i1");
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "OnClientDisconnected", {}},
                                                 Call{"i2", "OnClientDisconnected", {}}));
  EXPECT_EQ(services_.alive, 0);
}

TEST_F(StubTest, ServiceIsThereUntilItHasBeenToldOfItsDisconnection) {
  ConnectClient();
  services_.TakeCalls();
  services_.in_call = [&] {
    services_.in_call = nullptr;
    EXPECT_EQ(Request({11, 1}), 0);
  };
  rpc_.RaiseClientDisconnected("client", "i1");
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "OnClientDisconnected", {}},
                                                 Call{"i1", "ShowChannelBanner", {1}}));
  EXPECT_EQ(services_.alive, 0);
  EXPECT_EQ(Request({11, 1}), -1);
}

TEST_F(StubTest, AnExceptionOfAnOperationPassesThrough) {
  ConnectClient();
  services_.in_call = [&] {
    services_.in_call = nullptr;
    rpc_.RaiseClientDisconnected("client", "i1");
    throw std::runtime_error("an operation's own");
  };
  EXPECT_THROW(Request({11, 1}), std::runtime_error);
  EXPECT_EQ(services_.alive, 0);
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
}

}  // namespace
}  // namespace kavrel_test
