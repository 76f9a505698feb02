// kavrel-viewer and kavrelctl as a person runs them, in a runtime directory of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "child_process.h"
#include "temporary_directory.h"

namespace kavrel_test {

struct Outcome {
  int exit_code;  ///< minus the signal that ended the program; -1000 when nothing did in time
  std::string output;
  std::string errors;
};

class Programs : public ::testing::Test {
 protected:
  /// Runs kavrelctl to its end.
  Outcome Tool(const std::vector<std::string>& arguments) const;
  /// Runs a script of bash to its end, with $KAVRELCTL and $VIEWER.
  Outcome Script(const std::string& script) const;

  /// Runs kavrelctl with a standard output that nobody reads any more.
  Outcome ToolWithoutReader(const std::vector<std::string>& arguments) const;

  /// Starts kavrelctl and leaves it running.
  std::unique_ptr<ChildProcess> StartTool(const std::vector<std::string>& arguments) const;

  /// Starts a viewer and waits until it serves.
  std::unique_ptr<ChildProcess> StartViewer(const std::vector<std::string>& arguments = {}) const;

  ChildOptions Options(const char* program, const std::vector<std::string>& arguments) const;

  /// Variables that programs get besides, or instead of, those of every test.
  std::map<std::string, std::optional<std::string>> environment_;
  TemporaryDirectory directory_;
  /// Where programs look for the system bus; there is none unless a test starts one.
  std::string bus_address_ = "unix:path=" + directory_.Path("no-bus");
};

/// Waits for the end of a program that was started.
Outcome OutcomeOf(ChildProcess& child);

}  // namespace kavrel_test
