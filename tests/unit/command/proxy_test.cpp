// The proxy's life: construction, connection, events, the order of its calls, callbacks, threads.
#include <unistd.h>

#include <algorithm>
#include <future>
#include <memory>
#include <thread>

#include "command_fixture.h"
#include "temporary_directory.h"

namespace kavrel_test {
namespace {

using proxy::KavrelAppApi;
using proxy::ProxyTestAccess;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ProxyLife : public CommandTest {
 protected:
  CountingListener listener_;
};

TEST_F(ProxyLife, RegistersForEventsInOrderAndDestroysNothingElse) {
  { const KavrelAppApi proxy(&listener_, "viewer"); }
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre("proxy_create(proxy1)", "proxy_add_connected_event_cb(proxy1)",
                  "proxy_add_disconnected_event_cb(proxy1)", "proxy_add_rejected_event_cb(proxy1)",
                  "proxy_add_received_event_cb(proxy1)", "proxy_destroy(proxy1)"));
  EXPECT_EQ(listener_.connected + listener_.disconnected + listener_.rejected, 0);
}

TEST_F(ProxyLife, ThrowsWhenNoProxyCanBeMade) {
  rpc_.Fail("proxy_create", -12);
  EXPECT_THROW(KavrelAppApi(&listener_, "viewer"), proxy::InvalidIOException);
  EXPECT_THAT(TakeTimeline(), ElementsAre("proxy_create(proxy1)",
                                          ProxyLine(6, "KavrelAppApi", "Failed to create proxy")));
}

TEST_F(ProxyLife, NeitherDisconnectsNorTellsItsListenerAtTheEnd) {
  {
    KavrelAppApi proxy(&listener_, "viewer");
    proxy.Connect(true);
    Forget();
  }
  EXPECT_THAT(TakeTimeline(), ElementsAre("proxy_destroy(proxy1)"));
  EXPECT_EQ(listener_.disconnected, 0);
}

class ProxyConnect : public ProxyTest {
 protected:
  ProxyConnect() { Forget(); }

  template <class E>
  void ExpectFailure(bool sync, int result) {
    const std::string function = sync ? "proxy_connect_sync" : "proxy_connect";
    rpc_.Fail(function, result);
    EXPECT_THROW(proxy_.Connect(sync), E) << result;
    EXPECT_THAT(TakeTimeline(),
                ElementsAre(function + "(proxy1, viewer, KavrelAppApi)",
                            ProxyLine(6, "Connect", "Failed to connect KavrelAppApi")));
  }
};

TEST_F(ProxyConnect, WaitsOrNotAsItIsAsked) {
  proxy_.Connect(false);
  EXPECT_THAT(TakeTimeline(), ElementsAre("proxy_connect(proxy1, viewer, KavrelAppApi)"));
  EXPECT_EQ(listener_.connected, 0);
  proxy_.Connect(true);
  EXPECT_THAT(TakeTimeline(), ElementsAre("proxy_connect_sync(proxy1, viewer, KavrelAppApi)",
                                          "proxy_get_port(proxy1, callback)"));
  EXPECT_EQ(listener_.connected, 1);
}

TEST_F(ProxyConnect, MapsThreeFailuresToExceptions) {
  for (const bool sync : {true, false}) {
    ExpectFailure<proxy::InvalidIDException>(sync, -22);
    ExpectFailure<proxy::PermissionDeniedException>(sync, -13);
    ExpectFailure<proxy::InvalidIOException>(sync, -5);
  }
}

TEST_F(ProxyConnect, OnlyLogsOtherFailures) {
  for (const int result : {-1, -110, -111, 1}) {
    for (const bool sync : {true, false}) {
      rpc_.Fail(sync ? "proxy_connect_sync" : "proxy_connect", result);
      proxy_.Connect(sync);
      EXPECT_THAT(TakeLines(),
                  ElementsAre(ProxyLine(6, "Connect", "Failed to connect KavrelAppApi")));
    }
  }
  EXPECT_THROW(proxy_.ExitTTX("reason"), proxy::NotConnectedSocketException);
}

TEST_F(ProxyConnect, ReplacesBothPortsOnAReconnection) {
  proxy_.Connect(true);
  rpc_.RaiseDisconnected();
  proxy_.Connect(true);
  Forget();
  proxy_.ShowChannelBanner(1);
  EXPECT_THAT(rpc_.TakeSent(), ElementsAre(SentParcel{"main2", {"1.9.1", 1, {11, 1}}}));
  rpc_.TakeCalls();
  rpc_.RaiseReceived();
  EXPECT_THAT(rpc_.TakeCalls(), ElementsAre("parcel_create_from_port(p2, callback2)"));
}

TEST_F(ProxyConnect, DisconnectActsOnTheMainPortAsItStands) {
  EXPECT_THROW(proxy_.Disconnect(), proxy::InvalidIDException);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("disconnect(null)",
                          ProxyLine(6, "Disconnect", "Failed to disconnect KavrelAppApi")));
  Connect();
  proxy_.Disconnect();
  EXPECT_THAT(TakeTimeline(), ElementsAre("disconnect(main1)"));
  EXPECT_EQ(listener_.disconnected, 0);
  EXPECT_THROW(proxy_.Disconnect(), proxy::InvalidIDException);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("disconnect(main1)",
                          ProxyLine(6, "Disconnect", "Failed to disconnect KavrelAppApi")));
}

