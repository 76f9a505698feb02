#include "trial.h"

#include <dirent.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "leak_check.h"

namespace faults_test {
namespace {

/// More requests than any function makes: beyond it one fails for ever.
constexpr int kMost = 2000;

/// Longer than anything healthy takes on a loaded machine.
constexpr unsigned kSeconds = 60;

/// What the trial's process tells the test.
struct Report {
  bool finished;
  bool occurred;
  bool failed;
  int descriptors;
};

int CountDescriptors() {
  int count = 0;
  DIR* const directory = ::opendir("/proc/self/fd");
  while (::readdir(directory) != nullptr) ++count;
  ::closedir(directory);
  return count;
}

// GIO closes what is its own on a thread of its own, some time after the call that ended its use.
int AwaitDescriptors(int most) {
  constexpr int kTries = 5000;
  for (int tries = 0; tries < kTries && CountDescriptors() > most; ++tries) ::poll(nullptr, 0, 1);
  return CountDescriptors();
}

// Of the running test; a child begins with those of its parent.
int CountFailures() {
  const testing::TestResult& result =
      *testing::UnitTest::GetInstance()->current_test_info()->result();
  int failures = 0;
  for (int i = 0; i < result.total_part_count(); ++i) {
    failures += result.GetTestPartResult(i).failed() ? 1 : 0;
  }
  return failures;
}

[[noreturn]] void RunTrial(const Row& row, Fault fault, int nth, int descriptors, Report& report) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::alarm(kSeconds);
  const int failures = CountFailures();
  Trial trial(fault, nth);
  row.body(trial);
  report.occurred = trial.occurred();
  report.descriptors = AwaitDescriptors(descriptors);
  report.failed = CountFailures() != failures || HasLeaked();
  report.finished = true;
  std::fflush(stdout);
  ::_exit(0);
}

// The report of one trial, which waits for its descriptors to become as few as these, in a process
// of its own: what a function makes once in a process is then made anew each time.
Report Try(const Row& row, Fault fault, int nth, int descriptors, Report& shared, int& status) {
  shared = {};
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) RunTrial(row, fault, nth, descriptors, shared);
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return shared;
}

}  // namespace

void Trial::ExpectErrno(const std::optional<int>& result, const std::vector<int>& allowed) const {
  ASSERT_TRUE(result.has_value()) << "an exception left a C function";
  for (const int value : allowed) {
    if (*result == value) return;
  }
  ASSERT_TRUE(occurred_) << *result;
  if (fault_ == Fault::kMemory) {
    EXPECT_EQ(*result, -ENOMEM);
  } else {
    EXPECT_LT(*result, 0);
  }
}

const std::vector<Kind> kKinds = {
    {Fault::kMemory, "NoMemory"},          {Fault::kFullDisk, "FullDisk"},
    {Fault::kBrokenDisk, "BrokenDisk"},    {Fault::kReadOnly, "ReadOnlyDisk"},
    {Fault::kDescriptors, "NoDescriptor"}, {Fault::kWatches, "NoWatch"},
    {Fault::kThreads, "NoThread"}};

int TryEverywhere(const Row& row, const Kind& kind, const Part& part) {
  auto* const shared = static_cast<Report*>(
      ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  int occurrences = 0;
  int status = 0;
  const Report whole = Try(row, kind.fault, 0, INT_MAX, *shared, status);
  for (int nth = part.number; nth < kMost; nth += part.all) {
    SCOPED_TRACE(row.name + ": " + kind.name + " at request " + std::to_string(nth));
    const Report report = Try(row, kind.fault, nth, whole.descriptors, *shared, status);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kTerminatedAsDocumented) {
      ++occurrences;
      continue;
    }
    EXPECT_TRUE(report.finished) << "ended with status " << status;
    EXPECT_FALSE(report.failed);
    if (!report.finished || report.failed || !report.occurred) break;
    ++occurrences;
    EXPECT_LE(report.descriptors, whole.descriptors) << "left open";
  }
  ::munmap(shared, sizeof(Report));
  return occurrences;
}

Rows operator+(Rows rows, const Rows& more) {
  rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

}  // namespace faults_test
