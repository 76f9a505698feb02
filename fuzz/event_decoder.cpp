#include "event_decoder.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <optional>
#include <string>
#include <string_view>

#include "event_file.h"
#include "event_place.h"
#include "expect.h"
#include "temporary_directory.h"
#include "unique_fd.h"

namespace kavrel_fuzz {
namespace {

using kavrel_platform::UniqueFd;
using lwipc::EventPlaces;
using lwipc::Place;

constexpr std::string_view kMovable = "/tmp/";

// Where events of /tmp lie instead, for the life of the process.
class EventDirectory {
 public:
  static const std::string& Path() {
    static const EventDirectory directory;
    return directory.directory_.path();
  }

 private:
  const kavrel_test::TemporaryDirectory directory_;
  const kavrel_test::ScopedEnvironment events_{"KAVREL_EVENT_DIR", directory_.path()};
  const kavrel_test::ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.Path("run")};
};

bool IsEventName(const std::string& text) {
  if (!text.starts_with('/') || text.size() >= PATH_MAX) return false;
  return !text.ends_with('/') && !text.ends_with("/.") && !text.ends_with("/..");
}

// The path whose flattened name this is.
std::string Unflattened(const std::string& name) {
  std::string path;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool is_mark = name[i] == '%';
    if (is_mark) Expect(++i < name.size() && (name[i] == '-' || name[i] == '%'), "a whole mark");
    path += is_mark && name[i] == '-' ? '/' : name[i];
  }
  return path;
}

void CheckPlaces(const std::string& name, const EventPlaces& places) {
  const std::string moved = name.starts_with(kMovable)
                                ? EventDirectory::Path() + '/' + name.substr(kMovable.size())
                                : name;
  for (const Place* place : {&places.path, &places.substitute}) {
    Expect(place->content == moved, "both places say which event they are of");
    Expect(place->name.find('/') == std::string::npos, "a name stays in its directory");
    Expect(!place->name.empty() && place->name != "." && place->name != "..", "a name of a file");
  }
  const Place& path = places.path;
  Expect(path.directory + '/' + path.name == moved ||
             (path.directory == "/" && '/' + path.name == moved),
         "the event's path");
  Expect(Unflattened(places.substitute.name) == moved, "no two events have one substitute");
}

// A file that is held as a raised event's is, with that content.
UniqueFd MakeLockedFile(const Place& place, std::string_view content) {
  const std::string path = place.directory + '/' + place.name;
  UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (file && (::fcntl(file.get(), F_OFD_SETLK, &lock) != 0 ||
               ::write(file.get(), content.data(), content.size()) !=
                   static_cast<ssize_t>(content.size()))) {
    file.Reset();
  }
  return file;
}

// Both ways of a file to be there: as another process would make it, and raised.
bool TryFiles(const Place& place, std::string_view content) {
  UniqueFd file = MakeLockedFile(place, content);
  if (!file) return false;  // a name that is too long
  const bool is_its_own = content == place.content;
  Expect(lwipc::TestEventFile(place) == (is_its_own ? 1 : 0), "an event is raised by its own file");
  file = lwipc::MakeEventFile(place);
  Expect(file.valid(), "an event replaces what lies at its path");
  Expect(lwipc::TestEventFile(place) == 1, "an event that was raised is raised");
  file.Reset();
  Expect(lwipc::TestEventFile(place) == 0, "an event ends with its raiser");
  ::unlink(place.content.c_str());
  return is_its_own;
}

}  // namespace

bool DecodeEvent(const std::uint8_t* data, std::size_t size) {
  const std::string& directory = EventDirectory::Path();
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string name(input.substr(0, input.find('\0')));
  const std::optional<EventPlaces> places = lwipc::FindPlaces(name.c_str());
  Expect(places.has_value() == IsEventName(name), "an event is the path of a file");
  if (!places) return false;
  CheckPlaces(name, *places);
  if (places->path.directory != directory || name.size() == size) return false;
  // "@" stands for the directory, which no input knows.
  std::string content(input.substr(name.size() + 1));
  if (content.starts_with('@')) content = directory + '/' + content.substr(1);
  return TryFiles(places->path, content);
}

}  // namespace kavrel_fuzz
