// The option --ready-fd: whoever starts a program learns without polling when it is ready.
#pragma once

#include <string>

namespace kavrel_programs {

/// What is wrong with `text` as a descriptor to tell readiness on; empty when nothing is.
std::string ReadyFdMistake(const std::string& text);

/// Writes a newline to `fd` and closes it. False, with errno set, when that failed.
bool TellReady(int fd);

}  // namespace kavrel_programs
