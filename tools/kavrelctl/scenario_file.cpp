#include "scenario_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "scenario_reader.h"

namespace kavrelctl {
namespace {

// Empty when all could be read; no more than is needed to see that it is too large.
std::string Read(const std::string& path, std::string& text) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (file.fd < 0 || ::fstat(file.fd, &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "it is no ordinary file";
  std::array<char, 65536> buffer;
  while (text.size() <= kLargestScenario) {
    const ssize_t size = ::read(file.fd, buffer.data(), buffer.size());
    if (size == 0) break;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return std::strerror(errno);
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return {};
}

}  // namespace

std::variant<Scenario, LoadFailure> LoadScenario(const std::string& file) {
  std::string text;
  const std::string failure = Read(file, text);
  if (!failure.empty()) return LoadFailure{"cannot read \"" + file + "\": " + failure, true};
  try {
    return ReadScenario(text);
  } catch (const TextMistake& mistake) {
    std::string place = file;
    if (mistake.line > 0) place += ':' + std::to_string(mistake.line);
    return LoadFailure{place + ": " + mistake.what()};
  }
}

}  // namespace kavrelctl
