// Standard error and files, healthy, full, closed and hostile.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string_view>

#include "temporary_directory.h"
#include "writer.h"

namespace dlog_test {
namespace {

using kavrel_test::ChildProcess;
using kavrel_test::Descriptor;
using kavrel_test::MakePipe;
using kavrel_test::Pipe;
using kavrel_test::ReadFile;
using kavrel_test::TemporaryDirectory;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

std::string ReadToTheEnd(int fd) {
  std::string text;
  std::array<char, 65536> bytes;
  for (ssize_t size = ::read(fd, bytes.data(), bytes.size()); size > 0;
       size = ::read(fd, bytes.data(), bytes.size())) {
    text.append(bytes.data(), static_cast<std::size_t>(size));
  }
  return text;
}

std::string ReadWhatIsThere(int fd) {
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  std::string text = ReadToTheEnd(fd);
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return text;
}

bool IsBlocking(int fd) {
  return (::fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

int FailedOf(const std::string& line) {
  constexpr std::string_view kFailed = "failed ";
  return line.starts_with(kFailed) ? std::stoi(line.substr(kFailed.size())) : -1;
}

// Runs "repeat 10000", "print last" with nobody reading in between; what went in and what came out.
struct Flood {
  int failed = -1;
  std::string before;
  std::string after;
};

Flood FloodUnread(Descriptor written, const Descriptor& read) {
  auto options = Writer({"repeat", "10000", "text", "wait", "print", "6", "tag", "last"}, {});
  options.errors = written.get();
  ChildProcess child(options);
  Flood flood;
  flood.failed = FailedOf(child.WaitForLine("failed").value_or(""));
  EXPECT_TRUE(IsBlocking(written.get()));
  flood.before = ReadWhatIsThere(read.get());
  child.WriteInput("\n");
  EXPECT_EQ(child.WaitForExit(), 0);
  written.Reset();
  flood.after = ReadWhatIsThere(read.get());
  return flood;
}

TEST(StandardError, AFullPipeNeverBlocksAndTheLostAreCounted) {
  Pipe pipe = MakePipe();
  const Flood flood = FloodUnread(std::move(pipe.write), pipe.read);
  EXPECT_GT(flood.failed, 0);
  EXPECT_THAT(Texts(flood.before), SizeIs(static_cast<std::size_t>(10000 - flood.failed)));
  EXPECT_THAT(Texts(flood.before), testing::Each("text"));
  EXPECT_THAT(Texts(flood.after),
              ElementsAre(std::to_string(flood.failed) + " records before this were lost", "last"));
}

TEST(StandardError, AFullSocketNeverBlocks) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor read(ends[0]);
  const Flood flood = FloodUnread(Descriptor(ends[1]), read);
  EXPECT_GT(flood.failed, 0);
  EXPECT_THAT(flood.after, HasSubstr(std::to_string(flood.failed) + " records before"));
}

struct Terminal {
  Descriptor master;
  Descriptor user;
  std::string path;
};

Terminal MakeTerminal() {
  Terminal terminal;
  terminal.master.Reset(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  std::array<char, 128> path{};
  if (::grantpt(terminal.master.get()) != 0 || ::unlockpt(terminal.master.get()) != 0 ||
      ::ptsname_r(terminal.master.get(), path.data(), path.size()) != 0) {
    ADD_FAILURE() << "no terminal";
  }
  terminal.path = path.data();
  terminal.user.Reset(::open(path.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  return terminal;
}

TEST(StandardError, AStoppedTerminalNeverBlocks) {
  Terminal terminal = MakeTerminal();
  const Descriptor kept(::fcntl(terminal.user.get(), F_DUPFD_CLOEXEC, 0));
  const Flood flood = FloodUnread(std::move(terminal.user), terminal.master);
  EXPECT_GT(flood.failed, 0);
  // The terminal may take a few more in between, so that the lost are reported in several notices.
  EXPECT_TRUE(std::regex_search(
      flood.after,
      std::regex(R"(W dlog \S+: \d+ records before this were lost\r\n\S+ E tag \S+: last\r\n$)")))
      << flood.after;
}

TEST(StandardError, ABackgroundJobIsNotStopped) {
  const Terminal terminal = MakeTerminal();
  const Outcome outcome = RunWriter({"background-job", terminal.path}, {});
  EXPECT_EQ(outcome.output, "not stopped\n");
  EXPECT_THAT(ReadWhatIsThere(terminal.master.get()), HasSubstr("logged"));
}

TEST(StandardError, AClosedPipeNeitherKillsNorLeavesASignal) {
  Pipe pipe = MakePipe();
  pipe.read.Reset();
  auto options = Writer({"print", "6", "tag", "text", "signals"}, {});
  options.errors = pipe.write.get();
  ChildProcess child(options);
  EXPECT_EQ(child.WaitForExit(), 0);
  EXPECT_EQ(child.output(), std::to_string(-EPIPE) + "\nnone waits\n");
}

TEST(StandardError, ASignalThatTheProgramHoldsBackStays) {
  Pipe pipe = MakePipe();
  pipe.read.Reset();
  auto options = Writer({"raise-blocked-pipe-signal", "print", "6", "tag", "text", "signals"}, {});
  options.errors = pipe.write.get();
  ChildProcess child(options);
  EXPECT_EQ(child.WaitForExit(), 0);
  EXPECT_THAT(child.output(), EndsWith("a signal waits\n"));
}

TEST(StandardError, AFullDiskIsReported) {
  const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  auto options = Writer({"print", "6", "tag", "text"}, {});
  options.errors = full.get();
  ChildProcess child(options);
  EXPECT_EQ(child.WaitForExit(), 0);
  EXPECT_EQ(child.output(), std::to_string(-ENOSPC) + "\n");
}

TEST(StandardError, IsWhateverItIsAtTheMoment) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("errors");
  const Outcome outcome = RunWriter(
      {"print", "6", "tag", "one", "redirect-errors", path, "print", "6", "tag", "two"}, {});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("one"));
  EXPECT_THAT(Texts(ReadFile(path)), ElementsAre("two"));
}

TEST(StandardError, ALongRecordOnAPipeIsOneCutLine) {
  const Outcome outcome = RunWriter({"fill", "1048576", "x"}, {});
  EXPECT_EQ(outcome.output, "1048576\n");
  EXPECT_EQ(outcome.errors.size(), 4096U);
  EXPECT_THAT(outcome.errors, EndsWith("xxxx [cut]\n"));
  EXPECT_THAT(Lines(outcome.errors), SizeIs(1));
}

TEST(StandardError, AMebibyteInAFileIsOneWholeLine) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  RunWriter({"fill", "1048576", "x"}, {{"KAVREL_LOG", "file:" + path}});
  EXPECT_THAT(Texts(ReadFile(path)), ElementsAre(std::string(1048576, 'x')));
}

TEST(StandardError, ATextBeyondTheLimitIsCut) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  RunWriter({"fill", "5000000", "x"}, {{"KAVREL_LOG", "file:" + path}});
  EXPECT_THAT(Texts(ReadFile(path)), ElementsAre(std::string(4194304, 'x') + " [cut]"));
}

void ExpectUnmixed(const std::string& log, std::size_t records, std::size_t length) {
  const std::vector<std::string> texts = Texts(log);
  EXPECT_THAT(texts, SizeIs(records));
  for (const std::string& text : texts) {
    ASSERT_FALSE(text.empty());
    ASSERT_EQ(text, std::string(length, text.front()));
  }
}

TEST(Threads, EightNeverMixTheirLinesInAFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  RunWriter({"threads", "8", "500", "700"}, {{"KAVREL_LOG", "file:" + path}});
  ExpectUnmixed(ReadFile(path), std::size_t{8} * 500, 700);
}

TEST(Threads, EightNeverMixTheirLinesInAPipe) {
  const Outcome outcome = RunWriter({"threads", "8", "500", "3000"}, {});
  std::string lines;
  for (const std::string& line : Lines(outcome.errors)) {
    if (line.find("were lost") == std::string::npos) lines += line + '\n';
  }
  ExpectUnmixed(lines, std::size_t{8} * 500, 3000);
}

TEST(Threads, TwoProcessesNeverMixTheirLines) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  const Environment environment = {{"KAVREL_LOG", "file:" + path}};
  ChildProcess one(Writer({"threads", "2", "500", "6000"}, environment));
  ChildProcess two(Writer({"threads", "2", "500", "6000"}, environment));
  EXPECT_EQ(one.WaitForExit(), 0);
  EXPECT_EQ(two.WaitForExit(), 0);
  ExpectUnmixed(ReadFile(path), std::size_t{4} * 500, 6000);
}

TEST(Fork, AChildForkedInMidRecordLogs) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  const Outcome outcome = RunWriter({"fork", "100"}, {{"KAVREL_LOG", "file:" + path}});
  EXPECT_EQ(outcome.exit, 0);
  int children = 0;
  for (const std::string& line : Lines(ReadFile(path))) {
    children += line.find(" child ") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(children, 100);
}

TEST(File, IsAppendedTo) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  std::ofstream(path) << "before\n";
  RunWriter({"print", "4", "tag", "after"}, {{"KAVREL_LOG", "file:" + path}});
  EXPECT_THAT(Texts(ReadFile(path)), ElementsAre("before", "after"));
}

