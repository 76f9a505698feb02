// The channels that this television receives.
#pragma once

#include <string>

namespace viewer {

/// What a channel carries beside picture and sound.
struct Services {
  bool teletext = false;
  bool caption = false;
  bool subtitle = false;
  bool ttml = false;
  bool data = false;

  bool operator==(const Services&) const = default;
};

struct Channel {
  std::string number;  ///< as it is shown: "7", "5-1"; empty while only the service id is known
  std::string name;
  std::string source;  ///< how it comes in: "DVB-T", ...
  std::string service_id;
  Services services;

  bool operator==(const Channel&) const = default;
};

/// The received channel with this number, name (in any mix of cases) or service id; null when there
/// is none.
const Channel* FindChannelByNumber(const std::string& number);
const Channel* FindChannelByName(const std::string& name);
const Channel* FindChannelByServiceId(const std::string& service_id);

/// The received channel that comes `step` places after the one of this number, in a circle; for a
/// number that is not received the first one.
const Channel& ChannelAfter(const std::string& number, int step);

/// "7 News", "7", "service 1007"
std::string Describe(const Channel& channel);

}  // namespace viewer
