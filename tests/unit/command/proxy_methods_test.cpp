// All methods through the proxy: what travels, what comes back, what is logged, and every way in
// which a call can fail.
#include <algorithm>
#include <utility>

#include "command_fixture.h"
#include "method_cases.h"

namespace kavrel_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int kFirstSequence = 500;

class ProxyMethods : public ProxyTest {
 protected:
  ProxyMethods() {
    Connect();
    rpc_.SetNextSequence(kFirstSequence);
  }

  static std::string VersionLine(const MethodCase& method, int sequence) {
    return ProxyLine(5, method.info.name,
                     "[Version] \"1.9.1\", [Sequence] " + std::to_string(sequence));
  }

  static std::string ResultVersionLine(const MethodCase& method) {
    return ProxyLine(5, method.info.name, "[Version] 1.9.1");
  }

  // The call must throw E, log `line` as its last, and leave these parcels undestroyed.
  template <class E>
  void ExpectThrow(const MethodCase& method, const std::string& line,
                   const std::vector<std::string>& left_parcels) {
    SCOPED_TRACE(method.info.name);
    EXPECT_THROW(method.call_proxy(proxy_, 0), E);
    const std::vector<std::string> lines = TakeLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), line);
    std::vector<std::string> left = {"proxy1"};
    left.insert(left.end(), left_parcels.begin(), left_parcels.end());
    EXPECT_EQ(rpc_.LiveHandles(), left);
  }
};

TEST_F(ProxyMethods, AreFiftyThree) {
  EXPECT_THAT(AllMethods(), SizeIs(53));
}

TEST_F(ProxyMethods, SendExactlyTheIdAndTheArgumentsInOrder) {
  int sequence = kFirstSequence;
  for (const MethodCase& method : AllMethods()) {
    for (int round = 0; round < kRounds; ++round, ++sequence) {
      SCOPED_TRACE(std::string(method.info.name) + " round " + std::to_string(round));
      if (method.info.HasReply()) QueueResult(sequence, method.fields(round));
      EXPECT_EQ(method.call_proxy(proxy_, round), method.fields(round));
      EXPECT_EQ(rpc_.TakeSent(),
                (std::vector<SentParcel>{{"main1", {"1.9.1", sequence, method.request(round)}}}));
      EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1"));
    }
  }
}

TEST_F(ProxyMethods, LogVersionAndSequenceAsTheMethod) {
  int sequence = kFirstSequence;
  for (const MethodCase& method : AllMethods()) {
    SCOPED_TRACE(method.info.name);
    if (method.info.HasReply()) QueueResult(sequence, method.fields(0));
    method.call_proxy(proxy_, 0);
    std::vector<std::string> expected = {VersionLine(method, sequence++)};
    if (method.info.HasReply()) expected.push_back(ResultVersionLine(method));
    EXPECT_EQ(TakeLines(), expected);
  }
}

TEST_F(ProxyMethods, ThrowWhenTheSendFails) {
  rpc_.FailAlways("parcel_send", -32);
  for (const MethodCase& method : AllMethods()) {
    ExpectThrow<proxy::InvalidIOException>(
        method, ProxyLine(6, method.info.name, "Failed to send parcel. result(-32)"), {});
  }
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
}

TEST_F(ProxyMethods, ThrowAtTheSendAfterADisconnection) {
  rpc_.RaiseDisconnected();
  EXPECT_EQ(listener_.disconnected, 1);
  for (const MethodCase& method : AllMethods()) {
    ExpectThrow<proxy::InvalidIOException>(
        method, ProxyLine(6, method.info.name, "Failed to send parcel. result(-32)"), {});
  }
}

TEST_F(ProxyMethods, ThrowWhenNoParcelCanBeMadeOrWritten) {
  for (const char* const function : {"parcel_create", "parcel_get_header", "parcel_write_int32"}) {
    rpc_.FailAlways(function, -12);
    for (const MethodCase& method : AllMethods()) {
      SCOPED_TRACE(std::string(function) + " in " + method.info.name);
      EXPECT_THROW(method.call_proxy(proxy_, 0), proxy::InvalidIOException);
    }
    rpc_.Recover(function);
  }
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1"));
}

