// Scenario files: what is said about those that cannot be read, and where mistakes are.
#include "scenario_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <utility>
#include <variant>

#include "next_function.h"
#include "scenario_reader.h"
#include "temporary_directory.h"

namespace {

// What reads of files fail with in this program, once each; 0: they do not.
int g_status_error = 0;
int g_read_error = 0;

constinit kavrel_test::NextFunction<int(int, struct stat*)> real_fstat("fstat");
constinit kavrel_test::NextFunction<ssize_t(int, void*, size_t)> real_read("read");

bool FailsOnce(int& error) {
  if (error != 0) errno = error;
  return std::exchange(error, 0) != 0;
}

}  // namespace

extern "C" {

int fstat(int fd, struct stat* status) noexcept {
  if (FailsOnce(g_status_error)) return -1;
  return real_fstat(fd, status);
}

ssize_t read(int fd, void* bytes, size_t size) {
  if (FailsOnce(g_read_error)) return -1;
  return real_read(fd, bytes, size);
}

}  // extern "C"

namespace kavrelctl {
namespace {

class ScenarioFile : public testing::Test {
 protected:
  void Write(const std::string& text) const { std::ofstream(file_) << text; }

  /// Why it was refused; empty for one that was read.
  static std::string FailureOf(const std::string& file) {
    const auto loaded = LoadScenario(file);
    const auto* const failure = std::get_if<LoadFailure>(&loaded);
    return failure != nullptr ? failure->message : "";
  }

  const kavrel_test::TemporaryDirectory directory_;
  const std::string file_ = directory_.Path("scenario.yaml");
};

TEST_F(ScenarioFile, IsRead) {
  Write("steps:\n- {key: a}\n");
  EXPECT_EQ(FailureOf(file_), "");
}

TEST_F(ScenarioFile, ThatCannotBeOpenedSaysWhy) {
  EXPECT_EQ(FailureOf(file_), "cannot read \"" + file_ + "\": No such file or directory");
  EXPECT_EQ(FailureOf(directory_.path()),
            "cannot read \"" + directory_.path() + "\": it is no ordinary file");
}

TEST_F(ScenarioFile, ThatCannotBeReadSaysWhy) {
  Write("steps:\n- {key: a}\n");
  g_status_error = EIO;
  EXPECT_EQ(FailureOf(file_), "cannot read \"" + file_ + "\": Input/output error");
  g_read_error = EIO;
  EXPECT_EQ(FailureOf(file_), "cannot read \"" + file_ + "\": Input/output error");
}

TEST_F(ScenarioFile, IsReadInSpiteOfASignal) {
  Write("steps:\n- {key: a}\n");
  g_read_error = EINTR;
  EXPECT_EQ(FailureOf(file_), "");
  EXPECT_EQ(g_read_error, 0);
}

TEST_F(ScenarioFile, WithAMistakeNamesItsLineWhereThereIsOne) {
  Write("steps:\n- {key: 1 2}\n");
  EXPECT_TRUE(FailureOf(file_).starts_with(file_ + ":2: step 1: key: ")) << FailureOf(file_);
  Write("");
  EXPECT_EQ(FailureOf(file_), file_ + ": nothing in it; a scenario is a map with steps");
  Write(std::string(kLargestScenario + 1, '#'));
  EXPECT_TRUE(FailureOf(file_).ends_with("bytes; at most 1048576 are allowed")) << FailureOf(file_);
}

}  // namespace
}  // namespace kavrelctl
