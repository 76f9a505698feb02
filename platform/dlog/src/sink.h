// Where records go.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "record.h"
#include "unique_fd.h"

namespace kavrel_dlog {

/// Any thread, also several at once, also in a forked child: nothing here takes a lock.
class Sink {
 public:
  virtual ~Sink() = default;
  /// Writes the record, after a notice when `lost_records` went missing before it, without waiting.
  /// Returns 0 or a negative errno value.
  virtual int Write(const Record& record, std::uint64_t lost_records) noexcept = 0;
};

/// Descriptor 2, whatever it is at the moment of the record.
std::unique_ptr<Sink> StandardError();

/// Opens `path` for appending, with at most mode 0640 when it has to be made. Null with errno set
/// on failure: ELOOP for a symbolic link, EINVAL for anything but a regular file, EACCES for one
/// that neither this user nor root owns.
std::unique_ptr<Sink> OpenFile(const std::string& path);

/// The system's journal behind the socket at `path`. Null with errno set when there is none.
std::unique_ptr<Sink> Journal(const std::string& path);

}  // namespace kavrel_dlog
