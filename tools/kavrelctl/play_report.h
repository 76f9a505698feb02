// What "kavrelctl run" says while it plays and at the end.
#pragma once

#include <cstddef>
#include <string>

#include "scenario.h"

namespace kavrelctl {

/// How a step went.
struct StepOutcome {
  bool holds = true;
  bool lost = false;  ///< nothing more can be played
  std::string expected;
  std::string seen;
  std::string failure;  ///< instead of expected and seen
  std::string answer;   ///< of a call, as JSON; empty: none
};

/// One thread.
class PlayReport {
 public:
  struct Options {
    std::string file;
    bool json = false;
    bool each_step = false;  ///< a line a step
  };

  PlayReport(Options options, const Scenario& scenario);

  /// A step begins; steps count from 0. On a terminal one line tells where the play is.
  void Begin(std::size_t step);
  /// False when nobody reads the output.
  bool End(std::size_t step, const StepOutcome& outcome, double seconds);
  /// Nothing can be played at all, or no more.
  void Fail(const std::string& message);
  /// The last word. False when nobody reads it.
  bool Finish();

 private:
  std::string Place(std::size_t step) const;
  void ClearProgress();

  Options options_;
  const Scenario& scenario_;
  bool shows_progress_;
  std::size_t held_ = 0;
  std::size_t failed_ = 0;
  std::string failure_;
};

}  // namespace kavrelctl
