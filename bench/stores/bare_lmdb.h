// LMDB and nothing else, with as many keys as a viewer has and records as large as vconf's: what
// the state store is made of.
#pragma once

#include <lmdb.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace kavrel_bench {

/// An environment of its own. Ends the process when LMDB fails. One thread.
class BareLmdb {
 public:
  BareLmdb(const std::string& path, unsigned flags) {
    Check(mdb_env_create(&environment_));
    Check(mdb_env_set_mapsize(environment_, std::size_t{64} << 20));
    Check(mdb_env_open(environment_, path.c_str(), MDB_NOSUBDIR | MDB_NOTLS | flags, 0600));
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment_, nullptr, 0, &transaction));
    Check(mdb_dbi_open(transaction, nullptr, 0, &database_));
    Check(mdb_txn_commit(transaction));
    for (int number = 0; number < 20; ++number)
      Set("memory/kavrel/key" + std::to_string(number), 0);
    Set("memory/kavrel/pip_focus", 1);
    Check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_));
    mdb_txn_reset(reader_);
  }
  BareLmdb(const BareLmdb&) = delete;
  BareLmdb& operator=(const BareLmdb&) = delete;
  ~BareLmdb() {
    mdb_txn_abort(reader_);
    mdb_env_close(environment_);
  }

  void Set(std::string_view key, int value) {
    std::array<char, 28> record{};
    std::memcpy(record.data() + 24, &value, sizeof value);
    MDB_val lmdb_key{key.size(), const_cast<char*>(key.data())};
    MDB_val lmdb_value{record.size(), record.data()};
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment_, nullptr, 0, &transaction));
    Check(mdb_put(transaction, database_, &lmdb_key, &lmdb_value, 0));
    Check(mdb_txn_commit(transaction));
  }

  int Get(std::string_view key) {
    Check(mdb_txn_renew(reader_));
    const int value = Find(reader_, key);
    mdb_txn_reset(reader_);
    return value;
  }

  int GetInNewTransaction(std::string_view key) {
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction));
    const int value = Find(transaction, key);
    mdb_txn_abort(transaction);
    return value;
  }

 private:
  static void Check(int result) {
    if (result == 0) return;
    (void)std::fprintf(stderr, "LMDB: %s\n", mdb_strerror(result));
    std::exit(1);
  }

  int Find(MDB_txn* transaction, std::string_view key) {
    MDB_val lmdb_key{key.size(), const_cast<char*>(key.data())};
    MDB_val lmdb_value{};
    Check(mdb_get(transaction, database_, &lmdb_key, &lmdb_value));
    int value = 0;
    std::memcpy(&value, static_cast<const char*>(lmdb_value.mv_data) + 24, sizeof value);
    return value;
  }

  MDB_env* environment_ = nullptr;
  MDB_dbi database_ = 0;
  MDB_txn* reader_ = nullptr;
};

}  // namespace kavrel_bench
