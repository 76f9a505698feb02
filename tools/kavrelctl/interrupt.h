// The end by Ctrl-C, at once and with a word about what was under way.
#pragma once

#include <string>

namespace kavrelctl {

/// From now on SIGINT and SIGTERM end the program at once, with 130 and 143, whatever it waits for,
/// after a line on standard error: "kavrelctl: interrupted <what>".
void EndWhenInterrupted();

/// What is under way: "at step 3 of 12, ...". Cut off where it is long. One thread.
void SetInterruptText(const std::string& what);

}  // namespace kavrelctl
