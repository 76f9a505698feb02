#include "lmdb_handles.h"

#include <fcntl.h>

#include <cerrno>

namespace kavrel_vconf {
namespace {

// One entry a process and store. The first process to open a store fixes the number.
constexpr unsigned kMaximumReaders = 2048;

// The database without a name is always the second one of an environment.
constexpr MDB_dbi kDatabase = 1;

MDB_val ToLmdb(std::string_view bytes) {
  return {bytes.size(), const_cast<char*>(bytes.data())};  // LMDB only reads through it
}

std::string_view FromLmdb(const MDB_val& value) {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

int OpenDatabase(Environment* environment) {
  Transaction transaction;
  if (int result = transaction.Begin(environment, MDB_RDONLY); result != 0) return result;
  MDB_dbi database = 0;
  if (int result = mdb_dbi_open(transaction.handle(), nullptr, 0, &database); result != 0) {
    return result;
  }
  return transaction.Commit();
}

}  // namespace

int ErrorOfLmdb(int result) {
  switch (result) {
    case MDB_NOTFOUND:
      return -ENOENT;
    case MDB_MAP_FULL:
      return -ENOSPC;
    case MDB_READERS_FULL:
      return -EUSERS;
    default:
      return result >= 0 ? -result : -EIO;
  }
}

bool IsDamage(int result) {
  return result == MDB_CORRUPTED || result == MDB_PAGE_NOTFOUND || result == MDB_INVALID ||
         result == MDB_VERSION_MISMATCH;
}

int Environment::Open(const std::string& path, unsigned flags,
                      std::unique_ptr<Environment>* result) {
  MDB_env* handle = nullptr;
  if (int error = mdb_env_create(&handle); error != 0) return error;
  std::unique_ptr<Environment> environment(new Environment(handle));
  mdb_env_set_mapsize(handle, kLargestStore);
  mdb_env_set_maxreaders(handle, kMaximumReaders);
  // Without MDB_NOTLS a thread could hold only one read transaction, and would never give it back.
  const unsigned all_flags = flags | MDB_NOSUBDIR | MDB_NOTLS;
  if (int error = mdb_env_open(handle, path.c_str(), all_flags, 0600); error != 0) return error;
  // LMDB opens this one descriptor without it.
  ::fcntl(environment->file(), F_SETFD, FD_CLOEXEC);
  if (int error = OpenDatabase(environment.get()); error != 0) return error;
  environment->ClearDeadReaders();
  *result = std::move(environment);
  return 0;
}

int Environment::file() const {
  int fd = -1;
  mdb_env_get_fd(handle_, &fd);
  return fd;
}

std::size_t Environment::UsedSize() const {
  MDB_envinfo info{};
  MDB_stat status{};
  mdb_env_info(handle_, &info);
  mdb_env_stat(handle_, &status);
  return (info.me_last_pgno + 1) * status.ms_psize;
}

std::size_t Environment::LiveSize() const {
  MDB_stat status{};
  mdb_env_stat(handle_, &status);
  return (status.ms_branch_pages + status.ms_leaf_pages + status.ms_overflow_pages) *
         status.ms_psize;
}

void Environment::ClearDeadReaders() {
  int dead = 0;
  mdb_reader_check(handle_, &dead);
}

int Transaction::Begin(Environment* environment, unsigned flags) {
  return mdb_txn_begin(environment->handle(), nullptr, flags, &handle_);
}

int Transaction::Get(std::string_view key, std::string_view* value) const {
  MDB_val lmdb_key = ToLmdb(key);
  MDB_val lmdb_value{};
  const int result = mdb_get(handle_, kDatabase, &lmdb_key, &lmdb_value);
  if (result == 0) *value = FromLmdb(lmdb_value);
  return result;
}

int Transaction::Put(std::string_view key, std::string_view value) {
  MDB_val lmdb_key = ToLmdb(key);
  MDB_val lmdb_value = ToLmdb(value);
  return mdb_put(handle_, kDatabase, &lmdb_key, &lmdb_value, 0);
}

int Transaction::Delete(std::string_view key) {
  MDB_val lmdb_key = ToLmdb(key);
  return mdb_del(handle_, kDatabase, &lmdb_key, nullptr);
}

int Cursor::Open(const Transaction& transaction) {
  return mdb_cursor_open(transaction.handle(), kDatabase, &handle_);
}

int Cursor::Seek(std::string_view* key, std::string_view* value) {
  return Move(key->empty() ? MDB_FIRST : MDB_SET_RANGE, key, value);
}

int Cursor::Next(std::string_view* key, std::string_view* value) {
  return Move(MDB_NEXT, key, value);
}

int Cursor::Move(MDB_cursor_op operation, std::string_view* key, std::string_view* value) {
  MDB_val lmdb_key = ToLmdb(*key);
  MDB_val lmdb_value{};
  const int result = mdb_cursor_get(handle_, &lmdb_key, &lmdb_value, operation);
  if (result != 0) return result;
  *key = FromLmdb(lmdb_key);
  *value = FromLmdb(lmdb_value);
  return 0;
}

}  // namespace kavrel_vconf
