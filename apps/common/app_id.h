// Application ids on the command line.
#pragma once

#include <string>

namespace kavrel_programs {

/// What a person did wrong who typed `text` as an application id; empty when it is one.
std::string AppIdMistake(const std::string& text);

}  // namespace kavrel_programs
