#include "connection.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "damage.h"
#include "directories.h"
#include "log.h"
#include "patience.h"

namespace kavrel_vconf {
namespace {

using kavrel_platform::UniqueFd;

// For dead readers; each look asks the kernel about every reader.
constexpr std::size_t kGrowthBetweenLooks = std::size_t{256} << 10;

bool IsReadOnlyError(int error) {
  return error == -EROFS;
}

// open obeys the umask, which may take away our own rights or leave others some; the mode is set
// explicitly on what we made.
UniqueFd OpenOwnFile(int directory, const std::string& name, int flags) {
  const int all_flags = flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  UniqueFd file(::openat(directory, name.c_str(), all_flags));
  if (file || errno != ENOENT) return file;
  file.Reset(::openat(directory, name.c_str(), all_flags | O_CREAT, 0600));
  if (file && ::fchmod(file.get(), 0600) != 0) file.Reset();
  return file;
}

int RemoveFile(int directory, const std::string& name) {
  return ::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT ? 0 : -errno;
}

int CreateFile(int directory, const std::string& name) {
  return OpenOwnFile(directory, name, O_RDWR) ? 0 : -errno;
}

// Anything else under the name, even an old store's plain file, would wake nobody.
int CreateFifo(int directory, const std::string& name) {
  struct stat status {};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISFIFO(status.st_mode)) return 0;
    if (int error = RemoveFile(directory, name); error != 0) return error;
  }
  if (::mkfifoat(directory, name.c_str(), 0600) != 0) return -errno;
  return ::fchmodat(directory, name.c_str(), 0600, 0) == 0 ? 0 : -errno;
}

void PauseForAMillisecond() {
  const timespec pause{0, 1'000'000};
  ::nanosleep(&pause, nullptr);
}

// Opening and replacing a store excludes every other process that would do the same: the lock on
// the directory, for as long as the descriptor lives.
int LockDirectory(int directory, UniqueFd* lock) {
  lock->Reset(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!*lock) return -errno;
  for (int attempt = 0; ::flock(lock->get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK && errno != EINTR) return -errno;
    if (attempt == LockTimeout().count()) return -ETIMEDOUT;
    PauseForAMillisecond();
  }
  return 0;
}

