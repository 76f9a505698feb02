// Events in processes of their own.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "child_process.h"
#include "temporary_directory.h"

namespace lwipc_test {

inline constexpr const char* kEvent = "/tmp/kavrel-host_ready";
inline constexpr const char* kOtherEvent = "/tmp/kavrel-compositor_ready";

/// A process that obeys; killed at the end of the scope.
class EventProcess {
 public:
  explicit EventProcess(const std::string& user = "") : child_(Options(user)) {}

  /// What the call returned in that process.
  int Ask(const std::string& command) {
    Tell(command);
    return Answer(command);
  }
  void Tell(const std::string& command) { child_.WriteInput(command + '\n'); }
  int Answer(const std::string& command) {
    const auto line = child_.WaitForLine(command + " = ");
    if (!line) {
      ADD_FAILURE() << "no answer to " << command << "\n" << child_.errors();
      return -1000;
    }
    return std::stoi(line->substr(line->rfind(' ')));
  }

  kavrel_test::ChildProcess& child() { return child_; }

 private:
  static kavrel_test::ChildOptions Options(const std::string& user) {
    kavrel_test::ChildOptions options;
    options.arguments = {LWIPC_PROCESS};
    if (!user.empty()) options.arguments.push_back(user);
    return options;
  }

  kavrel_test::ChildProcess child_;
};

/// Event directory (open to everybody, like /tmp) and runtime directory of one test.
class EventTest : public testing::Test {
 protected:
  EventTest() {
    ::chmod(directory_.path().c_str(), 0755);
    ::mkdir(events_.c_str(), 0700);
    ::chmod(events_.c_str(), 01777);
    ::mkdir(directory_.Path("run").c_str(), 0700);
    ::chmod(directory_.Path("run").c_str(), 01777);
  }

  /// Where an event's file lies in this test.
  std::string PathOf(const std::string& event) const {
    return events_ + event.substr(std::string("/tmp").size());
  }

  kavrel_test::TemporaryDirectory directory_;
  std::string events_ = directory_.Path("events");
  kavrel_test::ScopedEnvironment event_directory_{"KAVREL_EVENT_DIR", events_};
  kavrel_test::ScopedEnvironment runtime_directory_{"KAVREL_RUNTIME_DIR", directory_.Path("run")};
};

}  // namespace lwipc_test
