// What a test needs to run beside others: a directory of its own, and its own environment.
#pragma once

#include <optional>
#include <string>

namespace kavrel_test {

/// A fresh directory (mode 0700) below $TMPDIR or /tmp, removed with all that is in it. Throws
/// std::system_error when it cannot be made. Any thread.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  const std::string& path() const { return path_; }
  /// The path of `name` inside the directory; nothing is created.
  std::string Path(const std::string& name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

/// Sets (or, without a value, unsets) an environment variable and restores it at the end. Only
/// while no other thread reads the environment.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const std::optional<std::string>& value);
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment();

 private:
  void Set(const std::optional<std::string>& value) const;

  std::string name_;
  std::optional<std::string> before_;
};

/// The whole content of a file; empty when it cannot be read.
std::string ReadFile(const std::string& path);

}  // namespace kavrel_test
