// All methods through the stub: decoding, the operation's arguments, the result parcel, and every
// request that cannot be decoded.
#include <algorithm>

#include "stub_fixture.h"

namespace kavrel_test {
namespace {

using kavrel::app_api::ItemType;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Call = ServiceLog::Call;

Items Arguments(const MethodCase& method, int round) {
  const Items request = method.request(round);
  return Items(request.begin() + 1, request.end());
}

class StubMethods : public StubTest {
 protected:
  StubMethods() { ConnectClient(); }

  // The request must be refused with one error line that names instance, method and item, and
  // nothing else may happen.
  void ExpectRefused(const MethodCase& method, const Items& request, const std::string& item) {
    SCOPED_TRACE(std::string(method.info.name) + ": " + ToText(request).substr(0, 200));
    Forget();
    EXPECT_EQ(Request(request), -1);
    const std::vector<std::string> lines = TakeLines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], StubLine(5, "OnReceivedCB", "[Sequence] 77"));
    EXPECT_THAT(lines[1], testing::StartsWith(StubLine(6, "OnReceivedCB", "")));
    EXPECT_THAT(lines[1],
                AllOf(HasSubstr("(i1)"), HasSubstr("(" + std::string(method.info.name) + ")"),
                      HasSubstr(item)));
    EXPECT_THAT(services_.TakeCalls(), IsEmpty());
    EXPECT_THAT(rpc_.TakeSent(), IsEmpty());
    EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
  }
};

TEST_F(StubMethods, GetTheArgumentsInOrder) {
  int walked = 0;
  for (const MethodCase& method : AllMethods()) {
    for (int round = 0; round < kRounds; ++round, ++walked) {
      SCOPED_TRACE(std::string(method.info.name) + " round " + std::to_string(round));
      services_.answer = method.fields(round);
      EXPECT_EQ(Request(method.request(round)), 0);
      EXPECT_EQ(services_.TakeCalls(),
                (std::vector<Call>{{"i1", method.info.name, Arguments(method, round)}}));
    }
  }
  EXPECT_EQ(walked, 53 * kRounds);
}

TEST_F(StubMethods, AnswerOnThePortOfTheRequestOrNotAtAll) {
  int answered = 0;
  for (const MethodCase& method : AllMethods()) {
    for (int round = 0; round < kRounds; ++round) {
      SCOPED_TRACE(std::string(method.info.name) + " round " + std::to_string(round));
      services_.answer = method.fields(round);
      Request(method.request(round));
      std::vector<SentParcel> expected;
      if (method.info.HasReply()) {
        expected.push_back(
            {"main1", {"1.9.1", kRequestSequence, ResultItems(method.fields(round))}});
        ++answered;
      }
      EXPECT_EQ(rpc_.TakeSent(), expected);
      EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
    }
  }
  EXPECT_EQ(answered, 8 * kRounds);
}

TEST_F(StubMethods, LogTheSequenceAndTheSend) {
  for (const MethodCase& method : AllMethods()) {
    SCOPED_TRACE(method.info.name);
    services_.answer = method.fields(0);
    Request(method.request(0));
    std::vector<std::string> expected = {StubLine(5, "OnReceivedCB", "[Sequence] 77")};
    if (method.info.HasReply()) {
      expected.push_back(StubLine(4, "OnReceivedCB", "Parcel send result(0)"));
    }
    EXPECT_EQ(TakeLines(), expected);
  }
}

// Where each argument begins among the items of a request: a list is several items.
std::vector<std::size_t> ArgumentStarts(const MethodCase& method) {
  const Items request = method.request(0);
  std::vector<std::size_t> starts;
  std::size_t at = 1;
  for (std::size_t i = 0; i < method.info.argument_count; ++i) {
    starts.push_back(at);
    const auto* const count = std::get_if<ArrayCount>(&request[at]);
    at += 1 + static_cast<std::size_t>(count != nullptr ? count->count : 0);
  }
  EXPECT_EQ(at, request.size());
  return starts;
}

std::string ItemName(std::size_t index) {
  return "item " + std::to_string(index + 1);
}

TEST_F(StubMethods, RefuseARequestThatBreaksOff) {
  int refused = 0;
  for (const MethodCase& method : AllMethods()) {
    const Items request = method.request(0);
    const std::vector<std::size_t> starts = ArgumentStarts(method);
    for (std::size_t i = 0; i < starts.size(); ++i, ++refused) {
      const auto end = request.begin() + static_cast<long>(starts[i]);
      ExpectRefused(method, Items(request.begin(), end), ItemName(i));
    }
  }
  EXPECT_EQ(refused, 92);
}

TEST_F(StubMethods, RefuseAnArgumentOfAnotherType) {
  const Items others = {17, true, "text", ArrayCount{1}};
  for (const MethodCase& method : AllMethods()) {
    const std::vector<std::size_t> starts = ArgumentStarts(method);
    for (std::size_t i = 0; i < starts.size(); ++i) {
      for (const Item& other : others) {
        Items request = method.request(0);
        if (other.index() == request[starts[i]].index()) continue;
        request[starts[i]] = other;
        ExpectRefused(method, request, ItemName(i));
      }
    }
  }
}

TEST_F(StubMethods, RefuseAnItemAfterTheLastOne) {
  for (const MethodCase& method : AllMethods()) {
    for (const Item& extra : Items{17, false, "", ArrayCount{0}}) {
      Items request = method.request(0);
      request.push_back(extra);
      ExpectRefused(method, request, "after the last one");
    }
  }
}

TEST_F(StubMethods, RefuseANegativeOrAbsurdCount) {
  const MethodCase& method = Method("SendMbrKey");
  for (const int count : {-1, -2147483647 - 1, 2147483647, 1000000, 4097, 3}) {
    Items request = {10, 1, 2, 3, "four", ArrayCount{count}, "a", "b"};
    ExpectRefused(method, request, "item 5");
  }
  Items too_long = {10, 1, 2, 3, "four", ArrayCount{4097}};
  too_long.insert(too_long.end(), 4097, "element");
  ExpectRefused(method, too_long, "item 5");
  ExpectRefused(method, {10, 1, 2, 3, "four", ArrayCount{1}, "a", "b"}, "after the last one");
}

TEST_F(StubMethods, RefuseAListElementOfAnotherType) {
  ExpectRefused(Method("SendMbrKey"), {10, 1, 2, 3, "four", ArrayCount{2}, "a", 17}, "item 5");
}

TEST_F(StubMethods, RefuseARequestWithoutMethodId) {
  for (const Items& request : {Items{}, Items{"11"}, Items{true}, Items{ArrayCount{11}}}) {
    Forget();
    EXPECT_EQ(Request(request), -1);
    const std::vector<std::string> lines = TakeLines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_THAT(lines[1], AllOf(testing::StartsWith(StubLine(6, "OnReceivedCB", "")),
                                HasSubstr("(i1)"), HasSubstr("method id")));
  }
  EXPECT_THAT(services_.TakeCalls(), IsEmpty());
  EXPECT_THAT(rpc_.LiveHandles(), ElementsAre("stub1"));
}

TEST_F(StubMethods, ServeOnAfterARefusal) {
  EXPECT_EQ(Request({11}), -1);
  EXPECT_EQ(Request({11, 1}), 0);
  EXPECT_THAT(services_.TakeCalls(), ElementsAre(Call{"i1", "ShowChannelBanner", {1}}));
}

}  // namespace
}  // namespace kavrel_test
