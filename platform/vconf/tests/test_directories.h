// Every test program has a store of its own: the service reads its directories at the first use,
// so they are set before any test runs and removed after the last.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "temporary_directory.h"

namespace kavrel_vconf_test {

class TestDirectories : public testing::Environment {
 public:
  void SetUp() override {
    directory_ = std::make_unique<kavrel_test::TemporaryDirectory>();
    runtime_ = std::make_unique<kavrel_test::ScopedEnvironment>("KAVREL_RUNTIME_DIR",
                                                                directory_->Path("run"));
    state_ = std::make_unique<kavrel_test::ScopedEnvironment>("KAVREL_STATE_DIR",
                                                              directory_->Path("state"));
  }
  void TearDown() override {
    state_.reset();
    runtime_.reset();
    directory_.reset();
  }

  std::string MemoryFile(const std::string& suffix) const {
    return directory_->Path("run/vconf/memory" + suffix);
  }
  std::string DurableFile(const std::string& suffix) const {
    return directory_->Path("state/vconf/db" + suffix);
  }
  const std::string& path() const { return directory_->path(); }

 private:
  std::unique_ptr<kavrel_test::TemporaryDirectory> directory_;
  std::unique_ptr<kavrel_test::ScopedEnvironment> runtime_;
  std::unique_ptr<kavrel_test::ScopedEnvironment> state_;
};

inline TestDirectories* const directories = static_cast<TestDirectories*>(
    testing::AddGlobalTestEnvironment(new TestDirectories));  // owned by GoogleTest

}  // namespace kavrel_vconf_test
