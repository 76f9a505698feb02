// Each allocation of the command path fails once: the exception leaves, and nothing stays behind.
#include <kavrel/app_api.h>

#include <new>

#include "command_fixture.h"
#include "failing_allocations.h"
#include "method_cases.h"
#include "stub_fixture.h"

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Makes the first, the second, ... allocation of `action` fail until all succeed. `after_failure`
// looks at what is left. Returns how many failed.
template <class Action, class Check>
int FailEach(const Action& action, const Check& after_failure) {
  for (int nth = 1;; ++nth) {
    bool has_failed = false;
    bool has_thrown = false;
    {
      const FailingAllocation failing(nth);
      try {
        action();
      } catch (const std::bad_alloc&) {
        has_thrown = true;
      }
      has_failed = failing.has_failed();
    }
    if (!has_failed) return nth - 1;
    EXPECT_TRUE(has_thrown) << "allocation " << nth;
    after_failure();
  }
}

const std::string kLongText(100, 'x');

class CommandMemory : public StubTest {
 protected:
  CommandMemory() {
    // What is made once, with the first handle, is not under test.
    kavrel_api_destroy(kavrel_api_create(kLongText.c_str()));
  }
};

TEST_F(CommandMemory, CreateLeavesNoProxyBehind) {
  kavrel_api_h handle = nullptr;
  const int failed = FailEach([&] { handle = kavrel_api_create(kLongText.c_str()); },
                              [&] { EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1")); });
  EXPECT_GE(failed, 3);  // the text, its copy in the proxy, the proxy
  ASSERT_NE(handle, nullptr);
  kavrel_api_destroy(handle);
}

TEST_F(CommandMemory, CommandsSendNothingAndLeaveNoParcel) {
  const kavrel_api_h handle = kavrel_api_create("viewer");
  const std::vector<std::string> list = {kLongText, kLongText};
  const int failed = FailEach([&] { kavrel_api_send_mbr_key(handle, 1, 2, 3, kLongText, list); },
                              [&] {
                                EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
                                EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1", "proxy2"));
                              });
  EXPECT_GE(failed, 4);  // the text, the list, its two elements
  EXPECT_THAT(rpc_.TakeSent(), testing::SizeIs(1));
  kavrel_api_destroy(handle);
}

TEST_F(CommandMemory, RequestsAreNotServedAndLeaveNoParcel) {
  ConnectClient();
  const Items request = {10, 1, 2, 3, kLongText, ArrayCount{2}, kLongText, kLongText};
  const int failed = FailEach([&] { Request(request); },
                              [&] {
                                EXPECT_THAT(services_.TakeCalls(), IsEmpty());
                                EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
                                EXPECT_EQ(FakeRpcPort::LiveTexts(), 0U);
                              });
  EXPECT_GE(failed, 4);
  EXPECT_THAT(services_.TakeCalls(), testing::SizeIs(1));
}

}  // namespace
}  // namespace kavrel_test
