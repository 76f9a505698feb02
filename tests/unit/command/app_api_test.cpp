// The C command API: each function's frame, its log lines as the exported function, its neutral
// results, and create and destroy.
#include <kavrel/app_api.h>

#include <stdexcept>

#include "command_fixture.h"
#include "method_cases.h"

namespace kavrel_test {
namespace {

using proxy::KavrelAppApi;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A line of the exported function, in the file that its command belongs to.
std::string CommandLine(const MethodCase& method, int priority, const std::string& text) {
  return method.is_show() ? ShowLine(priority, method.api_name(), text)
                          : ApiLine(priority, method.api_name(), text);
}

// What a command logs before it calls the proxy.
std::vector<std::string> EntryLines(const MethodCase& method, bool has_handle) {
  if (method.is_show()) return {CommandLine(method, 4, "\n")};
  if (method.info.id == 2 && has_handle) return {CommandLine(method, 4, "change_source\n")};
  return {};
}

class Commands : public CommandTest {
 protected:
  kavrel_api_h Create() {
    const kavrel_api_h handle = kavrel_api_create("viewer");
    EXPECT_NE(handle, nullptr);
    Forget();
    rpc_.SetNextSequence(1);
    return handle;
  }

  // One call: entry line, the proxy's line, the failure's line, and a neutral result.
  void ExpectFailure(const MethodCase& method, kavrel_api_h handle, const std::string& proxy_text,
                     const std::string& exception) {
    SCOPED_TRACE(method.info.name);
    EXPECT_EQ(method.call_api(handle, 0), method.nothing);
    std::vector<std::string> expected = EntryLines(method, true);
    std::vector<std::string> lines = TakeLines();
    std::erase_if(
        lines, [](const std::string& line) { return line.find("[Version]") != std::string::npos; });
    expected.push_back(ProxyLine(6, method.info.name, proxy_text));
    expected.push_back(CommandLine(method, 6, "exception occured: " + exception + "\n"));
    EXPECT_EQ(lines, expected);
  }
};

TEST_F(Commands, AreFiftyThree) {
  EXPECT_THAT(AllMethods(), SizeIs(53));
}

TEST_F(Commands, ForwardToTheirMethod) {
  const kavrel_api_h handle = Create();
  int sequence = 1;
  for (const MethodCase& method : AllMethods()) {
    for (int round = 0; round < kRounds; ++round, ++sequence) {
      SCOPED_TRACE(method.api_name() + " round " + std::to_string(round));
      if (method.info.HasReply()) {
        rpc_.Queue(rpc_.main_port(), {"1.9.1", sequence, ResultItems(method.fields(round))});
      }
      EXPECT_EQ(method.call_api(handle, round), method.fields(round));
      EXPECT_EQ(rpc_.TakeSent(),
                (std::vector<SentParcel>{{"main1", {"1.9.1", sequence, method.request(round)}}}));
    }
  }
  kavrel_api_destroy(handle);
  EXPECT_THAT(rpc_.LiveHandles(), IsEmpty());
}

TEST_F(Commands, LogTheirEntryAsTheirFrameSays) {
  const kavrel_api_h handle = Create();
  int sequence = 1;
  for (const MethodCase& method : AllMethods()) {
    SCOPED_TRACE(method.info.name);
    if (method.info.HasReply()) {
      rpc_.Queue(rpc_.main_port(), {std::nullopt, 0, ResultItems(method.fields(0))});
    }
    method.call_api(handle, 0);
    std::vector<std::string> expected = EntryLines(method, true);
    expected.push_back(ProxyLine(5, method.info.name,
                                 "[Version] \"1.9.1\", [Sequence] " + std::to_string(sequence++)));
    EXPECT_EQ(TakeLines(), expected);
  }
  kavrel_api_destroy(handle);
}

TEST_F(Commands, RefuseANullHandle) {
  for (const MethodCase& method : AllMethods()) {
    SCOPED_TRACE(method.info.name);
    EXPECT_EQ(method.call_api(nullptr, 0), method.nothing);
    std::vector<std::string> expected = EntryLines(method, false);
    expected.push_back(CommandLine(method, 6, "The instance of KavrelAppApi is null\n"));
    EXPECT_EQ(TakeTimeline(), expected);
  }
}

TEST_F(Commands, ReportThatTheyAreNotConnected) {
  rpc_.Fail("proxy_connect_sync", -110);
  const kavrel_api_h handle = Create();
  for (const MethodCase& method : AllMethods()) {
    ExpectFailure(method, handle, "Not connected", "NotConnectedSocketException");
  }
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
  kavrel_api_destroy(handle);
}

TEST_F(Commands, ReportAFailedSend) {
  const kavrel_api_h handle = Create();
  rpc_.RaiseDisconnected();
  EXPECT_THAT(TakeLines(), ElementsAre(ApiLine(4, "OnDisconnected", "disconnected\n")));
  for (const MethodCase& method : AllMethods()) {
    ExpectFailure(method, handle, "Failed to send parcel. result(-32)", "InvalidIOException");
  }
  kavrel_api_destroy(handle);
}

TEST_F(Commands, ReportAMissingResult) {
  const kavrel_api_h handle = Create();
  for (const MethodCase& method : AllMethods()) {
    if (!method.info.HasReply()) continue;
    ExpectFailure(method, handle, "Invalid protocol", "InvalidProtocolException");
  }
  kavrel_api_destroy(handle);
}

TEST_F(Commands, SendAListInTheCallersOrder) {
  const kavrel_api_h handle = Create();
  kavrel_api_send_mbr_key(handle, 1, 2, 3, "four", {"a", "b", "c"});
  EXPECT_THAT(rpc_.TakeSent(),
              ElementsAre(SentParcel{
                  "main1", {"1.9.1", 1, {10, 1, 2, 3, "four", ArrayCount{3}, "a", "b", "c"}}}));
  kavrel_api_destroy(handle);
}

TEST_F(Commands, ChangeSourceRefusesANullText) {
  const kavrel_api_h handle = Create();
  const char* texts[] = {"a", "b", "c", "d"};
  for (const char*& text : texts) {
    const char* const kept = text;
    text = nullptr;
    EXPECT_THROW(kavrel_api_change_source(handle, texts[0], texts[1], texts[2], texts[3]),
                 std::logic_error);
    EXPECT_THAT(TakeTimeline(),
                ElementsAre(ApiLine(4, "kavrel_api_change_source", "change_source\n")));
    text = kept;
  }
  kavrel_api_destroy(handle);
}

TEST_F(Commands, ChangeSourceRefusesANullHandleBeforeItsTexts) {
  kavrel_api_change_source(nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_THAT(TakeTimeline(), ElementsAre(ApiLine(6, "kavrel_api_change_source",
                                                  "The instance of KavrelAppApi is null\n")));
}

class Handles : public CommandTest {
 protected:
  static std::string CreateLine(int priority, const std::string& text) {
    return ApiLine(priority, "kavrel_api_create", text);
  }
};

TEST_F(Handles, AreConnectedProxies) {
  const kavrel_api_h handle = kavrel_api_create("viewer");
  ASSERT_NE(handle, nullptr);
  EXPECT_THAT(
      TakeTimeline(),
      ElementsAre("proxy_create(proxy1)", "proxy_add_connected_event_cb(proxy1)",
                  "proxy_add_disconnected_event_cb(proxy1)", "proxy_add_rejected_event_cb(proxy1)",
                  "proxy_add_received_event_cb(proxy1)",
                  "proxy_connect_sync(proxy1, viewer, KavrelAppApi)",
                  "proxy_get_port(proxy1, callback)", ApiLine(4, "OnConnected", "connected\n"),
                  CreateLine(4, "proxy create\n")));
  kavrel_api_destroy(handle);
  EXPECT_THAT(TakeTimeline(), ElementsAre("proxy_destroy(proxy1)",
                                          ApiLine(4, "kavrel_api_destroy", "proxy destroy\n")));
  EXPECT_THAT(rpc_.LiveHandles(), IsEmpty());
}

TEST_F(Handles, AreIndependent) {
  const kavrel_api_h first = kavrel_api_create("viewer");
  const kavrel_api_h second = kavrel_api_create("viewer");
  EXPECT_NE(first, second);
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1", "proxy2"));
  kavrel_api_destroy(first);
  kavrel_api_exit_ttx(second, "reason");
  EXPECT_THAT(rpc_.TakeSent(), ElementsAre(SentParcel{"main2", {"1.9.1", 1, {53, "reason"}}}));
  kavrel_api_destroy(second);
}

// A failed create leaves its proxy as it is, so that its late events find it.
TEST_F(Handles, AbandonTheProxyOfAFailedConnect) {
  const std::pair<int, const char*> failures[] = {
      {-22, "InvalidIDException"}, {-5, "InvalidIOException"}, {-13, "PermissionDeniedException"}};
  for (const auto& [result, exception] : failures) {
    Forget();
    rpc_.Fail("proxy_connect_sync", result);
    EXPECT_EQ(kavrel_api_create("viewer"), nullptr);
    EXPECT_THAT(TakeLines(),
                ElementsAre(ProxyLine(6, "Connect", "Failed to connect KavrelAppApi"),
                            CreateLine(6, std::string("connect failed: ") + exception + "\n")));
    EXPECT_EQ(rpc_.LiveHandles().size(), 1U);
    rpc_.RaiseRejected();
    EXPECT_THAT(TakeLines(), ElementsAre(ApiLine(4, "OnRejected", "rejected\n")));
    delete static_cast<KavrelAppApi*>(rpc_.ProxyUserData());
  }
}

TEST_F(Handles, AreGivenOutUnconnectedAfterAnyOtherFailure) {
  rpc_.Fail("proxy_connect_sync", -110);
  const kavrel_api_h handle = kavrel_api_create("viewer");
  ASSERT_NE(handle, nullptr);
  EXPECT_THAT(TakeLines(), ElementsAre(ProxyLine(6, "Connect", "Failed to connect KavrelAppApi"),
                                       CreateLine(4, "proxy create\n")));
  kavrel_api_destroy(handle);
}

TEST_F(Handles, CannotBeMadeForANullId) {
  EXPECT_THROW(kavrel_api_create(nullptr), std::logic_error);
  EXPECT_THAT(TakeTimeline(), IsEmpty());
}

TEST_F(Handles, LetTheFailureOfAProxyOut) {
  rpc_.Fail("proxy_create", -12);
  EXPECT_THROW(kavrel_api_create("viewer"), proxy::InvalidIOException);
  EXPECT_THAT(TakeLines(), ElementsAre(ProxyLine(6, "KavrelAppApi", "Failed to create proxy")));
}

TEST_F(Handles, AreNotDestroyedWhenNull) {
  kavrel_api_destroy(nullptr);
  EXPECT_THAT(TakeTimeline(), ElementsAre(ApiLine(6, "kavrel_api_destroy",
                                                  "The instance of KavrelAppApi is null\n")));
}

}  // namespace
}  // namespace kavrel_test