class ProxyCalls : public ProxyTest {
 protected:
  ProxyCalls() { Connect(); }
};

TEST_F(ProxyCalls, OneWayCallInOrder) {
  proxy_.SendMbrKey(1, 2, 3, "four", {"a", "b"});
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("parcel_create(p1)", "parcel_get_header(p1)",
                          "parcel_header_set_tag(h1, \"1.9.1\")", "parcel_header_get_seq_num(h1)",
                          ProxyLine(5, "SendMbrKey", "[Version] \"1.9.1\", [Sequence] 1"),
                          "parcel_write_int32(p1, 10)", "parcel_write_int32(p1, 1)",
                          "parcel_write_int32(p1, 2)", "parcel_write_int32(p1, 3)",
                          "parcel_write_string(p1, \"four\")", "parcel_write_array_count(p1, 2)",
                          "parcel_write_string(p1, \"a\")", "parcel_write_string(p1, \"b\")",
                          "parcel_send(p1, main1)", "parcel_destroy(p1)"));
}

TEST_F(ProxyCalls, FailedSendInOrder) {
  rpc_.Fail("parcel_send", -110);
  EXPECT_THROW(proxy_.ShowChannelBanner(5), proxy::InvalidIOException);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("parcel_create(p1)", "parcel_get_header(p1)",
                          "parcel_header_set_tag(h1, \"1.9.1\")", "parcel_header_get_seq_num(h1)",
                          ProxyLine(5, "ShowChannelBanner", "[Version] \"1.9.1\", [Sequence] 1"),
                          "parcel_write_int32(p1, 11)", "parcel_write_int32(p1, 5)",
                          "parcel_send(p1, main1)",
                          ProxyLine(6, "ShowChannelBanner", "Failed to send parcel. result(-110)"),
                          "parcel_destroy(p1)"));
}

TEST_F(ProxyCalls, TwoWayCallInOrder) {
  QueueParcel({"1.9.1", 99, {0, 1, true}});
  QueueResult(1, {42, true});
  int size = 0;
  EXPECT_TRUE(proxy_.GetWindowSize(size));
  EXPECT_EQ(size, 42);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre("parcel_create(p1)", "parcel_get_header(p1)",
                  "parcel_header_set_tag(h1, \"1.9.1\")", "parcel_header_get_seq_num(h1)",
                  ProxyLine(5, "GetWindowSize", "[Version] \"1.9.1\", [Sequence] 1"),
                  "parcel_write_int32(p1, 8)", "parcel_send(p1, main1)",
                  // the result of another request
                  "parcel_create_from_port(p2, main1)", "parcel_read_int32(p2)",
                  "parcel_get_header(p2)", "parcel_header_get_tag(h2)",
                  ProxyLine(5, "GetWindowSize", "[Version] 1.9.1"), "parcel_header_get_seq_num(h2)",
                  ProxyLine(6, "GetWindowSize", "Invalid protocol. 99"), "parcel_destroy(p2)",
                  // the result
                  "parcel_create_from_port(p3, main1)", "parcel_read_int32(p3)",
                  "parcel_get_header(p3)", "parcel_header_get_tag(h3)",
                  ProxyLine(5, "GetWindowSize", "[Version] 1.9.1"), "parcel_header_get_seq_num(h3)",
                  "parcel_read_int32(p3)", "parcel_read_bool(p3)", "parcel_destroy(p3)",
                  "parcel_destroy(p1)"));
}

