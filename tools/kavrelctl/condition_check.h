// Whether a condition of a scenario holds.
#pragma once

#include <optional>
#include <string>

#include "control_connection.h"
#include "scenario.h"

namespace kavrelctl {

struct Verdict {
  bool holds = false;
  std::string seen;     ///< instead of what was expected
  std::string failure;  ///< why it cannot be told
};

/// Looks at the state store, or asks on `control`, which may be null for conditions on properties.
Verdict Check(const Condition& condition, ControlConnection* control);

/// Whether a condition is about something that only the control port tells.
bool NeedsControl(const Condition& condition);

/// Whether nobody tells when the condition may have changed, so that one has to look from time to
/// time.
bool HasNoEvents(const Condition& condition);

/// Where `part`, whose values are texts, differs from `whole`: "channel.number \"5\"". What `part`
/// does not name is not compared.
std::optional<std::string> FirstDifference(const nlohmann::ordered_json& part,
                                           const nlohmann::ordered_json& whole,
                                           const std::string& path = {});

}  // namespace kavrelctl
