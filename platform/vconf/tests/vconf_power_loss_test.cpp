// Loss of power. What reaches the disk is recorded; then every state that the disk can be in when
// the power goes is made of it - all that was synced, and any part of what was not - and opened.
// The functions below stand in for the C library's.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <vconf.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "fresh_store.h"

namespace {

struct Operation {
  enum class Kind { kWrite, kSync, kTruncate, kAcknowledged };
  Kind kind = Kind::kWrite;
  bool is_durable = false;  // there when the call returns
  off_t offset = 0;         // or the new size
  std::string bytes = {};
};

// What this process did to the values' file, when it records.
std::vector<Operation>* recording = nullptr;
ino_t recorded_file = 0;

bool IsRecorded(int fd) {
  struct stat status {};
  return recording != nullptr && ::fstat(fd, &status) == 0 && status.st_ino == recorded_file;
}

void RecordWrite(int fd, const void* bytes, std::size_t size, off_t offset) {
  if (!IsRecorded(fd)) return;
  const bool is_durable = (::fcntl(fd, F_GETFL) & O_DSYNC) != 0;
  recording->push_back({Operation::Kind::kWrite, is_durable, offset,
                        std::string(static_cast<const char*>(bytes), size)});
}

int Sync(int fd, long call) {
  const int result = static_cast<int>(::syscall(call, fd));
  if (result == 0 && IsRecorded(fd)) recording->push_back({Operation::Kind::kSync});
  return result;
}

}  // namespace

#pragma GCC visibility push(default)  // for LMDB to find them, too
extern "C" {

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
  const ssize_t written = ::syscall(SYS_pwrite64, fd, bytes, size, offset);
  if (written > 0) RecordWrite(fd, bytes, static_cast<std::size_t>(written), offset);
  return written;
}

ssize_t writev(int fd, const iovec* parts, int count) {
  off_t offset = ::lseek(fd, 0, SEEK_CUR);
  const ssize_t written = ::syscall(SYS_writev, fd, parts, count);
  for (ssize_t left = written; left > 0; ++parts) {
    const auto size = std::min(static_cast<std::size_t>(left), parts->iov_len);
    RecordWrite(fd, parts->iov_base, size, offset);
    offset += static_cast<off_t>(size);
    left -= static_cast<ssize_t>(size);
  }
  return written;
}

int fdatasync(int fd) {
  return Sync(fd, SYS_fdatasync);
}

int fsync(int fd) {
  return Sync(fd, SYS_fsync);
}

