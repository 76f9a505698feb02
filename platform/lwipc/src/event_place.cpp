#include "event_place.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "directories.h"

namespace lwipc {
namespace {

constexpr std::string_view kMovablePrefix = "/tmp/";

std::string EventDirectory() {
  if (std::string own = kavrel_platform::Environment("KAVREL_EVENT_DIR"); !own.empty()) return own;
  return kavrel_platform::Environment("KAVREL_RUNTIME_DIR");
}

std::string Moved(std::string_view event) {
  std::string directory = EventDirectory();
  if (directory.empty() || !event.starts_with(kMovablePrefix)) return std::string(event);
  event.remove_prefix(kMovablePrefix.size());
  return directory + '/' + std::string(event);
}

bool IsEventName(const char* event) {
  if (event == nullptr || event[0] != '/' || ::strnlen(event, PATH_MAX) >= PATH_MAX) return false;
  const std::string_view path = event;
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return !name.empty() && name != "." && name != "..";
}

// The whole path as one file name, so that events of different directories stay apart.
std::string Flattened(const std::string& path) {
  std::string name;
  for (const char letter : path) {
    if (letter == '/' || letter == '%') name += '%';
    name += letter == '/' ? '-' : letter;
  }
  return name;
}

}  // namespace

std::optional<EventPlaces> FindPlaces(const char* event) {
  if (!IsEventName(event)) return std::nullopt;
  const std::string path = Moved(event);
  const auto slash = path.rfind('/');
  EventPlaces places;
  places.path.directory = path.substr(0, std::max<std::size_t>(slash, 1));
  places.path.name = path.substr(slash + 1);
  places.path.content = path;
  places.substitute.directory = kavrel_platform::RuntimeDirectory() + "/events";
  places.substitute.name = Flattened(path);
  places.substitute.content = path;
  return places;
}

kavrel_platform::UniqueFd OpenDirectory(const Place& place) {
  return kavrel_platform::UniqueFd(
      ::open(place.directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace lwipc
