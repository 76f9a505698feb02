#include "channels.h"

#include <strings.h>

#include <algorithm>
#include <vector>

namespace viewer {
namespace {

const std::vector<Channel>& AllChannels() {
  static const std::vector<Channel> channels = {
      {"1", "One", "DVB-T", "1001", {.teletext = true, .subtitle = true}},
      {"2", "Two", "DVB-T", "1002", {.teletext = true, .subtitle = true, .data = true}},
      {"5-1", "Metro", "ATSC", "2051", {.caption = true}},
      {"7", "News", "DVB-T", "1007", {.teletext = true, .caption = true, .data = true}},
      {"11", "Sport", "DVB-S", "3011", {.data = true}},
      {"12", "Film", "DVB-S", "3012", {.subtitle = true, .ttml = true}},
      {"24", "Kids", "DVB-C", "4024", {.ttml = true}},
      {"99", "Test Card", "DVB-T", "1099", {}},
  };
  return channels;
}

template <class Condition>
const Channel* Find(const Condition& condition) {
  const auto found = std::find_if(AllChannels().begin(), AllChannels().end(), condition);
  return found == AllChannels().end() ? nullptr : &*found;
}

}  // namespace

const Channel* FindChannelByNumber(const std::string& number) {
  return Find([&](const Channel& channel) { return channel.number == number; });
}

const Channel* FindChannelByName(const std::string& name) {
  return Find([&](const Channel& channel) {
    return ::strcasecmp(channel.name.c_str(), name.c_str()) == 0;
  });
}

const Channel* FindChannelByServiceId(const std::string& service_id) {
  return Find([&](const Channel& channel) { return channel.service_id == service_id; });
}

const Channel& ChannelAfter(const std::string& number, int step) {
  const Channel* const known = FindChannelByNumber(number);
  if (known == nullptr) return AllChannels().front();
  const auto count = static_cast<int>(AllChannels().size());
  const int next = (static_cast<int>(known - AllChannels().data()) + step % count + count) % count;
  return AllChannels()[static_cast<std::size_t>(next)];
}

std::string Describe(const Channel& channel) {
  if (channel.number.empty()) return "service " + channel.service_id;
  return channel.name.empty() ? channel.number : channel.number + ' ' + channel.name;
}

}  // namespace viewer
