// Each allocation of each function fails once: -12, nothing half done, and the next call works.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "failing_allocations.h"
#include "hostile_test.h"

namespace {

using kavrel_test::FailingAllocation;
using rpc_test::ParcelOwner;

const std::string kLongText(100000, 'x');

// Makes the first, the second, ... allocation of `call` fail until all succeed. Returns how many
// failed.
template <class Call>
int FailEach(const Call& call) {
  for (int nth = 1;; ++nth) {
    int result = 0;
    bool has_failed = false;
    {
      const FailingAllocation failing(nth);
      result = call();
      has_failed = failing.has_failed();
    }
    EXPECT_EQ(result, has_failed ? -ENOMEM : 0) << "allocation " << nth;
    if (!has_failed || result != -ENOMEM) return nth - 1;
  }
}

class FailingMemory : public rpc_test::HostileTest {};

TEST_F(FailingMemory, OfAParcel) {
  const std::array<ParcelOwner, 8> others;  // have what earlier parcels left behind
  rpc_port_parcel_h parcel = nullptr;
  EXPECT_GE(FailEach([&] { return rpc_port_parcel_create(&parcel); }), 1);
  const ParcelOwner owner(parcel);
  rpc_port_parcel_header_h header = nullptr;
  ASSERT_EQ(rpc_port_parcel_get_header(parcel, &header), 0);
  const std::string tag(200, 't');
  FailEach([&] { return rpc_port_parcel_header_set_tag(header, tag.c_str()); });
  FailEach([&] { return rpc_port_parcel_write_string(parcel, kLongText.c_str()); });
  FailEach([&] { return rpc_port_parcel_write_int32(parcel, 7); });
  // What failed has written nothing.
  EXPECT_EQ(owner.tag(), tag);
  char* text = nullptr;
  ASSERT_EQ(rpc_port_parcel_read_string(parcel, &text), 0);
  EXPECT_EQ(text, kLongText);
  std::free(text);
  EXPECT_EQ(owner.Int(), 7);
}

TEST_F(FailingMemory, OfAProxy) {
  Start();
  rpc_port_proxy_h proxy = nullptr;
  EXPECT_GE(FailEach([&] { return rpc_port_proxy_create(&proxy); }), 1);
  int connected = 0;
  const auto count = [](const char*, const char*, rpc_port_h, void* counter) {
    ++*static_cast<int*>(counter);
  };
  EXPECT_GE(
      FailEach([&] { return rpc_port_proxy_add_connected_event_cb(proxy, count, &connected); }), 1);
  const std::string app_id = rpc_test::OwnAppId();
  EXPECT_GE(
      FailEach([&] { return rpc_port_proxy_connect_sync(proxy, app_id.c_str(), rpc_test::kPort); }),
      1);
  EXPECT_EQ(connected, 1);
  rpc_port_h port = nullptr;
  ASSERT_EQ(rpc_port_proxy_get_port(proxy, RPC_PORT_PORT_MAIN, &port), 0);
  ParcelOwner request;
  request.Int(41).Text(kLongText);
  FailEach([&] { return rpc_port_parcel_send(request.get(), port); });
  rpc_port_parcel_h answer = nullptr;
  EXPECT_GE(FailEach([&] { return rpc_port_parcel_create_from_port(&answer, port); }), 1);
  EXPECT_EQ(ParcelOwner(answer).Int(), 42);
  ExpectOthersServed();
  EXPECT_EQ(rpc_port_proxy_destroy(proxy), 0);
}

TEST_F(FailingMemory, OfAStub) {
  rpc_port_stub_h stub = nullptr;
  EXPECT_GE(FailEach([&] { return rpc_port_stub_create(&stub, rpc_test::kPort); }), 1);
  const auto refuse = [](const char*, const char*, rpc_port_h, void*) { return -1; };
  EXPECT_GE(FailEach([&] { return rpc_port_stub_add_received_event_cb(stub, refuse, nullptr); }),
            1);
  EXPECT_GE(FailEach([&] { return rpc_port_stub_listen(stub); }), 1);
  EXPECT_EQ(rpc_port_stub_destroy(stub), 0);
  Start();  // the address is free again
  ExpectOthersServed();
}

}  // namespace
