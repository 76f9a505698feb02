// How many file descriptors a process has open: who has gone must have closed its own.
#pragma once

#include <filesystem>
#include <iterator>
#include <string>

namespace kavrel_test {

/// In this process it counts, each time, the one that it looks with.
inline long OpenDescriptors(const std::string& process = "self") {
  const std::filesystem::directory_iterator open("/proc/" + process + "/fd");
  return std::distance(begin(open), end(open));
}

}  // namespace kavrel_test
