// Whether a store's file can be trusted, and what happens when it cannot.
#pragma once

#include <string>

#include "lmdb_handles.h"

namespace kavrel_vconf {

/// Whether LMDB may map the file `name` of `directory`: it is new, or every page that it can reach
/// lies within the file and is well-formed. Logs why not. The caller has the store alone.
bool IsFileSound(int directory, const std::string& name);

/// Whether every record of the environment is whole. Logs the first that is not.
bool AreRecordsSound(Environment* environment, const std::string& name);

/// Renames the file to `name`.damaged, in place of an earlier one, and removes its lock file. 0 or
/// a negative errno value.
int SetAside(int directory, const std::string& name);

}  // namespace kavrel_vconf
