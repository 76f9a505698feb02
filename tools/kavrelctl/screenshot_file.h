// The viewer's pictures as files.
#pragma once

#include <cstddef>
#include <string>

#include "control_connection.h"

namespace kavrelctl {

struct SavedScreenshot {
  std::size_t bytes = 0;
  std::string failure;  ///< why there is none
};

/// Writes the picture in a viewer's answer to a file.
SavedScreenshot SaveScreenshot(const ControlAnswer& answer, const std::string& file);

}  // namespace kavrelctl