int ftruncate(int fd, off_t size) noexcept {
  const int result = static_cast<int>(::syscall(SYS_ftruncate, fd, size));
  if (result == 0 && IsRecorded(fd)) {
    recording->push_back({Operation::Kind::kTruncate, false, size});
  }
  return result;
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

using kavrel_vconf_test::Forked;
using kavrel_vconf_test::FreshStoreTest;
using kavrel_vconf_test::Repetitions;

constexpr char kKey[] = "db/kavrel_test/power";
constexpr std::size_t kSector = 512;  // written wholly or not at all

// Tells its number and is easily seen to be whole; some take several pages.
std::string TextOf(int number) {
  const auto length = static_cast<std::size_t>(number * 2711 % 12000);
  return std::to_string(number) + ':' + std::string(length, static_cast<char>('a' + number % 26)) +
         '.';
}

int NumberInStore() {
  char* const text = vconf_get_str(kKey);
  if (text == nullptr) return -errno;
  const int number = std::stoi(text);
  const bool is_whole = TextOf(number) == text;
  std::free(text);
  return is_whole ? number : -1;
}

void Apply(const Operation& operation, std::string* disk) {
  const auto offset = static_cast<std::size_t>(operation.offset);
  if (operation.kind == Operation::Kind::kTruncate) {
    disk->resize(offset);
    return;
  }
  disk->resize(std::max(disk->size(), offset + operation.bytes.size()));
  disk->replace(offset, operation.bytes.size(), operation.bytes);
}

// A disk that the power leaves at any moment.
class Disk {
 public:
  explicit Disk(std::string content) : durable_(std::move(content)) {}

  void Do(const Operation& operation) {
    if (operation.kind == Operation::Kind::kAcknowledged) {
      ++acknowledged_;
    } else if (operation.kind == Operation::Kind::kSync) {
      for (const Operation& waiting : waiting_) Apply(waiting, &durable_);
      waiting_.clear();
    } else if (operation.is_durable) {
      Apply(operation, &durable_);
    } else {
      AddSectors(operation);
    }
  }

  // What is left when of the sectors that were not synced those are written that `is_written` says.
  template <typename IsWritten>
  std::string AfterPowerLoss(IsWritten is_written) const {
    std::string disk = durable_;
    for (const Operation& sector : waiting_) {
      if (is_written()) Apply(sector, &disk);
    }
    return disk;
  }
  // The same, `last` being under way.
  template <typename IsWritten>
  std::string AfterPowerLossIn(Operation last, IsWritten is_written) const {
    Disk disk = *this;
    last.is_durable = false;
    if (last.kind == Operation::Kind::kWrite) disk.Do(last);
    return disk.AfterPowerLoss(is_written);
  }

  int acknowledged() const { return acknowledged_; }

 private:
  void AddSectors(const Operation& operation) {
    if (operation.kind == Operation::Kind::kTruncate) return waiting_.push_back(operation);
    for (std::size_t at = 0; at < operation.bytes.size();) {
      const std::size_t place = static_cast<std::size_t>(operation.offset) + at;
      const std::size_t size = std::min(kSector - place % kSector, operation.bytes.size() - at);
      waiting_.push_back({Operation::Kind::kWrite, false, static_cast<off_t>(place),
                          operation.bytes.substr(at, size)});
      at += size;
    }
  }

  std::string durable_;
  std::vector<Operation> waiting_;
  int acknowledged_ = 0;
};

void Save(const std::vector<Operation>& operations, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  for (const Operation& operation : operations) {
    file << static_cast<int>(operation.kind) << ' ' << operation.is_durable << ' '
         << operation.offset << ' ' << operation.bytes.size() << '\n'
         << operation.bytes;
  }
}

std::vector<Operation> Load(const std::string& path) {
  std::vector<Operation> operations;
  std::ifstream file(path, std::ios::binary);
  int kind = 0;
  Operation operation;
  std::size_t size = 0;
  while (file >> kind >> operation.is_durable >> operation.offset >> size) {
    file.get();
    operation.kind = static_cast<Operation::Kind>(kind);
    operation.bytes.resize(size);
    file.read(operation.bytes.data(), static_cast<std::streamsize>(size));
    operations.push_back(operation);
  }
  return operations;
}

class PowerLoss : public FreshStoreTest {
 protected:
  // Sets 1 before and 2, 3, ... while recording.
  std::vector<Operation> Record(int sets) {
    Run([&] { EXPECT_EQ(vconf_set_str(kKey, TextOf(1).c_str()), 0); });
    before_ = kavrel_test::ReadFile(DurableFile(".mdb"));
    Run([&] {
      struct stat status {};
      ASSERT_EQ(::stat(DurableFile(".mdb").c_str(), &status), 0);
      recorded_file = status.st_ino;
      std::vector<Operation> operations;
      recording = &operations;
      for (int set = 2; set < 2 + sets; ++set) {
        EXPECT_EQ(vconf_set_str(kKey, TextOf(set).c_str()), 0);
        operations.push_back({Operation::Kind::kAcknowledged});
      }
      recording = nullptr;
      Save(operations, directory_.Path("operations"));
    });
    return Load(directory_.Path("operations"));
  }

  // The next boot: the disk as it was left, and nothing of what was in memory.
  void ExpectAcknowledged(const std::string& disk, int acknowledged) {
    const std::string state = directory_.Path("boot" + std::to_string(++boots_));
    const kavrel_test::ScopedEnvironment variable("KAVREL_STATE_DIR", state);
    ASSERT_EQ(::mkdir(state.c_str(), 0700), 0);
    ASSERT_EQ(::mkdir((state + "/vconf").c_str(), 0700), 0);
    std::ofstream(state + "/vconf/db.mdb", std::ios::binary) << disk;
    ASSERT_EQ(::chmod((state + "/vconf/db.mdb").c_str(), 0600), 0);
    Run([&] {
      const int number = NumberInStore();
      EXPECT_GE(number, 1 + acknowledged);
      EXPECT_LE(number, 2 + acknowledged);
      EXPECT_EQ(vconf_set_str(kKey, "goes on"), 0);
    });
    std::filesystem::remove_all(state);
  }

  std::string before_;
  int boots_ = 0;
};

TEST_F(PowerLoss, LeavesWhatWasAcknowledgedAndNoMix) {
  constexpr int kSets = 6;
  const std::vector<Operation> operations = Record(kSets);
  ASSERT_GT(operations.size(), std::size_t{3} * kSets) << "writes, syncs and acknowledgements";
  const int losses = Repetitions(1, 100);
  std::mt19937 random(20250611);
  Disk disk(before_);
  for (const Operation& operation : operations) {
    SCOPED_TRACE("after " + std::to_string(disk.acknowledged()) + " sets");
    ExpectAcknowledged(disk.AfterPowerLossIn(operation, [] { return false; }), disk.acknowledged());
    ExpectAcknowledged(disk.AfterPowerLossIn(operation, [] { return true; }), disk.acknowledged());
    for (int loss = 0; loss < losses; ++loss) {
      const auto some = [&] { return random() % 2 == 0; };
      ExpectAcknowledged(disk.AfterPowerLossIn(operation, some), disk.acknowledged());
    }
    disk.Do(operation);
    if (HasFailure()) return;
  }
  EXPECT_EQ(disk.acknowledged(), kSets);
}

}  // namespace
