// The log service's functions for a test program: what is logged is kept, and can be waited for.
#pragma once

#include <string>
#include <vector>

namespace rpc_test {

/// Everything that was logged since the last call.
std::vector<std::string> TakeLog();
/// Waits, generously, until so many lines that contain `text` were logged since the last TakeLog.
bool WaitForLog(const std::string& text, std::size_t count = 1);
std::size_t CountLog(const std::string& text);

}  // namespace rpc_test