TEST_F(ProxyCalls, MissingResultInOrder) {
  int size = 17;
  EXPECT_THROW(proxy_.GetWindowSize(size), proxy::InvalidProtocolException);
  EXPECT_EQ(size, 17);
  const std::vector<std::string> timeline = TakeTimeline();
  EXPECT_EQ(timeline.back(), ProxyLine(6, "GetWindowSize", "Invalid protocol"));
  EXPECT_EQ(timeline[timeline.size() - 2], "parcel_create_from_port(p2, main1)");
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1", "p1"));
}

TEST_F(ProxyCalls, RequestWithoutArgumentsIsTheIdAlone) {
  QueueResult(1, {1, true});
  int size = 0;
  proxy_.GetWindowSize(size);
  EXPECT_THAT(rpc_.TakeSent(), ElementsAre(SentParcel{"main1", {"1.9.1", 1, {8}}}));
}

TEST_F(ProxyCalls, EmptyListIsItsCountAlone) {
  proxy_.SendMbrKey(1, 2, 3, "", {});
  EXPECT_THAT(rpc_.TakeSent(),
              ElementsAre(SentParcel{"main1", {"1.9.1", 1, {10, 1, 2, 3, "", ArrayCount{0}}}}));
}

// A sequence number that cannot be read is the preset one.
TEST_F(ProxyCalls, SequenceIsPreset) {
  rpc_.Fail("parcel_header_get_seq_num", -22);
  proxy_.ExitTTX("reason");
  EXPECT_THAT(TakeLines(),
              ElementsAre(ProxyLine(5, "ExitTTX", "[Version] \"1.9.1\", [Sequence] -1")));
}

class ProxyEvents : public ProxyTest {
 protected:
  ProxyEvents() { Connect(); }

  void Receive(const Items& items) {
    rpc_.Queue(rpc_.callback_port(), {std::nullopt, 0, items});
    rpc_.RaiseReceived();
  }

  // Adds a callback and returns it; `calls` gets what it is called with.
  struct Callback final : KavrelAppApi::CallbackBase {
    Callback(int id, bool once, std::vector<std::string>& called, int& alive)
        : CallbackBase(id, once), called_(called), alive_(alive) {
      ++alive_;
    }
    ~Callback() override { --alive_; }
    void OnCallbackReceived(rpc_port_parcel_h parcel) override {
      std::int32_t field = -1;
      rpc_port_parcel_read_int32(parcel, &field);
      called_.push_back(GetTag() + " with " + std::to_string(field));
      if (action) action();
    }

    std::function<void()> action;

   private:
    std::vector<std::string>& called_;
    int& alive_;
  };

  Callback& Add(int id, bool once) {
    auto callback = std::make_unique<Callback>(id, once, called_, alive_);
    Callback& added = *callback;
    ProxyTestAccess::Callbacks(proxy_).push_back(std::move(callback));
    return added;
  }

  std::vector<std::string> called_;
  int alive_ = 0;
};

TEST_F(ProxyEvents, DisconnectionDropsTheCallbacksAndTellsTheListener) {
  Add(1, false);
  Add(2, true);
  rpc_.RaiseDisconnected();
  EXPECT_EQ(alive_, 0);
  EXPECT_EQ(listener_.disconnected, 1);
  EXPECT_THAT(ProxyTestAccess::Callbacks(proxy_), IsEmpty());
}

TEST_F(ProxyEvents, RejectionOnlyTellsTheListener) {
  Add(1, false);
  rpc_.RaiseRejected();
  EXPECT_EQ(listener_.rejected, 1);
  EXPECT_EQ(alive_, 1);
  proxy_.ShowChannelBanner(1);
  EXPECT_THAT(rpc_.TakeSent(), SizeIs(1));
}

