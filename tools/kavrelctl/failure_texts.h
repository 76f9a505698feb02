// What people read when a viewer cannot be reached or does not answer, the same on every way to it.
#pragma once

#include <string>

#include "settings.h"

namespace kavrelctl {

/// `the viewer "org.zarnet.kavrel"`
std::string ViewerName(const Settings& settings);

/// "10 s"
std::string LimitText(const Settings& settings);

/// "; it may be stopped or busy, ...": what to do about an answer that does not come.
extern const char* const kWaitLonger;

/// "it does not answer (limit 10 s); ..."
std::string SilenceText(const Settings& settings);

/// `the viewer "org.zarnet.kavrel" is lost: ...`: it was there, and has gone.
std::string LostText(const Settings& settings);

/// Why a viewer that is there cannot be used.
extern const char* const kNotPermitted;

}  // namespace kavrelctl
