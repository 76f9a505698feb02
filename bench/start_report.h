// What the programs that start_bench starts do: say when main() began and how much memory they had
// by then. Nothing here may need more than every C++ program has.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace kavrel_bench {

struct StartReport {
  std::int64_t began_ns;  ///< of the clock that does not jump
  std::int64_t resident_pages;
};

/// Writes the report on standard output; the result is that of main().
inline int ReportStart() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::array<char, 64> text{};
  const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  if (file < 0 || read(file, text.data(), text.size() - 1) <= 0) return 1;
  close(file);
  char* resident = nullptr;
  (void)std::strtol(text.data(), &resident, 10);  // the first number is all of its address space
  const StartReport report{std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec,
                           std::strtol(resident, nullptr, 10)};
  return write(1, &report, sizeof report) == sizeof report ? 0 : 1;
}

}  // namespace kavrel_bench