TEST(File, IsOpenedOnceAndFollowsARename) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log"), renamed = directory.Path("renamed");
  RunWriter({"print", "4", "tag", "one", "rename", path, renamed, "print", "4", "tag", "two"},
            {{"KAVREL_LOG", "file:" + path}});
  EXPECT_THAT(Texts(ReadFile(renamed)), ElementsAre("one", "two"));
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(File, IsNotForOthersWhateverTheUmask) {
  for (const char* const mask : {"000", "022", "077"}) {
    const TemporaryDirectory directory;
    const std::string path = directory.Path("log");
    RunWriter({"umask", mask, "print", "4", "tag", "text"}, {{"KAVREL_LOG", "file:" + path}});
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777 & ~0640U, 0U) << mask;
  }
}

// One line that says why, and the record on standard error.
void ExpectRefused(const std::string& path, const std::string& reason) {
  const Outcome outcome =
      RunWriter({"print", "6", "tag", "kept"}, {{"KAVREL_LOG", "file:" + path}});
  EXPECT_EQ(outcome.exit, 0);
  EXPECT_THAT(Texts(outcome.errors),
              ElementsAre("KAVREL_LOG is \"file:" + path + "\", which cannot be opened (" + reason +
                              "): standard error is used",
                          "kept"));
}

