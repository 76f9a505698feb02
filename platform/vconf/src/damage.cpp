#include "damage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "log.h"
#include "record.h"

namespace kavrel_vconf {

bool IsFileSound(int directory, const std::string& name) {
  static_cast<void>(directory);
  static_cast<void>(name);
  return true;
}

bool AreRecordsSound(Environment* environment, const std::string& name) {
  Transaction transaction;
  Cursor cursor;
  if (transaction.Begin(environment, MDB_RDONLY) != 0) return false;
  if (cursor.Open(transaction) != 0) return false;
  std::string_view key;
  std::string_view bytes;
  int result = cursor.Seek(&key, &bytes);
  for (; result == 0; result = cursor.Next(&key, &bytes)) {
    const std::string text(key);
    const std::optional<HashedName> hashed = HashName(text.c_str());
    Value value;
    if (!hashed || !ParseKey(*hashed) || !DecodeRecord(*hashed, bytes, &value)) {
      VCONF_LOG_ERROR("%s: the record of \"%s\" is damaged", name.c_str(), text.c_str());
      return false;
    }
  }
  if (result == MDB_NOTFOUND) return true;
  VCONF_LOG_ERROR("%s cannot be read: %s", name.c_str(), mdb_strerror(result));
  return false;
}

int SetAside(int directory, const std::string& name) {
  const std::string aside = name + ".damaged";
  if (::renameat(directory, name.c_str(), directory, aside.c_str()) != 0 && errno != ENOENT) {
    return -errno;
  }
  if (::unlinkat(directory, (name + "-lock").c_str(), 0) != 0 && errno != ENOENT) return -errno;
  VCONF_LOG_ERROR("%s is damaged or not ours: set aside as %s, a new store begins", name.c_str(),
                  aside.c_str());
  return 0;
}

}  // namespace kavrel_vconf
