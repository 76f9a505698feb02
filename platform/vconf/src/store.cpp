#include "store.h"

#include <cerrno>
#include <cstring>
#include <limits>

#include "barrier.h"
#include "log.h"
#include "patience.h"

namespace kavrel_vconf {
namespace {

// A result beside errno values and LMDB's: the files were replaced, do it again on the new ones.
constexpr int kTryAgain = std::numeric_limits<int>::max();
constexpr int kAttempts = 3;

// After a failed write LMDB refuses to work on until it is opened anew.
bool IsStuck(int lmdb_result) {
  return lmdb_result == MDB_PANIC || lmdb_result == MDB_BAD_RSLOT || lmdb_result == MDB_BAD_TXN ||
         lmdb_result == MDB_MAP_RESIZED;
}

}  // namespace

bool Store::IsUsable() const {
  return connection_ != nullptr && condition_ == Condition::kGood && connection_->IsIntact();
}

// Both mutexes are held. A failed attempt leaves no connection; the next use tries again.
int Store::Connect() {
  if (IsUsable()) return 0;
  reader_ = Transaction();
  int error = 0;
  if (connection_ != nullptr && connection_->control() != nullptr &&
      (condition_ == Condition::kDamaged || !connection_->HasWholeFile())) {
    error = connection_->ReplaceDamaged();
  }
  connection_.reset();
  condition_ = Condition::kGood;
  if (error == 0) error = Connection::Open(family_, directory_, &connection_);
  ReportConnecting(error);
  return error;
}

int Store::EnsureConnected() {
  const std::unique_lock writing = LockPatiently(write_mutex_);
  if (!writing) return -ETIMEDOUT;
  const std::lock_guard reading(read_mutex_);
  return Connect();
}

// One line when the store becomes unusable, not one for every call.
void Store::ReportConnecting(int error) {
  if (error != 0 && error != reported_) {
    VCONF_LOG_ERROR("%s/%s.mdb cannot be opened: %s", directory_.c_str(), FamilyName(family_),
                    std::strerror(-error));
  }
  reported_ = error;
}

void Store::Judge(int lmdb_result) {
  if (IsDamage(lmdb_result)) condition_ = Condition::kDamaged;
  if (IsStuck(lmdb_result)) condition_ = Condition::kOpenAnew;
}

int Store::BeginReading() {
  if (connection_->environment() == nullptr) return MDB_NOTFOUND;
  if (reader_) return reader_.Renew();
  const int result = reader_.Begin(connection_->environment(), MDB_RDONLY);
  if (result != MDB_READERS_FULL) return result;
  connection_->environment()->ClearDeadReaders();
  return reader_.Begin(connection_->environment(), MDB_RDONLY);
}

int Store::ReadRecord(const Key& key, Value* value) {
  int result = BeginReading();
  if (result == 0) {
    const Snapshot snapshot(&reader_);
    std::string_view bytes;
    result = reader_.Get(key.name, &bytes);
    if (result == 0 && !DecodeRecord(key, bytes, value)) {
      VCONF_LOG_ERROR("the record of \"%.*s\" is damaged", static_cast<int>(key.name.size()),
                      key.name.data());
      result = EIO;
    }
  }
  Judge(result);
  return ErrorOfLmdb(result);
}

// read_mutex_ is held. The word is read before and after: a value may be kept only when no change
// of it was under way, or finished, in between.
void Store::LookOnce(const Key& key, Look* look) {
  ControlPage* control = connection_->control();
  if (control == nullptr) {
    look->error = ReadRecord(key, &look->value);
    return;
  }
  look->generation = control->generation;
  look->word = &control->WordOf(key.hash);
  look->word_value = look->word->load(std::memory_order_acquire);
  look->error = ReadRecord(key, &look->value);
  AcquireBarrier();
  if (look->word->load(std::memory_order_relaxed) != look->word_value) look->word_value = 1;
}

Store::Look Store::Read(const Key& key) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Look look;
    {
      const std::lock_guard reading(read_mutex_);
      if (IsUsable()) {
        LookOnce(key, &look);
        if (condition_ == Condition::kGood) return look;
      }
    }
    look.error = EnsureConnected();
    if (look.error != 0) return look;
  }
  Look failure;
  failure.error = -EIO;
  return failure;
}

int Store::Write(const Key& key, const Value& value, Look* look) {
  const std::unique_lock writing = LockPatiently(write_mutex_);
  if (!writing) return -ETIMEDOUT;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    {
      const std::lock_guard reading(read_mutex_);
      // Perhaps the file system has become writable since.
      if (connection_ != nullptr && connection_->control() == nullptr) {
        condition_ = Condition::kOpenAnew;
      }
      if (int error = Connect(); error != 0) return error;
    }
    if (connection_->control() == nullptr) return -EROFS;
    const int result = Commit(key, value, look);
    if (result != kTryAgain) return ErrorOfLmdb(result);
  }
  return -EIO;
}

