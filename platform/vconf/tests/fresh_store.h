// A test whose stores are its own, used by processes that it forks: the service reads its
// directories once a process.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "forked.h"
#include "temporary_directory.h"

namespace kavrel_vconf_test {

class FreshStoreTest : public testing::Test {
 protected:
  /// What a forked process returns: 0 when no expectation failed in it.
  static std::function<int()> Checked(const std::function<void()>& body) {
    return [body] {
      body();
      (void)::fflush(nullptr);
      return testing::Test::HasFailure() ? 1 : 0;
    };
  }

  /// Runs `body` in a process of its own and waits for it.
  static void Run(const std::function<void()>& body) {
    Forked process(Checked(body));
    EXPECT_EQ(process.Wait(), 0);
  }

  std::string MemoryFile(const std::string& suffix) const {
    return directory_.Path("run/vconf/memory" + suffix);
  }
  std::string DurableFile(const std::string& suffix) const {
    return directory_.Path("state/vconf/db" + suffix);
  }
  static bool Exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

  const kavrel_test::TemporaryDirectory directory_;
  const kavrel_test::ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.Path("run")};
  const kavrel_test::ScopedEnvironment state_{"KAVREL_STATE_DIR", directory_.Path("state")};
};

}  // namespace kavrel_vconf_test
