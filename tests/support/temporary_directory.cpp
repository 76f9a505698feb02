#include "temporary_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace kavrel_test {
namespace {

std::string MakeUnique() {
  const char* const base = std::getenv("TMPDIR");
  std::string path =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kavrel-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + path);
  }
  return path;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : path_(MakeUnique()) {}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
  if (const char* const before = std::getenv(name_.c_str())) before_ = before;
  Set(value);
}

ScopedEnvironment::~ScopedEnvironment() {
  Set(before_);
}

void ScopedEnvironment::Set(const std::optional<std::string>& value) const {
  if (value) {
    ::setenv(name_.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kavrel_test