// write_mutex_ is held, so the connection stays as it is; readers go on meanwhile.
int Store::Commit(const Key& key, const Value& value, Look* look) {
  if (int error = connection_->PrepareToWake(); error != 0) return -error;
  bool wake = false;
  int result = 0;
  {
    WriterLock lock(connection_->control());
    if (int error = lock.Take(); error != 0) return -error;
    if (connection_->control()->retired.load(std::memory_order_acquire) != 0) return kTryAgain;
    result = CommitUnderLock(key, value, look, &wake);
  }
  if (wake) connection_->wake_sender()->Wake();
  Judge(result);
  return IsStuck(result) ? kTryAgain : result;
}

int Store::CommitUnderLock(const Key& key, const Value& value, Look* look, bool* wake) {
  Environment* environment = connection_->environment();
  int result = CommitOnce(key, value, look, wake);
  if (result != MDB_MAP_FULL) return result;
  environment->ClearDeadReaders();
  result = CommitOnce(key, value, look, wake);
  if (result != MDB_MAP_FULL || !connection_->IsMostlyFree()) return result;
  // A process that was stopped in the middle of a read keeps every page since from being used
  // again. It can have the old file for itself.
  result = connection_->ReplaceFull();
  if (result != 0) return MDB_MAP_FULL;
  *wake = true;
  return kTryAgain;
}

int Store::CommitOnce(const Key& key, const Value& value, Look* look, bool* wake) {
  ControlPage* control = connection_->control();
  Transaction transaction;
  if (int result = transaction.Begin(connection_->environment(), 0); result != 0) return result;
  if (ChangeMark::SettleForDeadWriter(control)) *wake = true;
  const std::uint64_t revision = transaction.Revision();
  const ChangeMark mark(control, key.hash);
  int result = 0;
  if (value.type == 0) {
    result = transaction.Delete(key.name);
  } else {
    EncodeRecord(key, value, revision, &record_);
    look->value = value;  // what can fail for want of memory comes before the commit
    result = transaction.Put(key.name, record_);
  }
  if (result == 0) result = transaction.Commit();
  if (result != 0) return result;
  *wake = true;
  connection_->NoteFileSize();
  look->value.revision = value.type == 0 ? 0 : revision;
  look->error = value.type == 0 ? -ENOENT : 0;
  look->word = &control->WordOf(key.hash);
  look->word_value = mark.SettledWord();
  look->generation = control->generation;
  return 0;
}

int Store::Collect(std::string_view prefix, std::vector<std::pair<std::string, Value>>* entries) {
  int result = BeginReading();
  if (result != 0) return result == MDB_NOTFOUND ? 0 : result;
  const Snapshot snapshot(&reader_);
  Cursor cursor;
  std::string_view name = prefix;
  std::string_view bytes;
  result = cursor.Open(reader_);
  if (result == 0) result = cursor.Seek(&name, &bytes);
  for (; result == 0 && name.substr(0, prefix.size()) == prefix;
       result = cursor.Next(&name, &bytes)) {
    std::string text(name);
    Value value;
    const std::optional<HashedName> hashed = HashName(text.c_str());
    if (hashed && DecodeRecord(*hashed, bytes, &value)) {
      entries->emplace_back(std::move(text), std::move(value));
    }
  }
  return result == MDB_NOTFOUND ? 0 : result;
}

int Store::List(std::string_view prefix,
                const std::function<int(const std::string&, const Value&)>& visit) {
  if (int error = EnsureConnected(); error != 0) return error;
  std::vector<std::pair<std::string, Value>> entries;
  {
    const std::lock_guard reading(read_mutex_);
    if (!IsUsable()) return -EIO;
    const int result = Collect(prefix, &entries);
    Judge(result);
    if (result != 0) return ErrorOfLmdb(result);
  }
  for (const auto& [name, value] : entries) {
    if (int result = visit(name, value); result != 0) return result;
  }
  return 0;
}

ControlPage* Store::Control(int* error) {
  *error = EnsureConnected();
  if (*error != 0) return nullptr;
  const std::lock_guard reading(read_mutex_);
  return connection_ != nullptr ? connection_->control() : nullptr;
}

void Store::FinishWaking() {
  if (connection_ != nullptr && connection_->wake_sender() != nullptr) {
    connection_->wake_sender()->Finish();
  }
}

void Store::AbandonInForkedChild() {
  if (connection_ != nullptr) connection_->AbandonInForkedChild();
}

}  // namespace kavrel_vconf