// Which kinds of items a method's request holds after the id.
template <class T>
bool Holds(const MethodCase& method) {
  const Items request = method.request(0);
  return std::any_of(request.begin() + 1, request.end(),
                     [](const Item& item) { return std::holds_alternative<T>(item); });
}

TEST_F(ProxyMethods, ThrowWhenAnArgumentCannotBeWritten) {
  const std::pair<const char*, bool (*)(const MethodCase&)> writes[] = {
      {"parcel_write_string", Holds<std::string>},
      {"parcel_write_bool", Holds<bool>},
      {"parcel_write_array_count", Holds<ArrayCount>}};
  int refused = 0;
  for (const auto& [function, holds] : writes) {
    rpc_.FailAlways(function, -90);
    for (const MethodCase& method : AllMethods()) {
      if (!holds(method)) continue;
      ExpectThrow<proxy::InvalidIOException>(
          method, ProxyLine(6, method.info.name, "Failed to write parcel"), {});
      ++refused;
    }
    rpc_.Recover(function);
  }
  EXPECT_EQ(refused, 31 + 1 + 1);
  EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
}

class AnsweredMethods : public ProxyMethods {
 protected:
  static std::vector<MethodCase> Methods() {
    std::vector<MethodCase> answered;
    for (const MethodCase& method : AllMethods()) {
      if (method.info.HasReply()) answered.push_back(method);
    }
    return answered;
  }
};

TEST_F(AnsweredMethods, AreEight) {
  EXPECT_THAT(Methods(), SizeIs(8));
}

// The request parcel stays on this path, and on this path alone.
TEST_F(AnsweredMethods, ThrowAndKeepTheRequestWhenNoResultComes) {
  std::vector<std::string> left;
  int parcel = 1;
  for (const MethodCase& method : Methods()) {
    left.push_back("p" + std::to_string(parcel++));
    ExpectThrow<proxy::InvalidProtocolException>(
        method, ProxyLine(6, method.info.name, "Invalid protocol"), left);
  }
}

TEST_F(AnsweredMethods, SkipResultsOfOtherRequests) {
  int sequence = kFirstSequence;
  for (const MethodCase& method : Methods()) {
    SCOPED_TRACE(method.info.name);
    QueueResult(sequence - 1, method.fields(1));
    QueueResult(sequence + 1, method.fields(1));
    QueueResult(-1, method.fields(1));
    QueueResult(sequence, method.fields(0));
    EXPECT_EQ(method.call_proxy(proxy_, 0), method.fields(0));
    const std::string version = ResultVersionLine(method);
    const auto invalid = [&](int number) {
      return ProxyLine(6, method.info.name, "Invalid protocol. " + std::to_string(number));
    };
    EXPECT_THAT(TakeLines(),
                ElementsAre(VersionLine(method, sequence), version, invalid(sequence - 1), version,
                            invalid(sequence + 1), version, invalid(-1), version));
    EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1"));
    ++sequence;
  }
}

TEST_F(AnsweredMethods, AcceptAResultWithoutATagAsItIs) {
  int sequence = kFirstSequence;
  for (const MethodCase& method : Methods()) {
    for (const auto& tag : {std::optional<std::string>(), std::optional<std::string>("")}) {
      SCOPED_TRACE(method.info.name);
      QueueParcel({tag, -12345, ResultItems(method.fields(0))});
      EXPECT_EQ(method.call_proxy(proxy_, 0), method.fields(0));
      EXPECT_THAT(TakeLines(), ElementsAre(VersionLine(method, sequence++)));
    }
  }
}

