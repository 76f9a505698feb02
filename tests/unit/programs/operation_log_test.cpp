#include "operation_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <array>

#include "child_process.h"

namespace viewer {
namespace {

using kavrel_test::MakePipe;
using kavrel_test::Pipe;
using nlohmann::ordered_json;
namespace methods = kavrel::app_api::methods;

class OperationLogTest : public ::testing::Test {
 protected:
  OperationLogTest() : pipe_(MakePipe()) { (void)::signal(SIGPIPE, SIG_IGN); }

  std::string Read() {
    std::array<char, 65536> bytes{};
    const ssize_t size = ::read(pipe_.read.get(), bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(size < 0 ? 0 : size)};
  }

  static Operation Tune() {
    Operation operation{methods::TuneChannelMain::kInfo, "sender", "instance"};
    operation.arguments = {{"number", "7"}, {"caller", "me"}};
    return operation;
  }

  Pipe pipe_;
};

TEST_F(OperationLogTest, WritesOneLineForPeople) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kText);
  log.AddEffect("channel 7 News on DVB-T");
  log.AddEffect("unlocked");
  log.Write(Tune());
  EXPECT_EQ(Read(),
            "#1 sender TuneChannelMain(\"7\", \"me\"): channel 7 News on DVB-T; unlocked\n");
}

TEST_F(OperationLogTest, ShowsAnswersAndLists) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kText);
  Operation question{methods::GetWindowSize::kInfo, "s", "i"};
  question.values = {{"size", 2}};
  question.result = true;
  log.Write(question);
  EXPECT_EQ(Read(), "#1 s GetWindowSize() = true, size 2\n");
  Operation key{methods::SendMbrKey::kInfo, "s", "i"};
  key.arguments = {{"key", "K"}, {"options", {"a", "b"}}};
  log.Write(key);
  EXPECT_EQ(Read(), "#2 s SendMbrKey(\"K\", [\"a\", \"b\"])\n");
}

TEST_F(OperationLogTest, ForgetsEffectsWithTheirOperation) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kText);
  log.AddEffect("first");
  log.Write(Tune());
  Read();
  log.Write(Tune());
  EXPECT_EQ(Read(), "#2 sender TuneChannelMain(\"7\", \"me\")\n");
}

TEST_F(OperationLogTest, LetsNoControlCharacterThrough) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kText);
  Operation operation = Tune();
  operation.sender = "s\n";
  operation.arguments["number"] = "\x1b[2J\r\n\x7f \xc2\x9b";
  log.AddEffect("\x1b]0;x\a");
  log.Write(operation);
  const std::string line = Read();
  EXPECT_EQ(line,
            "#1 s\\x0a TuneChannelMain(\"\\x1b[2J\\x0d\\x0a\\x7f \xc2\\x9b\", \"me\"): "
            "\\x1b]0;x\\x07\n");
}

TEST_F(OperationLogTest, CutsLongTextsForPeopleOnly) {
  Operation operation = Tune();
  operation.arguments["number"] = std::string(5000, 'x');
  OperationLog text(pipe_.write.get(), OperationLog::Format::kText);
  text.Write(operation);
  EXPECT_LT(Read().size(), 400U);
  OperationLog json(pipe_.write.get(), OperationLog::Format::kJson);
  json.Write(operation);
  EXPECT_EQ(ordered_json::parse(Read())["arguments"]["number"].get<std::string>().size(), 5000U);
}

TEST_F(OperationLogTest, WritesOneObjectALineForPrograms) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kJson);
  log.AddEffect("channel 7 News on DVB-T");
  log.Write(Tune());
  EXPECT_EQ(Read(), R"({"sequence":1,"client":{"sender":"sender","instance":"instance"},)"
                    R"("method":"TuneChannelMain","arguments":{"number":"7","caller":"me"},)"
                    R"("values":{},"result":null,"effects":["channel 7 News on DVB-T"]})"
                    "\n");
}

TEST_F(OperationLogTest, ReplacesWhatIsNotUtf8InJson) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kJson);
  Operation operation = Tune();
  operation.arguments["number"] = "\xff\xfe";
  log.Write(operation);
  EXPECT_EQ(ordered_json::parse(Read())["arguments"]["number"], "\xef\xbf\xbd\xef\xbf\xbd");
}

TEST_F(OperationLogTest, OutlivesItsReader) {
  OperationLog log(pipe_.write.get(), OperationLog::Format::kText);
  pipe_.read.Reset();
  ::testing::internal::CaptureStderr();
  log.Write(Tune());
  log.Write(Tune());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "kavrel-viewer: standard output is gone (Broken pipe); serving on without it\n");
}

TEST_F(OperationLogTest, DropsWholeLinesWhileNobodyReads) {
  ASSERT_GE(::fcntl(pipe_.write.get(), F_SETPIPE_SZ, 65536), 65536);
  OperationLog log(pipe_.write.get(), OperationLog::Format::kJson);
  Operation operation = Tune();
  operation.arguments["number"] = std::string(8000, 'x');
  for (int i = 0; i < 20; ++i) log.Write(operation);
  // Draining makes room; the line that had been begun is completed before the next one.
  std::string all = Read();
  log.Write(operation);
  all += Read();
  ASSERT_EQ(all.back(), '\n');
  std::vector<unsigned> numbers;
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = all.find('\n', at);
    numbers.push_back(ordered_json::parse(all.substr(at, end - at))["sequence"]);
    at = end + 1;
  }
  EXPECT_LT(numbers.size(), 20U);
  EXPECT_EQ(numbers.front(), 1U);
  EXPECT_EQ(numbers.back(), 21U);
}

}  // namespace
}  // namespace viewer
