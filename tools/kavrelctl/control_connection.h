// One question to the reference viewer's control port, and what people can do when it fails.
#pragma once

#include <control_protocol.h>

#include <string>
#include <variant>

#include "settings.h"

namespace kavrelctl {

/// Why there is no answer, for people.
struct ControlFailure {
  std::string message;
};

/// Connects, asks, and returns the text of the answer. Thread: any; blocks as long as the settings
/// say.
std::variant<std::string, ControlFailure> AskViewer(const kavrel_programs::ControlRequest& request,
                                                    const Settings& settings);

}  // namespace kavrelctl
