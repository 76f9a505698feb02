// Names of host and plug-in, and the clock that key events are timed by. Any thread.
#pragma once

#include <string>

namespace util {

/// Milliseconds of the monotonic clock: only differences mean anything, also between processes of
/// one machine.
unsigned long long GetCurrentTimeInMillis();

/// Whether `name` can name a host or a plug-in: not empty, and only ASCII letters, digits and '-'.
/// A null or empty name is logged.
bool CheckNameValidity(const char* name);

/// `format` with its first "%s" replaced by `value`, from which every '-' is taken out before when
/// `removeDash`. Nothing else of `format` means anything, and `value` is never parsed. Names of
/// buses and interfaces are built with it, in which a '-' is not allowed.
std::string CombinateFormatedString(std::string format, std::string value, bool removeDash);

}  // namespace util
