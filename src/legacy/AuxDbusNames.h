// What both ends of the auxiliary channel call things, so that they always agree.
#pragma once

#include <string>

#include "Util.h"

namespace kavreldbus {

inline constexpr const char* kAuxSignal = "SendSignal";
/// Text, number, flag as 0 or 1.
inline constexpr const char* kAuxBodyType = "(sii)";

/// Bus name of the server and interface of the signal.
inline std::string AuxName(const std::string& channel) {
  return util::CombinateFormatedString("org.zarnet.%s.auxiliary", channel, true);
}

inline std::string AuxPath(const std::string& channel) {
  return util::CombinateFormatedString("/org/zarnet/%s/auxiliary", channel, true);
}

}  // namespace kavreldbus
