// Clients that send what is no parcel, half a parcel, or more than parcels.
#include <malloc.h>

#include <string>
#include <vector>

#include "descriptors.h"
#include "hostile_test.h"

namespace {

using kavrel_test::OpenDescriptors;
using rpc_test::Bytes;
using rpc_test::CountLog;
using rpc_test::FrameBuilder;
using rpc_test::IntFrame;
using rpc_test::RawClient;
using rpc_test::WaitForLog;

class ParcelAttack : public rpc_test::HostileTest {};

// A service that honest raw clients understand, or the attacks below would prove nothing.
TEST_F(ParcelAttack, HonestBytesAreServed) {
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  ASSERT_TRUE(client.main.Send(IntFrame(6)));
  const auto answer = client.main.ReadFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ(*answer, FrameBuilder().Tag("test").Int(7).Build());
  EXPECT_EQ(CountLog(""), 0U);
}

TEST_F(ParcelAttack, HalfParcelsAreDroppedAndNobodyWaits) {
  Set("KAVREL_RPC_PARTIAL_TIMEOUT_MS", "300");
  Start();
  const Bytes frame = FrameBuilder().Tag("1.9.1").Int(1).Text("text").Bool(1).Count(3).Build();
  std::vector<std::unique_ptr<RawClient>> stallers;
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    stallers.push_back(std::make_unique<RawClient>(runtime(), kName));
    ASSERT_TRUE(stallers.back()->is_connected);
    ASSERT_TRUE(
        stallers.back()->main.Send(Bytes(frame.begin(), frame.begin() + static_cast<int>(cut))));
    ExpectOthersServed();
  }
  for (const auto& staller : stallers) EXPECT_TRUE(staller->main.WaitForHangUp());
  ExpectOthersServed();
  Settle();
  EXPECT_EQ(CountLog("dropped: has sent half a parcel for too long"), stallers.size());
  EXPECT_EQ(CountLog("\"org.zarnet.raw\" (user "), stallers.size());
  EXPECT_EQ(CountLog("the connection " + stallers[0]->instance), 1U);
}

TEST_F(ParcelAttack, ParcelInPiecesIsOneParcel) {
  Start();
  RawClient client(runtime(), kName);
  const Bytes frame = IntFrame(20);
  for (const std::uint8_t byte : frame) ASSERT_TRUE(client.main.Send({byte}));
  EXPECT_TRUE(client.main.ReadFrame());
  // Two and a half at once, then the rest.
  Bytes several = frame;
  several.insert(several.end(), frame.begin(), frame.end());
  several.insert(several.end(), frame.begin(), frame.begin() + 9);
  ASSERT_TRUE(client.main.Send(several));
  EXPECT_TRUE(client.main.ReadFrame());
  EXPECT_TRUE(client.main.ReadFrame());
  ASSERT_TRUE(client.main.Send(Bytes(frame.begin() + 9, frame.end())));
  EXPECT_TRUE(client.main.ReadFrame());
}

TEST_F(ParcelAttack, WholeRequestsBeforeAHalfOneAreDelivered) {
  Start();
  RawClient client(runtime(), kName);
  Bytes bytes = IntFrame(1);
  bytes.push_back(77);
  ASSERT_TRUE(client.main.Send(bytes));
  EXPECT_TRUE(client.main.ReadFrame());
  client.main.Close();
  EXPECT_TRUE(service().WaitForEvent("disconnected " + client.instance));
}

struct BadFrame {
  const char* name;
  Bytes bytes;
};

std::string NameOf(const testing::TestParamInfo<BadFrame>& info) {
  return info.param.name;
}

class BadFrameAttack : public ParcelAttack, public testing::WithParamInterface<BadFrame> {};

TEST_P(BadFrameAttack, IsDroppedWithOneLine) {
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  ASSERT_TRUE(client.main.Send(GetParam().bytes));
  EXPECT_TRUE(client.main.WaitForHangUp());
  EXPECT_TRUE(service().WaitForEvent("disconnected " + client.instance));
  ExpectOthersServed();
  EXPECT_EQ(CountLog(""), 1U);
  EXPECT_EQ(CountLog("dropped: "), 1U);
  EXPECT_EQ(CountLog("for too long"), 0U) << "not because of its bytes";
  EXPECT_EQ(CountLog(client.instance + " of \"org.zarnet.raw\" (user "), 1U);
  EXPECT_EQ(rpc_test::Count(service().events().Get(), "request " + client.instance), 0U);
}

