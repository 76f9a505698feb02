#include "damage.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "file_check.h"
#include "log.h"
#include "record.h"
#include "unique_fd.h"

namespace kavrel_vconf {

bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
}

int CheckFile(int directory, const std::string& name) {
  const kavrel_platform::UniqueFd file(
      ::openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file && errno == ENOENT) return 0;
  if (!file) {
    const int error = errno;
    VCONF_LOG_ERROR("%s cannot be opened: %s", name.c_str(), std::strerror(error));
    return IsShortage(error) ? -error : kFileDamaged;
  }
  FileCheck check(file.get(), kLargestStore);
  const std::string damage = check.FindDamage();
  if (check.error() != 0) {
    VCONF_LOG_ERROR("%s cannot be read: %s", name.c_str(), std::strerror(check.error()));
    return -check.error();
  }
  if (damage.empty()) return 0;
  VCONF_LOG_ERROR("%s: %s", name.c_str(), damage.c_str());
  return kFileDamaged;
}

int ReadSoundRecords(Environment* environment, const std::string& name,
                     std::vector<Record>* sound) {
  Transaction transaction;
  Cursor cursor;
  std::string_view key;
  std::string_view bytes;
  bool all_sound = true;
  int result = transaction.Begin(environment, MDB_RDONLY);
  if (result == 0) result = cursor.Open(transaction);
  if (result == 0) result = cursor.Seek(&key, &bytes);
  for (; result == 0; result = cursor.Next(&key, &bytes)) {
    Record record{key, Value()};
    const std::optional<Key> parsed = ParseKey(record.first.c_str());
    if (parsed && parsed->name == key && DecodeRecord(*parsed, bytes, &record.second)) {
      sound->push_back(std::move(record));
    } else {
      VCONF_LOG_ERROR("%s: the record of \"%s\" is damaged or of another version", name.c_str(),
                      record.first.c_str());
      all_sound = false;
    }
  }
  if (result == MDB_NOTFOUND) return all_sound ? 0 : kFileDamaged;
  VCONF_LOG_ERROR("%s cannot be read: %s", name.c_str(), mdb_strerror(result));
  return IsDamage(result) ? kFileDamaged : ErrorOfLmdb(result);
}

int WriteRecords(Environment* environment, const std::vector<Record>& records) {
  if (records.empty()) return 0;
  Transaction transaction;
  std::string bytes;
  int result = transaction.Begin(environment, 0);
  for (std::size_t index = 0; result == 0 && index < records.size(); ++index) {
    const std::optional<Key> key = ParseKey(records[index].first.c_str());
    if (!key) continue;
    EncodeRecord(*key, records[index].second, transaction.Revision(), &bytes);
    result = transaction.Put(key->name, bytes);
  }
  return ErrorOfLmdb(result == 0 ? transaction.Commit() : result);
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