// The names of new files, and of the directories above them, reach the disk only so.
void SyncDirectories(int directory) {
  ::fsync(directory);
  for (const char* parent : {"..", "../.."}) {
    UniqueFd above(::openat(directory, parent, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (above) ::fsync(above.get());
  }
}

}  // namespace

Connection::Connection(Family family, std::string directory)
    : family_(family), directory_path_(std::move(directory)) {}

std::string Connection::FileName(const char* suffix) const {
  return std::string(FamilyName(family_)) + suffix;
}

std::string Connection::Path(const char* suffix) const {
  return directory_path_ + '/' + FileName(suffix);
}

int Connection::Open(Family family, const std::string& directory,
                     std::unique_ptr<Connection>* result) {
  std::unique_ptr<Connection> connection(new Connection(family, directory));
  int error = connection->OpenFiles();
  if (IsReadOnlyError(error)) {
    connection.reset(new Connection(family, directory));
    error = connection->OpenReadOnly();
  }
  if (error == 0) *result = std::move(connection);
  return error;
}

int Connection::OpenFiles() {
  directory_ = kavrel_platform::OpenPrivateDirectory(directory_path_);
  if (!directory_) return -errno;
  UniqueFd lock;
  if (int error = LockDirectory(directory_.get(), &lock); error != 0) return error;
  int error = OpenStore();
  if (error == kFileDamaged) error = OpenStore();  // the files that were set aside made room
  return error == kFileDamaged ? -EIO : error;
}

int Connection::OpenStore() {
  if (int error = OpenControl(); error != 0) return error;
  if (int error = CreateFifo(directory_.get(), FileName(".wake")); error != 0) return error;
  const bool alone = ::flock(control_file_.get(), LOCK_EX | LOCK_NB) == 0;
  if (int error = alone ? OpenAlone() : Join(); error != 0) return error;
  if (::flock(control_file_.get(), LOCK_SH | LOCK_NB) != 0) return -errno;
  if (control_ == nullptr) control_ = MapControl(control_file_.get());
  if (control_ == nullptr) return -errno;
  NoteFileSize();
  return 0;
}

// Others have the store open, so its file was checked once. It may have been cut short since: then
// they, too, have to leave it.
int Connection::Join() {
  control_ = MapControl(control_file_.get());
  if (control_ == nullptr) return -errno;
  const std::string name = FileName(".mdb");
  struct stat status {};
  if (::fstatat(directory_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISREG(status.st_mode) &&
      static_cast<std::uint64_t>(status.st_size) >= control_->file_size.load()) {
    if (int error = OpenEnvironment(0); error != kFileDamaged) return error;
  }
  RetireControl(std::exchange(control_, nullptr));
  const int error = SetAside(directory_.get(), name);
  return error != 0 ? error : kFileDamaged;
}

int Connection::OpenControl() {
  const std::string name = FileName(".control");
  control_file_ = OpenOwnFile(directory_.get(), name, O_RDWR);
  if (!control_file_) return -errno;
  if (int error = InspectControl(control_file_.get(), &control_info_); error != 0) return error;
  if (!control_info_.is_retired) return 0;
  if (::unlinkat(directory_.get(), name.c_str(), 0) != 0) return -errno;
  control_file_ = OpenOwnFile(directory_.get(), name, O_RDWR);
  return control_file_ ? 0 : -errno;
}

int Connection::OpenAlone() {
  if (int error = DiscardOtherBoot(); error != 0) return error;
  if (int error = RemoveFile(directory_.get(), FileName(".mdb-lock")); error != 0) return error;
  std::vector<Record> rescued;
  int error = OpenChecked(&rescued);
  if (error == kFileDamaged) error = BeginAnew(rescued);
  if (error != 0) return error;
  if (family_ == Family::kDurable) SyncDirectories(directory_.get());
  return InitialiseControl(control_file_.get(), control_info_.sequence, control_info_.generation);
}

int Connection::OpenChecked(std::vector<Record>* rescued) {
  const std::string name = FileName(".mdb");
  if (int error = CheckFile(directory_.get(), name); error != 0) return error;
  if (int error = OpenEnvironment(0); error != 0) return error;
  return ReadSoundRecords(environment_.get(), name, rescued);
}

int Connection::BeginAnew(const std::vector<Record>& rescued) {
  environment_.reset();
  control_info_.generation = 0;
  if (int error = SetAside(directory_.get(), FileName(".mdb")); error != 0) return error;
  if (int error = OpenEnvironment(0); error != 0) return error == kFileDamaged ? -EIO : error;
  return WriteRecords(environment_.get(), rescued);
}

// A runtime directory on a disk keeps its files over a reboot; values under "memory/" must not last
// that long, and were written without care for a crash of the machine.
int Connection::DiscardOtherBoot() {
  if (family_ != Family::kMemory || control_info_.is_of_this_boot) return 0;
  control_info_.generation = 0;
  return RemoveFile(directory_.get(), FileName(".mdb"));
}

int Connection::OpenEnvironment(unsigned flags) {
  if ((flags & MDB_RDONLY) == 0) {
    for (const char* suffix : {".mdb", ".mdb-lock"}) {
      if (int error = CreateFile(directory_.get(), FileName(suffix)); error != 0) return error;
    }
    if (family_ == Family::kMemory) flags |= MDB_NOSYNC;
  }
  const int result = Environment::Open(Path(".mdb"), flags, &environment_);
  if (!IsDamage(result)) return ErrorOfLmdb(result);
  VCONF_LOG_ERROR("cannot open %s: %s", Path(".mdb").c_str(), mdb_strerror(result));
  return kFileDamaged;
}

int Connection::OpenReadOnly() {
  directory_ = kavrel_platform::OpenExistingPrivateDirectory(directory_path_);
  if (!directory_) return errno == ENOENT ? 0 : -errno;
  if (::faccessat(directory_.get(), FileName(".mdb").c_str(), F_OK, 0) != 0) return 0;
  int error = CheckFile(directory_.get(), FileName(".mdb"));
  if (error == 0) error = OpenEnvironment(MDB_RDONLY);
  return error == kFileDamaged ? 0 : error;
}

bool Connection::IsIntact() const {
  if (control_ == nullptr) return true;
  return control_->retired.load(std::memory_order_acquire) == 0 && HasWholeFile();
}

bool Connection::HasWholeFile() const {
  struct stat status {};
  if (::fstat(environment_->file(), &status) != 0) return false;
  if (status.st_nlink == 0) RetireControl(control_);
  return status.st_nlink > 0 && static_cast<std::uint64_t>(status.st_size) >=
                                    control_->file_size.load(std::memory_order_relaxed);
}

void Connection::NoteFileSize() {
  const std::size_t used = environment_->UsedSize();
  if (used == noted_size_) return;
  noted_size_ = used;
  if (used > size_at_last_look_ + kGrowthBetweenLooks) {
    size_at_last_look_ = used;
    environment_->ClearDeadReaders();
  }
  struct stat status {};
  if (::fstat(environment_->file(), &status) != 0) return;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  std::uint64_t known = control_->file_size.load(std::memory_order_relaxed);
  while (known < size && !control_->file_size.compare_exchange_weak(known, size)) {
  }
}

// Whether the file that we have open is still the one under its name.
bool Connection::HoldsTheName() const {
  struct stat ours {};
  struct stat named {};
  return ::fstat(environment_->file(), &ours) == 0 &&
         ::fstatat(directory_.get(), FileName(".mdb").c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         ours.st_ino == named.st_ino && ours.st_dev == named.st_dev;
}

// A process killed in the middle of the replacements below leaves at worst a retired control page
// under its name (the next opener makes a new one) or a copy nobody uses.
int Connection::ReplaceDamaged() {
  WriterLock writers(control_);
  if (int error = writers.Take(); error != 0) return error;
  UniqueFd lock;
  if (int error = LockDirectory(directory_.get(), &lock); error != 0) return error;
  const bool ours = HoldsTheName();
  RetireControl(control_);
  return ours ? SetAside(directory_.get(), FileName(".mdb")) : 0;
}

int Connection::ReplaceFull() {
  UniqueFd lock;
  if (int error = LockDirectory(directory_.get(), &lock); error != 0) return error;
  if (HoldsTheName()) {
    if (int error = CopyValues(); error != 0) return error;
    RetireControl(control_);
    const std::string name = FileName(".mdb");
    if (::renameat(directory_.get(), (name + ".new").c_str(), directory_.get(), name.c_str()) !=
        0) {
      return -errno;
    }
    ::unlinkat(directory_.get(), (name + "-lock").c_str(), 0);
    ::fsync(directory_.get());
  }
  RetireControl(control_);
  return 0;
}

int Connection::CopyValues() {
  const std::string name = FileName(".mdb.new");
  ::unlinkat(directory_.get(), name.c_str(), 0);
  UniqueFd copy = OpenOwnFile(directory_.get(), name, O_RDWR);
  if (!copy) return -errno;
  int error = ErrorOfLmdb(mdb_env_copyfd(environment_->handle(), copy.get()));
  if (error == 0 && ::fdatasync(copy.get()) != 0) error = -errno;
  if (error != 0) ::unlinkat(directory_.get(), name.c_str(), 0);
  return error;
}

int Connection::PrepareToWake() {
  if (wake_sender_ != nullptr) return 0;
  // Open for both: so it has a reader, and can be emptied.
  UniqueFd fifo = OpenOwnFile(directory_.get(), FileName(".wake"), O_RDWR);
  if (!fifo) return -errno;
  wake_sender_ = std::make_shared<WakeSender>(std::move(fifo), control_);
  return 0;
}

Connection::~Connection() {
  if (wake_sender_ != nullptr) wake_sender_->Stop();
}

void Connection::AbandonInForkedChild() {
  if (wake_sender_ != nullptr) wake_sender_->AbandonInForkedChild();
  control_file_.Reset();
}

std::string StoreDirectory(Family family) {
  const std::string base = family == Family::kMemory ? kavrel_platform::RuntimeDirectory()
                                                     : kavrel_platform::StateDirectory();
  return base + "/vconf";
}

std::string WakePath(Family family) {
  return StoreDirectory(family) + '/' + FamilyName(family) + ".wake";
}

}  // namespace kavrel_vconf
