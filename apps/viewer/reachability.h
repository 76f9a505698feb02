// Whether clients can connect.
#pragma once

#include <string>

namespace viewer {

/// Whether somebody serves under `app_id`, connecting from a thread that serves nobody. A viewer
/// that is stopped or busy counts after a second of waiting. For a program about to end: it changes
/// the limit of later waits.
bool SomebodyServes(const std::string& app_id);

/// Connects to `app_id` as a client would, while this thread's main context serves, and tells
/// whether that worked. Listening alone does not tell: the stub reports a taken or malformed name,
/// but other failures - a runtime directory that may not be used, say - only in the log.
/// Thread: the one that made the stub. Throws std::system_error when no thread can be had.
bool IsReachable(const std::string& app_id);

}  // namespace viewer
