// What the environment says about the log.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sink.h"

namespace kavrel_dlog {

/// Above all priorities: nothing is logged.
inline constexpr int kNothing = 8;

struct Settings {
  int threshold = kNothing;
  std::unique_ptr<Sink> sink;           ///< null when nothing is logged
  std::vector<std::string> complaints;  ///< values that could not be used, one line each
};

/// Reads KAVREL_LOG and KAVREL_LOG_LEVEL and opens the output. May throw std::bad_alloc.
Settings ReadSettings();

}  // namespace kavrel_dlog
