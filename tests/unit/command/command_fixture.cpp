#include "command_fixture.h"

#include <utility>

namespace kavrel_test {

std::string Line(const LogEntry& entry) {
  return "log " + std::to_string(entry.priority) + ' ' + entry.tag + ' ' + entry.file + ' ' +
         entry.function + " > " + entry.text;
}

std::string ProxyLine(int priority, const std::string& function, const std::string& text) {
  return Line({priority, "RPC_PORT_PROXY", "KavrelAppApiProxy.cpp", function, text});
}

std::string StubLine(int priority, const std::string& function, const std::string& text) {
  return Line({priority, "RPC_PORT_STUB", "KavrelAppApiStub.cpp", function, text});
}

std::string ApiLine(int priority, const std::string& function, const std::string& text) {
  return Line({priority, "kavrel-api", "kavrel_app_api.cpp", function, text});
}

std::string ShowLine(int priority, const std::string& function, const std::string& text) {
  return Line({priority, "kavrel-api", "kavrel_app_api_showbanner.cpp", function, text});
}

CommandTest::CommandTest() {
  rpc_.Observe([this](const std::string& call) {
    const std::lock_guard lock(mutex_);
    events_.push_back({false, call});
  });
  log_.Observe([this](const LogEntry& entry) {
    const std::lock_guard lock(mutex_);
    events_.push_back({true, Line(entry)});
  });
}

CommandTest::~CommandTest() {
  EXPECT_THAT(rpc_.misuses(), ::testing::IsEmpty());
  EXPECT_EQ(FakeRpcPort::LiveTexts(), 0U);
}

std::vector<CommandTest::Event> CommandTest::TakeEvents() {
  const std::lock_guard lock(mutex_);
  return std::exchange(events_, {});
}

std::vector<std::string> CommandTest::TakeTimeline() {
  std::vector<std::string> texts;
  for (Event& event : TakeEvents()) texts.push_back(std::move(event.text));
  return texts;
}

std::vector<std::string> CommandTest::TakeLines() {
  std::vector<std::string> texts;
  for (Event& event : TakeEvents()) {
    if (event.is_line) texts.push_back(std::move(event.text));
  }
  return texts;
}

void ProxyTest::Connect() {
  proxy_.Connect(true);
  Forget();
}

void ProxyTest::QueueResult(int sequence, const Items& fields) {
  QueueParcel({"1.9.1", sequence, ResultItems(fields)});
}

Items ResultItems(const Items& fields) {
  Items items = {0};
  items.insert(items.end(), fields.begin(), fields.end());
  return items;
}

}  // namespace kavrel_test
