// What all benchmarks share: where a process runs, how long things took, what processors spent on
// them. The tables that the figures end in are in table.h.
#pragma once

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kavrel_bench {

using Clock = std::chrono::steady_clock;

inline double MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// Whether a rough answer within a few minutes is wanted (KAVREL_BENCH_QUICK).
inline bool Quick() {
  static const bool quick = std::getenv("KAVREL_BENCH_QUICK") != nullptr;
  return quick;
}

/// How often something is done in one round: a quarter of `full` when it has to be quick.
inline int Samples(int full) {
  return Quick() ? std::max(1, full / 4) : full;
}

/// How many rounds are measured of `full` ones.
inline int Rounds(int full) {
  constexpr int kQuick = 3;
  return Quick() ? std::min(full, kQuick) : full;
}

/// Runs a process (0: the calling one) on one processor from now on, and all it starts.
inline void PinTo(int cpu, pid_t pid = 0) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(cpu), &set);
  if (sched_setaffinity(pid, sizeof set, &set) != 0) std::perror("sched_setaffinity");
}

/// Processor time that a process has used so far; 0 is the calling one.
inline double ProcessorMicroseconds(pid_t pid = 0) {
  clockid_t clock = CLOCK_PROCESS_CPUTIME_ID;
  timespec time{};
  if (pid != 0 && clock_getcpuclockid(pid, &clock) != 0) return 0;
  if (clock_gettime(clock, &time) != 0) return 0;
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

/// What the calling process and some others together have used.
inline double ProcessorMicroseconds(const std::vector<pid_t>& others) {
  double sum = ProcessorMicroseconds();
  for (const pid_t other : others) sum += ProcessorMicroseconds(other);
  return sum;
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

/// Keeps the first processors busy with work that gives way to everything else, so that none of
/// them sleeps: how long a virtual machine takes to wake one says nothing about a program.
class KeptAwake {
 public:
  explicit KeptAwake(int processors) {
    for (int cpu = 0; cpu < processors; ++cpu) {
      spinning_.push_back(std::make_unique<Child>([cpu] {
        PinTo(cpu);
        const sched_param none{};
        if (sched_setscheduler(0, SCHED_IDLE, &none) != 0) return;
        for (;;) asm volatile("");
      }));
    }
  }

 private:
  std::vector<std::unique_ptr<Child>> spinning_;
};

}  // namespace kavrel_bench
