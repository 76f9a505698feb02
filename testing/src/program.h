// Programs by name, as a shell finds them.
#pragma once

#include <string>

namespace kavrel::testing {

/// The path of a program: `name` itself when it has a slash, else the first executable of that name
/// in the directories of PATH. Throws std::system_error when there is none.
std::string FindProgram(const std::string& name);

}  // namespace kavrel::testing
