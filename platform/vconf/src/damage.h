// Whether a store's file can be trusted, and what happens when it cannot.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "lmdb_handles.h"
#include "record.h"

namespace kavrel_vconf {

/// A result beside 0 and negative errno values: the file cannot be used, now or later. An errno
/// value says only that it could not be looked at - too little memory, no descriptor, a disk that
/// does not answer - and nothing about what is in it.
inline constexpr int kFileDamaged = 1;

/// Whether an errno value is of that kind.
bool IsShortage(int error);

/// 0 when LMDB may map the file `name` of `directory`: it is new, or every page that it can reach
/// lies within the file and is well-formed. Else kFileDamaged or a negative errno value, with a
/// line in the log. The caller has the store alone.
int CheckFile(int directory, const std::string& name);

/// A key with its value.
using Record = std::pair<std::string, Value>;

/// Reads all records into `sound`. kFileDamaged, with a log line for each, when some are damaged or
/// of another version of this service, or when the environment is damaged further on; a negative
/// errno value when it could not be read.
int ReadSoundRecords(Environment* environment, const std::string& name, std::vector<Record>* sound);

/// Writes the records into a fresh environment. 0 or a negative errno value.
int WriteRecords(Environment* environment, const std::vector<Record>& records);

/// Renames the file to `name`.damaged, in place of an earlier one, and removes its lock file. 0 or
/// a negative errno value.
int SetAside(int directory, const std::string& name);

}  // namespace kavrel_vconf
