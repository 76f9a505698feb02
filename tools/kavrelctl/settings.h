// What all commands of kavrelctl share, whatever parses the command line.
#pragma once

#include <optional>
#include <string>

namespace kavrelctl {

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2 };

struct Settings {
  std::string app_id;
  std::optional<double> timeout_seconds;  ///< 0: no limit
  bool json = false;
  bool verbose = false;
};

/// What is wrong with `text` as a number of seconds; empty when nothing is.
std::string TimeoutMistake(const std::string& text);

/// Makes the limit known to the library. To be called before its first use.
void ApplyTimeout(const Settings& settings);

/// How long a connect, a send or an answer may take; 0: no limit.
double EffectiveTimeoutSeconds(const Settings& settings);

/// The same for a loop that waits; without a limit longer than anybody waits.
double PatienceSeconds(const Settings& settings);

}  // namespace kavrelctl