Bytes Sized(std::uint32_t size) {
  return FrameBuilder().Size(size).Int(1).Build();
}

INSTANTIATE_TEST_SUITE_P(
    Frames, BadFrameAttack,
    testing::Values(
        BadFrame{"SizeZero", Sized(0)}, BadFrame{"SizeOne", Sized(1)},
        BadFrame{"SizeBelowHeader", Sized(9)}, BadFrame{"SizeAboveLimit", Sized(1024 * 1024 + 1)},
        BadFrame{"SizeLargestInt", Sized(0x7fffffff)}, BadFrame{"SizeMinusOne", Sized(0xffffffff)},
        BadFrame{"UnknownItem", FrameBuilder().Int(1).Raw({'x', 0, 0, 0, 0}).Build()},
        BadFrame{"ItemTypeZero", FrameBuilder().Raw({0}).Build()},
        BadFrame{"BoolTwo", FrameBuilder().Bool(2).Build()},
        BadFrame{"BoolCutShort", FrameBuilder().Raw({'b'}).Build()},
        BadFrame{"IntCutShort", FrameBuilder().Raw({'i', 1, 2, 3}).Build()},
        BadFrame{"CountCutShort", FrameBuilder().Raw({'a'}).Build()},
        BadFrame{"TextSizeCutShort", FrameBuilder().Raw({'s', 1, 0}).Build()},
        BadFrame{"TextOfSizeZero", FrameBuilder().RawText(0, "").Build()},
        BadFrame{"TextLongerThanParcel", FrameBuilder().RawText(100, "abc").Build()},
        BadFrame{"TextOfLargestSize", FrameBuilder().RawText(0xffffffff, "abc").Build()},
        BadFrame{"TextWithoutNul", FrameBuilder().RawText(3, "abc").Build()},
        BadFrame{"TextWithNulInside", FrameBuilder().RawText(4, std::string("a\0c\0", 4)).Build()},
        BadFrame{"TagWithoutNul", FrameBuilder().RawTag("1.9.1").Build()},
        BadFrame{"TagWithNulInside", FrameBuilder().RawTag(std::string("1\0.9\0", 5)).Build()},
        BadFrame{"TagAboveLimit", FrameBuilder().Tag(std::string(256, 't')).Build()},
        BadFrame{"TagLongerThanParcel", FrameBuilder().Raw({}).Size(10).Tag("12345678").Build()}),
    NameOf);

TEST_F(ParcelAttack, StatedSizesTakeNoMemory) {
  Start();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 100; ++i) {
    clients.push_back(std::make_unique<RawClient>(runtime(), kName));
    ASSERT_TRUE(clients.back()->is_connected);
  }
  const auto in_use = [] {
    const auto info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const std::size_t before = in_use();
  for (const auto& client : clients) {
    ASSERT_TRUE(client->main.Send(FrameBuilder().Size(1024 * 1024).Int(1).Build()));
  }
  ExpectOthersServed();
  EXPECT_LT(in_use(), before + std::size_t{1024} * 1024);
}

TEST_F(ParcelAttack, CountsAreTheReadersToRefuse) {
  rpc_test::Watched<std::vector<int>> counts;
  Start();
  const auto handler = service().SetHandler([&](const std::string&, rpc_port_h port) {
    const auto request = rpc_test::Receive(port);
    int count = 0;
    if (rpc_port_parcel_read_array_count(request.parcel.get(), &count) == 0) {
      counts.Update([&](auto& all) { all.push_back(count); });
    }
    return 0;
  });
  RawClient client(runtime(), kName);
  const std::vector<int> sent = {-1, INT32_MAX, INT32_MIN, 1000000};
  for (const int count : sent) ASSERT_TRUE(client.main.Send(FrameBuilder().Count(count).Build()));
  EXPECT_TRUE(counts.WaitUntil([&](const auto& all) { return all == sent; }));
}

class DescriptorAttack : public ParcelAttack, public testing::WithParamInterface<int> {};

TEST_P(DescriptorAttack, IsDropped) {
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  const long before = OpenDescriptors();
  ASSERT_TRUE(client.main.SendWithDescriptors(IntFrame(1), GetParam()));
  EXPECT_TRUE(client.main.WaitForHangUp());
  ASSERT_TRUE(service().WaitForEvent("disconnected " + client.instance));
  service().thread().Do([] {});
  ExpectOthersServed();
  EXPECT_EQ(OpenDescriptors(), before - 2);  // the service's two sockets of this client
  EXPECT_EQ(CountLog("dropped: sends descriptors"), 1U);
  EXPECT_EQ(rpc_test::Count(service().events().Get(), "request " + client.instance), 0U);
}

