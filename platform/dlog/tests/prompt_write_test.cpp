// The ways to write without waiting, also those that this machine's kernel does not need.
#include "prompt_write.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <string>

#include "child_process.h"
#include "signal_guard.h"

namespace kavrel_dlog {
namespace {

using kavrel_test::MakePipe;
using kavrel_test::Pipe;

struct Way {
  const char* name;
  long (*write)(int, std::string_view) noexcept;
};

class PromptWrite : public testing::TestWithParam<Way> {
 protected:
  static long Write(int fd, std::string_view bytes) {
    SignalGuard guard;
    const long done = GetParam().write(fd, bytes);
    if (done < 0) guard.WriteFailed(static_cast<int>(-done));
    return done;
  }
};

TEST_P(PromptWrite, WritesWhatFits) {
  Pipe pipe = MakePipe();
  EXPECT_EQ(Write(pipe.write.get(), "bytes"), 5);
  char bytes[8] = {};
  EXPECT_EQ(::read(pipe.read.get(), bytes, sizeof bytes), 5);
  EXPECT_STREQ(bytes, "bytes");
}

TEST_P(PromptWrite, SaysWhenThePipeIsFull) {
  Pipe pipe = MakePipe();
  const std::string block(kAtomicWrite, 'x');
  long result = 0;
  for (int i = 0; i < 10000 && result >= 0; ++i) {
    result = Write(pipe.write.get(), block);
    ASSERT_TRUE(result == -EAGAIN || result == static_cast<long>(block.size())) << result;
  }
  EXPECT_EQ(result, -EAGAIN);
  EXPECT_EQ(::fcntl(pipe.write.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_P(PromptWrite, SaysWhenThePipeHasNoReader) {
  Pipe pipe = MakePipe();
  pipe.read.Reset();
  EXPECT_EQ(Write(pipe.write.get(), "bytes"), -EPIPE);
}

INSTANTIATE_TEST_SUITE_P(AllWays, PromptWrite,
                         testing::Values(Way{"AtOnce", WritePromptly},
                                         Way{"ThroughOwnDescription", WriteThroughOwnDescription},
                                         Way{"WhenReady", WriteWhenReady}),
                         [](const testing::TestParamInfo<Way>& way) {
                           return std::string(way.param.name);
                         });

TEST(WritePromptly, RefusesAClosedDescriptor) {
  EXPECT_EQ(WritePromptly(-1, "bytes"), -EBADF);
}

TEST(CanBeFull, IsFalseForRegularFilesOnly) {
  const kavrel_test::Descriptor program(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(CanBeFull(program.get()));
  EXPECT_TRUE(CanBeFull(MakePipe().write.get()));
}

}  // namespace
}  // namespace kavrel_dlog