TEST_F(ProxyEvents, AFailedReadOfTheCallbackPortIsLogged) {
  rpc_.RaiseReceived();
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("parcel_create_from_port(p1, callback1)",
                          ProxyLine(6, "OnReceivedCB", "Failed to create parcel from port")));
}

TEST_F(ProxyEvents, ACallbackGetsTheParcelAfterItsHeader) {
  Add(3, false);
  Callback& second = Add(3, false);
  Receive({1, 3, second.GetSeqId(), false, 77});
  EXPECT_THAT(called_, ElementsAre(second.GetTag() + " with 77"));
  EXPECT_EQ(alive_, 2);
  EXPECT_EQ(TakeTimeline().back(), "parcel_destroy(p1)");
}

TEST_F(ProxyEvents, AOnceCallbackGoesAfterItsFirstDelivery) {
  const int seq_id = Add(3, true).GetSeqId();
  Receive({1, 3, seq_id, true, 1});
  Receive({1, 3, seq_id, true, 2});
  EXPECT_THAT(called_, SizeIs(1));
  EXPECT_EQ(alive_, 0);
}

// The callback's own field decides, not the one in the parcel.
TEST_F(ProxyEvents, OnceIsTheCallbacksOwn) {
  const int seq_id = Add(3, false).GetSeqId();
  Receive({1, 3, seq_id, true, 1});
  EXPECT_EQ(alive_, 1);
}

