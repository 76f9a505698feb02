// What isolates one test from those beside it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "temporary_directory.h"

namespace rpc_test {

/// A fresh runtime directory and a fixed application id, for as long as the test lives.
class IsolatedTest : public testing::Test {
 protected:
  const std::string& runtime() const { return directory_.path(); }

 private:
  kavrel_test::TemporaryDirectory directory_;
  kavrel_test::ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.path()};
  kavrel_test::ScopedEnvironment app_id_{"KAVREL_APP_ID", "org.zarnet.conformance"};
};

}  // namespace rpc_test
