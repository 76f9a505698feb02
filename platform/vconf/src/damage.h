// Whether a store's file can be trusted, and what happens when it cannot.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "lmdb_handles.h"
#include "record.h"

namespace kavrel_vconf {

/// Whether LMDB may map the file `name` of `directory`: it is new, or every page that it can reach
/// lies within the file and is well-formed. Logs why not. The caller has the store alone.
bool IsFileSound(int directory, const std::string& name);

/// A key with its value.
using Record = std::pair<std::string, Value>;

/// Reads all records into `sound`. False, with a log line for each, when some are damaged or of
/// another version of this service, or when the environment cannot be read to its end.
bool ReadSoundRecords(Environment* environment, const std::string& name,
                      std::vector<Record>* sound);

/// Writes the records into a fresh environment. 0 or a negative errno value.
int WriteRecords(Environment* environment, const std::vector<Record>& records);

/// Renames the file to `name`.damaged, in place of an earlier one, and removes its lock file. 0 or
/// a negative errno value.
int SetAside(int directory, const std::string& name);

}  // namespace kavrel_vconf
