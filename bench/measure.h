// What the benchmarks of two processes share: where a process runs, how long things took, and
// tables whose rows can be compared because they were measured in turns in one run.
#pragma once

#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace kavrel_bench {

using Clock = std::chrono::steady_clock;

inline double MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// Runs the calling process on one processor from now on.
inline void PinTo(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(cpu), &set);
  if (sched_setaffinity(0, sizeof set, &set) != 0) std::perror("sched_setaffinity");
}

/// Processor time that the calling process has used.
inline double ProcessorMicroseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto us = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
  };
  return us(usage.ru_utime) + us(usage.ru_stime);
}

/// The value below which `percent` of the samples lie; sorts them.
inline double Percentile(std::vector<double>& samples, double percent) {
  if (samples.empty()) return 0;
  std::sort(samples.begin(), samples.end());
  const auto at = static_cast<std::size_t>(percent / 100 * static_cast<double>(samples.size() - 1));
  return samples[at];
}

inline double Median(std::vector<double> values) {
  return Percentile(values, 50);
}

/// A process that runs `body` and then ends; killed and reaped with this object.
class Child {
 public:
  explicit Child(const std::function<void()>& body) : pid_(fork()) {
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

/// One measured thing over all rounds of a run.
struct Row {
  std::string name;
  std::function<void(Row&)> measure;  ///< one round: appends to p50 and p99, or to rate
  std::vector<double> p50;
  std::vector<double> p99;
};

inline void AddSamples(Row& row, std::vector<double>& samples) {
  row.p50.push_back(Percentile(samples, 50));
  row.p99.push_back(Percentile(samples, 99));
}

/// Measures all rows in turns, so that whatever else the machine does hits all of them alike, and
/// prints medians over the rounds beside their ratio to the first row, the reference.
inline void RunLatencyTable(const char* title, std::vector<Row> rows, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    for (Row& row : rows) row.measure(row);
  }
  std::printf("\n%s\n%-44s %10s %8s %10s %8s\n", title, "", "p50 us", "ratio", "p99 us", "ratio");
  const double p50 = Median(rows.front().p50);
  const double p99 = Median(rows.front().p99);
  for (const Row& row : rows) {
    std::printf("%-44s %10.2f %8.2f %10.2f %8.2f\n", row.name.c_str(), Median(row.p50),
                Median(row.p50) / p50, Median(row.p99), Median(row.p99) / p99);
  }
  std::fflush(stdout);
}

/// The same for rates (one value a round, a second).
inline void RunRateTable(const char* title, std::vector<Row> rows, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    for (Row& row : rows) row.measure(row);
  }
  std::printf("\n%s\n%-44s %12s %8s\n", title, "", "a second", "ratio");
  const double reference = Median(rows.front().p50);
  for (const Row& row : rows) {
    std::printf("%-44s %12.0f %8.2f\n", row.name.c_str(), Median(row.p50),
                Median(row.p50) / reference);
  }
  std::fflush(stdout);
}

}  // namespace kavrel_bench
