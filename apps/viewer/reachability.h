// Whether clients can really connect.
#pragma once

#include <string>

namespace viewer {

/// Connects to `app_id` as a client would, while this thread's main context serves, and tells
/// whether that worked. Listening alone does not tell: the stub reports a taken or malformed name,
/// but other failures - a runtime directory that may not be used, say - only in the log.
/// Thread: the one that made the stub. Throws std::system_error when no thread can be had.
bool IsReachable(const std::string& app_id);

}  // namespace viewer
