#include "store_decoder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "damage.h"
#include "expect.h"
#include "file_check.h"
#include "key.h"
#include "lmdb_handles.h"
#include "log_count.h"
#include "record.h"
#include "temporary_directory.h"
#include "unique_fd.h"

namespace kavrel_fuzz {
namespace {

using kavrel_platform::UniqueFd;
using kavrel_vconf::Environment;
using kavrel_vconf::Record;
using kavrel_vconf::Transaction;

constexpr const char* kName = "db.mdb";

// The directory of the file, for the life of the process.
class Place {
 public:
  static Place& Instance() {
    static Place place;
    return place;
  }

  void Write(const std::uint8_t* data, std::size_t size) const {
    // A new file: to cut the old one short would make some file systems write it to the disk.
    for (const char* name : {kName, "db.mdb-lock"}) ::unlinkat(directory_.get(), name, 0);
    const UniqueFd file(
        ::openat(directory_.get(), kName, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (::write(file.get(), data, size) != static_cast<ssize_t>(size)) {
      throw std::system_error(errno, std::generic_category(), path());
    }
  }

  bool IsSound() const { return kavrel_vconf::CheckFile(directory_.get(), kName) == 0; }
  std::string path() const { return temporary_.Path(kName); }

 private:
  const kavrel_test::TemporaryDirectory temporary_;
  const UniqueFd directory_{::open(temporary_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
};

std::unique_ptr<Environment> Open(const Place& place) {
  std::unique_ptr<Environment> environment;
  const int result = Environment::Open(place.path(), MDB_NOSYNC, &environment);
  Expect((result == 0) == (environment != nullptr), "a store is opened or not");
  return environment;
}

void CheckRecords(const std::vector<Record>& records) {
  for (const auto& [name, value] : records) {
    Expect(kavrel_vconf::ParseKey(name.c_str()).has_value(), "a record has a key");
    Expect(value.type != 0, "a record has a value");
  }
}

// Values of many sizes, in place of those that are there and beside them, so that pages are split,
// freed and used again. What LMDB refuses is left.
void Change(Environment& environment, const std::vector<Record>& records) {
  constexpr int kRounds = 3;
  constexpr std::size_t kKeys = 24;
  for (int round = 0; round < kRounds; ++round) {
    Transaction transaction;
    if (transaction.Begin(&environment, 0) != 0) return;
    for (const Record& record : records) {
      if (transaction.Delete(record.first) != 0) return;
    }
    for (std::size_t i = 0; i < kKeys; ++i) {
      const std::string key = "db/fuzz/key" + std::to_string(i * 37 % kKeys);
      const std::string value(i * i * static_cast<std::size_t>(round) * 11 % 9000, 'v');
      if (transaction.Put(key, value) != 0) return;
    }
    if (transaction.Commit() != 0 || !records.empty()) break;
  }
}

}  // namespace

bool DecodeStore(const std::uint8_t* data, std::size_t size) {
  const Place& place = Place::Instance();
  place.Write(data, size);
  const std::size_t errors = ErrorCount();
  if (!place.IsSound()) {
    Expect(ErrorCount() > errors, "a file is refused for a reason");
    return false;
  }
  std::unique_ptr<Environment> environment = Open(place);
  if (environment == nullptr) return false;
  std::vector<Record> records;
  const bool all_sound = kavrel_vconf::ReadSoundRecords(environment.get(), kName, &records) == 0;
  Expect(all_sound || ErrorCount() > errors, "a record is left out for a reason");
  CheckRecords(records);
  Change(*environment, records);
  environment.reset();
  Expect(place.IsSound(), "a file that was sound is sound after changes");
  return all_sound;
}

}  // namespace kavrel_fuzz