TEST_F(AnsweredMethods, AcceptAResultWhoseTagCannotBeRead) {
  const MethodCase& method = Method("GetWindowSize");
  rpc_.Fail("parcel_header_get_tag", -12);
  QueueParcel({"1.9.1", -12345, ResultItems({7, true})});
  EXPECT_EQ(method.call_proxy(proxy_, 0), (Items{7, true}));
  EXPECT_THAT(TakeLines(), ElementsAre(VersionLine(method, kFirstSequence)));
}

TEST_F(AnsweredMethods, DoNotCompareTheTagOfAResult) {
  const MethodCase& method = Method("GetWindowSize");
  QueueParcel({"another version %s", kFirstSequence, ResultItems({7, true})});
  EXPECT_EQ(method.call_proxy(proxy_, 0), (Items{7, true}));
  EXPECT_THAT(TakeLines(),
              ElementsAre(VersionLine(method, kFirstSequence),
                          ProxyLine(5, "GetWindowSize", "[Version] another version %s")));
}

TEST_F(AnsweredMethods, SkipWhatIsNoResult) {
  int sequence = kFirstSequence;
  for (const MethodCase& method : Methods()) {
    SCOPED_TRACE(method.info.name);
    QueueParcel({"1.9.1", sequence, {1, 3, 17, true}});
    QueueParcel({"1.9.1", sequence, method.request(0)});
    QueueParcel({"1.9.1", sequence, {"0"}});
    QueueParcel({"1.9.1", sequence, {}});
    QueueResult(sequence++, method.fields(0));
    EXPECT_EQ(method.call_proxy(proxy_, 0), method.fields(0));
    EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("proxy1"));
  }
}

TEST_F(AnsweredMethods, TouchNothingWhenAResultCannotBeRead) {
  int sequence = kFirstSequence;
  for (const MethodCase& method : Methods()) {
    const Items fields = method.fields(0);
    for (std::size_t kept = 0; kept < fields.size(); ++kept, ++sequence) {
      SCOPED_TRACE(std::string(method.info.name) + " with " + std::to_string(kept) + " fields");
      QueueResult(sequence, Items(fields.begin(), fields.begin() + static_cast<long>(kept)));
      EXPECT_THROW(method.call_proxy(proxy_, 0), proxy::InvalidProtocolException);
      EXPECT_EQ(TakeLines().back(), ProxyLine(6, method.info.name, "Invalid protocol"));
    }
  }
}

TEST_F(AnsweredMethods, LeaveOutValuesAloneWhenAResultCannotBeRead) {
  int values[] = {1, 2, 3, 4};
  QueueResult(kFirstSequence, {10, 20, 30, 40, 1});  // a number where the flag belongs
  EXPECT_THROW(proxy_.GetSelectionWindowInfo(values[0], values[1], values[2], values[3]),
               proxy::InvalidProtocolException);
  EXPECT_THAT(values, ElementsAre(1, 2, 3, 4));
}

class UnconnectedMethods : public ProxyTest {};

TEST_F(UnconnectedMethods, ThrowAndSendNothing) {
  for (const MethodCase& method : AllMethods()) {
    SCOPED_TRACE(method.info.name);
    Forget();
    EXPECT_THROW(method.call_proxy(proxy_, 0), proxy::NotConnectedSocketException);
    EXPECT_THAT(TakeTimeline(), ElementsAre(ProxyLine(6, method.info.name, "Not connected")));
  }
}

TEST_F(UnconnectedMethods, AreThoseOfAConnectUnderWayToo) {
  proxy_.Connect(false);
  EXPECT_THROW(proxy_.ShowChannelBanner(1), proxy::NotConnectedSocketException);
  rpc_.RaiseRejected();
  EXPECT_EQ(listener_.rejected, 1);
  EXPECT_THROW(proxy_.ShowChannelBanner(1), proxy::NotConnectedSocketException);
  rpc_.RaiseConnected();
  proxy_.ShowChannelBanner(1);
  EXPECT_THAT(rpc_.TakeSent(), SizeIs(1));
}

}  // namespace
}  // namespace kavrel_test
