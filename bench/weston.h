// Weston without a display, composing in memory with the pixman renderer.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "child_process.h"

namespace kavrel_bench {

/// Runs for as long as the object lives, with its socket in XDG_RUNTIME_DIR. One thread.
class Weston {
 public:
  /// Throws std::runtime_error when it does not come up.
  Weston(int width, int height);

  const char* socket() const { return "weston-bench"; }
  pid_t pid() const { return process_->pid(); }

  /// Why it cannot run here; empty when it can.
  static std::string Missing();

 private:
  std::unique_ptr<kavrel_test::ChildProcess> process_;
};

}  // namespace kavrel_bench