TEST(File, ASymbolicLinkIsRefusedAndItsTargetUntouched) {
  const TemporaryDirectory directory;
  std::ofstream(directory.Path("target")) << "precious";
  std::filesystem::create_symlink(directory.Path("target"), directory.Path("link"));
  ExpectRefused(directory.Path("link"), "Too many levels of symbolic links");
  EXPECT_EQ(ReadFile(directory.Path("target")), "precious");
}

TEST(File, AFifoIsRefusedWithoutWaiting) {
  const TemporaryDirectory directory;
  ASSERT_EQ(::mkfifo(directory.Path("fifo").c_str(), 0600), 0);
  ExpectRefused(directory.Path("fifo"), "No such device or address");
  const Descriptor reader(
      ::open(directory.Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ExpectRefused(directory.Path("fifo"), "Invalid argument");
}

TEST(File, ADirectoryADeviceAndAMissingDirectoryAreRefused) {
  const TemporaryDirectory directory;
  ExpectRefused(directory.path(), "Is a directory");
  ExpectRefused("/dev/null", "Invalid argument");
  ExpectRefused(directory.Path("missing/log"), "No such file or directory");
}

TEST(File, AStrangersFileIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to somebody else";
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  std::ofstream(path) << "precious";
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  ExpectRefused(path, "Permission denied");
  EXPECT_EQ(ReadFile(path), "precious");
}

TEST(File, ADescriptorThatWasTakenAwayIsNotWrittenTo) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log"), other = directory.Path("other");
  const Outcome outcome = RunWriter(
      {"print", "4", "tag", "one", "replace-descriptors", other, "print", "4", "tag", "two"},
      {{"KAVREL_LOG", "file:" + path}});
  EXPECT_EQ(outcome.output, "3\n" + std::to_string(-EBADF) + "\n");
  EXPECT_THAT(ReadFile(other), IsEmpty());
  EXPECT_THAT(Texts(ReadFile(path)), ElementsAre("one"));
}

TEST(File, ASizeLimitNeitherKillsNorSpoilsTheNextRecord) {
  const TemporaryDirectory directory;
  const std::string path = directory.Path("log");
  const Outcome outcome =
      RunWriter({"limit-file-size", "20", "print", "6", "tag", "broken", "print", "6", "tag",
                 "lost", "signals", "limit-file-size", "100000", "print", "6", "tag", "whole"},
                {{"KAVREL_LOG", "file:" + path}});
  EXPECT_EQ(outcome.exit, 0);
  EXPECT_EQ(outcome.output,
            std::to_string(-ENOSPC) + '\n' + std::to_string(-EFBIG) + "\nnone waits\n5\n");
  const std::vector<std::string> lines = Lines(ReadFile(path));
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0], SizeIs(20));
  EXPECT_THAT(lines[1], EndsWith("2 records before this were lost"));
  EXPECT_THAT(lines[2], EndsWith(": whole"));
}

TEST(Environment, IsIgnoredWithMoreRightsThanTheCaller) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can run a program with mixed user ids";
  const TemporaryDirectory directory;
  auto options =
      Writer({"print", "4", "tag", "dropped", "print", "6", "tag", "kept"},
             {{"KAVREL_LOG", "file:" + directory.Path("log")}, {"KAVREL_LOG_LEVEL", "verbose"}});
  options.real_user = 65534;
  ChildProcess child(options);
  const Outcome outcome = Finish(child);
  EXPECT_EQ(outcome.exit, 0);
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("kept"));
  EXPECT_FALSE(std::filesystem::exists(directory.Path("log")));
}

}  // namespace
}  // namespace dlog_test