INSTANTIATE_TEST_SUITE_P(Counts, DescriptorAttack, testing::Values(1, 16, 253));

TEST_F(ParcelAttack, DescriptorsInAGreetingAreDropped) {
  Start();
  const long before = OpenDescriptors();
  rpc_test::RawSocket socket(runtime(), kName);
  ASSERT_TRUE(socket.SendWithDescriptors(rpc_test::HelloBytes(rpc_test::kMagic, 1, 0, "raw"), 3));
  EXPECT_TRUE(socket.WaitForHangUp());
  EXPECT_TRUE(WaitForLog("dropped: sends descriptors"));
  socket.Close();
  ExpectOthersServed();
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(ParcelAttack, ClientThatDoesNotReadIsDropped) {
  Start();
  const auto handler = service().SetHandler([](const std::string&, rpc_port_h port) {
    const auto request = rpc_test::Receive(port);
    if (request.parcel.Int() == 41) {
      rpc_test::ParcelOwner answer;
      answer.SetSequence(request.parcel.sequence());
      answer.Int(42);
      return rpc_port_parcel_send(answer.get(), port);
    }
    rpc_test::ParcelOwner large;
    large.Text(std::string(100000, 'x'));
    return rpc_port_parcel_send(large.get(), port);
  });
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  // 4 MiB and what the sockets hold are full after some 50 requests.
  bool was_refused = false;
  for (int i = 0; i < 1000 && !was_refused; ++i) {
    was_refused = !client.main.Send(IntFrame(1));
    ExpectOthersServed();
  }
  EXPECT_TRUE(was_refused);
  EXPECT_TRUE(service().WaitForEvent("disconnected " + client.instance));
  EXPECT_EQ(CountLog("dropped: does not read what it is sent"), 1U);
  ExpectOthersServed();
}

TEST_F(ParcelAttack, SlowReaderGetsEverythingInOrder) {
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  const rpc_port_h port = service().PortOf(client.instance);
  // More than a socket holds, less than the cap.
  constexpr int kParcels = 30;
  for (int i = 0; i < kParcels; ++i) {
    rpc_test::ParcelOwner parcel;
    parcel.Int(i).Text(std::string(100000, static_cast<char>('a' + i % 26)));
    ASSERT_EQ(rpc_port_parcel_send(parcel.get(), port), 0);
  }
  for (int i = 0; i < kParcels; ++i) {
    const auto frame = client.main.ReadFrame();
    ASSERT_TRUE(frame);
    ASSERT_EQ((*frame)[11], i);
    ASSERT_EQ(frame->back(), 0);
    ASSERT_EQ((*frame)[frame->size() - 2], 'a' + i % 26);
  }
  // And requests are still read.
  ASSERT_TRUE(client.main.Send(IntFrame(1)));
  EXPECT_TRUE(client.main.ReadFrame());
}

TEST_F(ParcelAttack, FloodOfOneDoesNotStarveOthers) {
  Start();
  std::atomic<bool> is_over{false};
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.is_connected);
  const auto handler = service().SetHandler([&](const std::string& id, rpc_port_h port) {
    if (id != client.instance) return rpc_test::TestService::Answer(port);
    return rpc_test::Receive(port).result;
  });
  std::thread flood([&] {
    Bytes many;
    for (int i = 0; i < 500; ++i) {
      const Bytes one = IntFrame(i);
      many.insert(many.end(), one.begin(), one.end());
    }
    while (!is_over) client.main.Send(many);
  });
  for (int i = 0; i < 200; ++i) EXPECT_EQ(honest().Call(i), i + 1);
  is_over = true;
  flood.join();
}

TEST_F(ParcelAttack, DataOnTheCallbackSocketHarmsNobody) {
  Start();
  RawClient client(runtime(), kName);
  ASSERT_TRUE(client.callback.Send(IntFrame(1)));
  ASSERT_TRUE(client.main.Send(IntFrame(1)));
  EXPECT_TRUE(client.main.ReadFrame());
  client.callback.Close();
  ASSERT_TRUE(client.main.Send(IntFrame(1)));
  EXPECT_TRUE(client.main.ReadFrame());
  rpc_test::ParcelOwner parcel;
  EXPECT_NE(
      rpc_port_parcel_send(parcel.get(), service().PortOf(client.instance, RPC_PORT_PORT_CALLBACK)),
      0);
  ExpectOthersServed();
}

}  // namespace
