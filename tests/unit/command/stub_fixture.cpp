#include "stub_fixture.h"

#include <utility>

#include "failing_allocations.h"

namespace kavrel_test {

void StubTest::Listen() {
  stub_->Listen(factory_);
  Forget();
}

void StubTest::ConnectClient() {
  if (factory_.use_count() == 1) Listen();
  rpc_.RaiseClientConnected("client", "i1");
  services_.TakeCalls();
  Forget();
}

int StubTest::Request(const Items& items) {
  const auto content = [&]() -> ParcelContent {
    const FakeAtWork at_work;  // what the request is made of may not fail to be there
    return {"1.9.1", kRequestSequence, items};
  };
  return rpc_.RaiseRequest("client", "i1", content());
}

std::vector<std::string> WithoutReads(std::vector<std::string> timeline) {
  std::erase_if(timeline, [](const std::string& call) { return call.starts_with("parcel_read_"); });
  return timeline;
}

}  // namespace kavrel_test