TEST_F(ProxyEvents, WhatNobodyWaitsForIsDroppedSilently) {
  const int seq_id = Add(3, false).GetSeqId();
  Receive({1, 4, seq_id, false, 1});         // another kind
  Receive({1, 3, seq_id + 1000, false, 1});  // another instance
  Receive({1});                              // no header
  Receive({1, 3});                           // half a header
  Receive({1, 3, seq_id});                   // nearly all of a header
  Receive({0, 3, seq_id, false, 1});         // a result
  Receive({2, 3, seq_id, false, 1});         // a request
  Receive({});
  EXPECT_THAT(called_, IsEmpty());
  EXPECT_THAT(TakeLines(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1"));
}

TEST_F(ProxyEvents, ACallbackMayDisposeOfItself) {
  Callback& callback = Add(3, true);
  const int seq_id = callback.GetSeqId();
  callback.action = [this, tag = callback.GetTag()] { proxy_.DisposeCallback(tag); };
  Receive({1, 3, seq_id, true, 1});
  EXPECT_EQ(alive_, 0);
}

TEST_F(ProxyEvents, DisposeRemovesTheFirstWithTheTagAlone) {
  const std::string first = Add(1, false).GetTag();
  const std::string second = Add(1, false).GetTag();
  proxy_.DisposeCallback("unknown");
  proxy_.DisposeCallback(first + "0");
  proxy_.DisposeCallback("");
  EXPECT_EQ(alive_, 2);
  proxy_.DisposeCallback(first);
  EXPECT_EQ(alive_, 1);
  EXPECT_EQ(ProxyTestAccess::Callbacks(proxy_).front()->GetTag(), second);
}

TEST_F(ProxyEvents, TheEndDestroysTheCallbacks) {
  {
    KavrelAppApi other(&listener_, "viewer");
    ProxyTestAccess::Callbacks(other).push_back(
        std::make_unique<Callback>(1, false, called_, alive_));
  }
  EXPECT_EQ(alive_, 0);
}

TEST_F(ProxyEvents, CallbacksAreNumberedOneAfterTheOther) {
  Callback& first = Add(3, false);
  Callback& second = Add(3, true);
  EXPECT_EQ(second.GetSeqId(), first.GetSeqId() + 1);
  EXPECT_EQ(first.GetId(), 3);
  EXPECT_FALSE(first.IsOnce());
  EXPECT_TRUE(second.IsOnce());
  EXPECT_EQ(first.GetTag(), "3::" + std::to_string(first.GetSeqId()));
  EXPECT_EQ(second.GetTag(), "3::" + std::to_string(second.GetSeqId()));
}

TEST_F(ProxyEvents, TheCallbackHeaderTravelsInOrder) {
  Callback& callback = Add(3, true);
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_create(&parcel);
  Forget();
  EXPECT_EQ(parcel << callback, parcel);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("parcel_write_int32(p1, 3)",
                          "parcel_write_int32(p1, " + std::to_string(callback.GetSeqId()) + ')',
                          "parcel_write_bool(p1, true)"));
  Callback& other = Add(4, false);
  EXPECT_EQ(parcel >> other, parcel);
  EXPECT_EQ(other.GetTag(), callback.GetTag());
  EXPECT_TRUE(other.IsOnce());
  rpc_port_parcel_destroy(parcel);
}

class ProxyThreads : public ProxyTest {
 protected:
  ProxyThreads() { Connect(); }
};

TEST_F(ProxyThreads, TheLockIsRecursive) {
  rpc_.OnSend([this](rpc_port_h, const ParcelContent& sent) {
    if (sent.items == Items{8}) {
      proxy_.ShowChannelBanner(1);
      QueueResult(sent.sequence, {5, true});
    }
  });
  int size = 0;
  EXPECT_TRUE(proxy_.GetWindowSize(size));
  EXPECT_THAT(rpc_.TakeSent(), SizeIs(2));
}

/// The calls of the fake as they begin, for several threads.
class CallRecord {
 public:
  explicit CallRecord(FakeRpcPort& rpc) : rpc_(rpc) {
    rpc_.Observe([this](const std::string& call) {
      const std::lock_guard lock(mutex_);
      calls_.push_back(call);
    });
  }
  CallRecord(const CallRecord&) = delete;
  CallRecord& operator=(const CallRecord&) = delete;
  ~CallRecord() { rpc_.Observe(nullptr); }

  /// How many calls came before the first that begins like this; all when none does.
  std::size_t PositionOf(const std::string& start) const {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(calls_.begin(), calls_.end(), [&](const std::string& call) {
      return call.starts_with(start);
    });
    return static_cast<std::size_t>(found - calls_.begin());
  }
  bool Has(const std::string& start) const {
    const std::size_t position = PositionOf(start);
    const std::lock_guard lock(mutex_);
    return position < calls_.size();
  }

 private:
  FakeRpcPort& rpc_;
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};

// Whether a thread of this process waits in the kernel, as for a mutex.
bool Waits(pid_t thread) {
  const std::string state = ReadFile("/proc/self/task/" + std::to_string(thread) + "/stat");
  const auto name_end = state.rfind(')');
  return name_end != std::string::npos && state.compare(name_end, 3, ") S") == 0;
}

// The lock is held from the send to the end of the reply, while other requests are being built.
TEST_F(ProxyThreads, OneRequestAtATimeIsOnTheWire) {
  const CallRecord calls(rpc_);
  std::thread other;
  rpc_.OnSend([&](rpc_port_h, const ParcelContent& sent) {
    if (sent.items != Items{8}) return;
    std::promise<pid_t> id;
    other = std::thread([&] {
      id.set_value(::gettid());
      proxy_.ShowCaption(1, "built");
    });
    const pid_t thread = id.get_future().get();
    // Until the other request is built and its thread waits for its turn, or does not wait.
    while (!(calls.Has("parcel_write_string(p2") && Waits(thread)) &&
           !calls.Has("parcel_send(p2")) {
      std::this_thread::yield();
    }
    QueueResult(sent.sequence, {5, true});
  });
  int size = 0;
  EXPECT_TRUE(proxy_.GetWindowSize(size));
  other.join();
  EXPECT_LT(calls.PositionOf("parcel_write_string(p2"), calls.PositionOf("parcel_read_bool("));
  EXPECT_LT(calls.PositionOf("parcel_read_bool("), calls.PositionOf("parcel_send(p2"));
}

TEST_F(ProxyThreads, EightThreadsGetTheirOwnAnswers) {
  rpc_.Observe(nullptr);
  log_.Observe(nullptr);
  rpc_.OnSend([this](rpc_port_h, const ParcelContent& sent) {
    QueueResult(sent.sequence, {std::get<std::int32_t>(sent.items[1]) > 0});
  });
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([this, i] {
      for (int k = 0; k < 50; ++k) {
        EXPECT_EQ(proxy_.StoreSelectionWindowInfo(i % 2, k), i % 2 == 1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(rpc_.TakeSent(), SizeIs(400));
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1"));
}

}  // namespace
}  // namespace kavrel_test
