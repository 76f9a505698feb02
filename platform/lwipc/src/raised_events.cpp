#include "raised_events.h"

#include <dlog.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "directories.h"
#include "event_file.h"

namespace lwipc {
namespace {

using kavrel_platform::UniqueFd;

// The open files of the raised events, by path. Never destroyed: the events last until the kernel
// closes the files, and other threads may still raise some while the process exits.
class RaisedEvents {
 public:
  static RaisedEvents& Instance() {
    static RaisedEvents* const instance = new RaisedEvents;
    return *instance;
  }

  void Keep(const std::string& path, UniqueFd file) {
    const std::lock_guard lock(mutex_);
    files_[path] = std::move(file);
  }

 private:
  // A forked child shares the open files, and would keep the events of its dead parent raised.
  RaisedEvents() {
    ::pthread_atfork([] { Instance().mutex_.lock(); }, [] { Instance().mutex_.unlock(); },
                     [] {
                       Instance().files_.clear();
                       Instance().mutex_.unlock();
                     });
  }

  std::mutex mutex_;
  std::map<std::string, UniqueFd> files_;
};

// As the library is loaded: a child forked while another thread raises the first event would wait
// for it for ever.
[[maybe_unused]] const RaisedEvents& from_the_start = RaisedEvents::Instance();

void LogOccupied(const EventPlaces& places, int error) {
  dlog_print(DLOG_WARN, "LWIPC",
             "event %s cannot be raised at its path (%s); raised as %s/%s, where only this user's "
             "programs see it",
             places.path.content.c_str(), std::strerror(error), places.substitute.directory.c_str(),
             places.substitute.name.c_str());
}

UniqueFd MakeSubstitute(const EventPlaces& places, int error) {
  UniqueFd file;
  if (kavrel_platform::OpenPrivateDirectory(places.substitute.directory)) {
    file = MakeEventFile(places.substitute);
  }
  if (file) LogOccupied(places, error);
  return file;
}

}  // namespace

int RaiseEvent(const EventPlaces& places) {
  UniqueFd file = MakeEventFile(places.path);
  if (!file) file = MakeSubstitute(places, errno);
  if (!file) {
    const int error = errno != 0 ? errno : EIO;
    dlog_print(DLOG_ERROR, "LWIPC", "event %s cannot be raised: %s", places.path.content.c_str(),
               std::strerror(error));
    return -error;
  }
  RaisedEvents::Instance().Keep(places.path.content, std::move(file));
  return 0;
}

}  // namespace lwipc
