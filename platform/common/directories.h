// Where the bundled services keep their files. Everything lies under two directories that
// environment variables can move, so that many independent systems run beside each other:
//
//   runtime  KAVREL_RUNTIME_DIR, else $XDG_RUNTIME_DIR/kavrel, else /tmp/kavrel-<uid>
//   state    KAVREL_STATE_DIR, else $XDG_STATE_HOME/kavrel, else $HOME/.local/state/kavrel,
//            else <runtime>/state
//
// A program that runs with more rights than its caller (setuid) ignores all environment variables.
#pragma once

#include <string>

#include "unique_fd.h"

namespace kavrel_platform {

/// The value of an environment variable, or an empty text when it is unset, or when the process
/// runs with more rights than its caller.
std::string Environment(const char* name);

/// A whole number from the environment; `fallback` when it is unset, malformed or outside
/// [least, most].
long EnvironmentNumber(const char* name, long fallback, long least, long most);

/// The directory's path; nothing is created.
std::string RuntimeDirectory();
std::string StateDirectory();

/// Creates `path` with its missing parents (mode 0700 whatever the umask) and opens it.
/// Refuses a directory that neither this user nor root owns, or that others may write to.
/// Returns an invalid descriptor with errno set on failure (EACCES when refused).
UniqueFd OpenPrivateDirectory(const std::string& path);

/// Opens `path` as OpenPrivateDirectory does, but creates nothing.
UniqueFd OpenExistingPrivateDirectory(const std::string& path);

}  // namespace kavrel_platform
