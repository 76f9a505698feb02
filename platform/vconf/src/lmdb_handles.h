// Owners of LMDB's handles, and the translation of its results.
#pragma once

#include <lmdb.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kavrel_vconf {

/// Address space of a store, and the most that its file can grow to.
inline constexpr std::size_t kLargestStore = std::size_t{64} << 20;

/// A negative errno value for what an LMDB function returned; 0 stays 0.
int ErrorOfLmdb(int result);

/// Whether a result of LMDB says that its file cannot be used: not one of its, or damaged.
bool IsDamage(int result);

/// An open environment with its one database. Any thread; its transactions each one thread at a
/// time. Not to be destroyed in another process than the one that opened it.
class Environment {
 public:
  /// Opens or creates `path` (a file; its lock file lies beside it). `flags` as mdb_env_open.
  static int Open(const std::string& path, unsigned flags, std::unique_ptr<Environment>* result);

  ~Environment() { mdb_env_close(handle_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  MDB_env* handle() const { return handle_; }
  int file() const;
  /// Size of the pages that the last commit reaches up to.
  std::size_t UsedSize() const;
  /// Size of the pages that hold values.
  std::size_t LiveSize() const;
  /// Frees what readers left behind whose process is gone.
  void ClearDeadReaders();

 private:
  explicit Environment(MDB_env* handle) : handle_(handle) {}
  MDB_env* handle_;
};

/// One transaction: aborted when it goes out of scope uncommitted.
class Transaction {
 public:
  Transaction() = default;
  Transaction(Transaction&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Transaction& operator=(Transaction&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Transaction() {
    if (handle_ != nullptr) mdb_txn_abort(handle_);
  }

  int Begin(Environment* environment, unsigned flags);
  int Commit() { return mdb_txn_commit(std::exchange(handle_, nullptr)); }
  /// A read transaction lets go of its snapshot and takes the newest one, without a lock.
  void Reset() { mdb_txn_reset(handle_); }
  int Renew() { return mdb_txn_renew(handle_); }

  explicit operator bool() const { return handle_ != nullptr; }
  std::uint64_t Revision() const { return mdb_txn_id(handle_); }
  int Get(std::string_view key, std::string_view* value) const;
  int Put(std::string_view key, std::string_view value);
  int Delete(std::string_view key);
  MDB_txn* handle() const { return handle_; }

 private:
  MDB_txn* handle_ = nullptr;
};

/// Lets go of a read transaction's snapshot however the scope is left.
class Snapshot {
 public:
  explicit Snapshot(Transaction* reader) : reader_(reader) {}
  ~Snapshot() { reader_->Reset(); }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

 private:
  Transaction* reader_;
};

/// Walks the database of a transaction in key order. Ends before its transaction.
class Cursor {
 public:
  Cursor() = default;
  ~Cursor() {
    if (handle_ != nullptr) mdb_cursor_close(handle_);
  }
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;

  int Open(const Transaction& transaction);
  /// The first entry at or behind `key`, then the one behind the last; MDB_NOTFOUND at the end.
  int Seek(std::string_view* key, std::string_view* value);
  int Next(std::string_view* key, std::string_view* value);

 private:
  int Move(MDB_cursor_op operation, std::string_view* key, std::string_view* value);
  MDB_cursor* handle_ = nullptr;
};

}  // namespace kavrel_vconf
