// The directories and the log of one trial's process.
#pragma once

#include <dlog.h>

#include "temporary_directory.h"

namespace faults_test {

/// A fresh directory for all that the services keep, and no log. The log's settings are read, so
/// that their reading is not taken for the doing of the function under test.
class ProcessSetting {
 public:
  ProcessSetting() { dlog_print(DLOG_VERBOSE, "faults", "the first record reads the settings"); }
  ProcessSetting(const ProcessSetting&) = delete;
  ProcessSetting& operator=(const ProcessSetting&) = delete;

  const kavrel_test::TemporaryDirectory& directory() const { return directory_; }

 private:
  kavrel_test::TemporaryDirectory directory_;
  kavrel_test::ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.path()};
  kavrel_test::ScopedEnvironment state_{"KAVREL_STATE_DIR", directory_.Path("state")};
  kavrel_test::ScopedEnvironment events_{"KAVREL_EVENT_DIR", directory_.path()};
  kavrel_test::ScopedEnvironment xdg_{"XDG_RUNTIME_DIR", directory_.path()};
  kavrel_test::ScopedEnvironment log_{"KAVREL_LOG", "none"};
};

}  // namespace faults_test
