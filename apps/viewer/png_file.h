// Pictures as PNG, and writing them to files.
#pragma once

#include <string>

#include "window.h"

namespace viewer {

/// The bytes of a PNG file. Throws std::runtime_error when the picture is none.
std::string EncodePng(const Picture& picture);

/// Writes a file, in the place of what was there. Throws std::runtime_error with a message.
void WriteFile(const std::string& path, const std::string& bytes);

}  // namespace viewer
