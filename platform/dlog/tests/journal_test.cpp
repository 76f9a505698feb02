// The journal's socket, played by the test.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "temporary_directory.h"
#include "writer.h"

namespace dlog_test {
namespace {

using kavrel_test::ChildProcess;
using kavrel_test::Descriptor;
using kavrel_test::TemporaryDirectory;
using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

using Fields = std::map<std::string, std::string>;

// NAME=value lines, or NAME, newline, eight bytes of length, the value, newline.
Fields Parse(const std::string& entry) {
  Fields fields;
  for (std::size_t at = 0; at < entry.size();) {
    const auto end = entry.find_first_of("=\n", at);
    const std::string name = entry.substr(at, end - at);
    std::uint64_t length = 0;
    std::size_t value = end + 1;
    if (entry[end] == '\n') {
      std::memcpy(&length, entry.data() + value, sizeof length);
      value += sizeof length;
    } else {
      length = entry.find('\n', value) - value;
    }
    fields[name] = entry.substr(value, length);
    at = value + length + 1;
  }
  return fields;
}

class Journal {
 public:
  Journal() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    socket_.Reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
  }

  std::string path() const { return directory_.Path("socket"); }
  Environment environment() const { return {{"KAVREL_LOG", "journal:" + path()}}; }

  /// The next record within the limit, empty when there is none.
  Fields Next(std::chrono::milliseconds limit = kavrel_test::kGenerous) {
    pollfd readable{socket_.get(), POLLIN, 0};
    if (::poll(&readable, 1, static_cast<int>(limit.count())) != 1) return {};
    std::string entry(std::size_t{1} << 20, '\0');
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part{entry.data(), entry.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = ::recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
    const cmsghdr* const rights = CMSG_FIRSTHDR(&message);
    if (rights != nullptr) return FromMemory(*rights);
    entry.resize(static_cast<std::size_t>(size));
    return Parse(entry);
  }

 private:
  static Fields FromMemory(const cmsghdr& rights) {
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(&rights), sizeof fd);
    const Descriptor memory(fd);
    constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
    EXPECT_EQ(::fcntl(memory.get(), F_GET_SEALS), kSeals);
    struct stat status {};
    EXPECT_EQ(::fstat(memory.get(), &status), 0);
    std::string entry(static_cast<std::size_t>(status.st_size), '\0');
    EXPECT_EQ(::pread(memory.get(), entry.data(), entry.size(), 0), status.st_size);
    return Parse(entry);
  }

  TemporaryDirectory directory_;
  Descriptor socket_;
};

TEST(Journal, GetsTheFields) {
  Journal journal;
  ChildProcess child(Writer({"print", "4", "RPC_PORT_STUB", "text\n"}, journal.environment()));
  EXPECT_EQ(child.WaitForExit(), 0);
  const std::string pid = std::to_string(child.pid());
  EXPECT_THAT(journal.Next(),
              testing::UnorderedElementsAre(Pair("MESSAGE", "text"), Pair("PRIORITY", "6"),
                                            Pair("SYSLOG_IDENTIFIER", "dlog_writer"),
                                            Pair("KAVREL_TAG", "RPC_PORT_STUB"), Pair("TID", pid)));
  EXPECT_EQ(child.output(), "4\n");
}

TEST(Journal, CountsPrioritiesAsSyslogDoes) {
  Journal journal;
  Environment environment = journal.environment();
  environment["KAVREL_LOG_LEVEL"] = "verbose";
  Words words;
  for (const char* priority : {"2", "3", "4", "5", "6", "7"}) {
    words.insert(words.end(), {"print", priority, "tag", "text"});
  }
  ChildProcess child(Writer(words, environment));
  std::string priorities;
  for (int i = 0; i < 6; ++i) priorities += journal.Next()["PRIORITY"];
  EXPECT_EQ(priorities, "776432");
}

TEST(Journal, KeepsNewlinesInOneRecordAndShowsOtherBytes) {
  Journal journal;
  RunWriter({"print", "6", "t\nKAVREL_FORGED=1", "a\nMESSAGE=b\n\nc\xff"}, journal.environment());
  const Fields fields = journal.Next();
  EXPECT_THAT(fields, Contains(Pair("MESSAGE", "a\nMESSAGE=b\n\nc\\xff")));
  EXPECT_THAT(fields, Contains(Pair("KAVREL_TAG", "t\nKAVREL_FORGED=1")));
  EXPECT_EQ(fields.size(), 5U);
}

TEST(Journal, GetsAMebibyteAsOneRecord) {
  Journal journal;
  ChildProcess child(Writer({"fill", "1048576", "x"}, journal.environment()));
  EXPECT_EQ(journal.Next()["MESSAGE"], std::string(1048576, 'x'));
  EXPECT_EQ(child.WaitForExit(), 0);
  EXPECT_EQ(child.output(), "1048576\n");
}

TEST(Journal, ThatDoesNotReadNeverBlocksAndTheLostAreCounted) {
  Journal journal;
  ChildProcess child(Writer({"repeat", "5000", "text", "wait", "print", "6", "tag", "last"},
                            journal.environment()));
  const int failed = std::stoi(child.WaitForLine("failed ").value_or("failed 0").substr(7));
  EXPECT_GT(failed, 0);
  for (int i = failed; i < 5000; ++i) EXPECT_EQ(journal.Next()["MESSAGE"], "text");
  child.WriteInput("\n");
  EXPECT_EQ(journal.Next()["MESSAGE"], std::to_string(failed) + " records before this were lost");
  EXPECT_EQ(journal.Next()["MESSAGE"], "last");
  EXPECT_EQ(child.WaitForExit(), 0);
}

TEST(Journal, ThatDiesIsReported) {
  auto journal = std::make_unique<Journal>();
  ChildProcess child(Writer({"print", "6", "tag", "one", "wait", "print", "6", "tag", "two"},
                            journal->environment()));
  EXPECT_EQ(journal->Next()["MESSAGE"], "one");
  journal.reset();
  child.WriteInput("\n");
  EXPECT_EQ(child.WaitForExit(), 0);
  EXPECT_EQ(child.output(), "3\n" + std::to_string(-ENOENT) + '\n');
}

TEST(Journal, ThatIsMissingGivesOneLineAndStandardError) {
  const TemporaryDirectory directory;
  const std::string value = "journal:" + directory.Path("socket");
  const Outcome outcome = RunWriter({"print", "6", "tag", "kept"}, {{"KAVREL_LOG", value}});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("KAVREL_LOG is \"" + value +
                                                     "\", which cannot be opened (No such file or "
                                                     "directory): standard error is used",
                                                 "kept"));
}

TEST(Journal, StreamOfSomethingElseLeavesStandardError) {
  const Outcome outcome = RunWriter({"print", "6", "tag", "kept"}, {{"JOURNAL_STREAM", "1:1"}});
  EXPECT_THAT(Texts(outcome.errors), ElementsAre("kept"));
}

}  // namespace
}  // namespace dlog_test
