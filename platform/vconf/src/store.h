// One of the two stores, as this process sees it: reads, writes, and what a reader may keep.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "connection.h"
#include "key.h"
#include "record.h"

namespace kavrel_vconf {

/// Tells one state of a key from every other: the revision within a store, and which store.
struct Version {
  std::uint64_t generation = 0;
  std::uint64_t revision = 0;  // 0: the key is missing
  bool operator==(const Version&) const = default;
};

/// Any thread. Opened by the first use; opened anew when the files vanish or turn out damaged.
class Store {
 public:
  explicit Store(Family family) : family_(family), directory_(StoreDirectory(family)) {}

  /// What a look at a key found, and how long that stays true.
  struct Look {
    int error = 0;  // 0, or negative: -ENOENT when the key has no value
    Value value;
    // The key's word when the look was taken; null or odd when the look may not be kept.
    const std::atomic<std::uint64_t>* word = nullptr;
    std::uint64_t word_value = 1;
    std::uint64_t generation = 0;  // of the store

    Version version() const { return {generation, value.revision}; }
  };
  Look Read(const Key& key);

  /// Stores the value, or removes the key for a value without a type. On success `look` is what a
  /// reader would find now. 0 or a negative errno value.
  int Write(const Key& key, const Value& value, Look* look);

  /// Calls `visit` for every key that begins with `prefix`, all as of one moment, until it returns
  /// other than 0. No lock is held meanwhile.
  int List(std::string_view prefix,
           const std::function<int(const std::string&, const Value&)>& visit);

  /// Opens the store if it is not open, and anew if its files were replaced, removed or cut short.
  /// Returns its control page, valid for the life of the process, or null with `error` set; null
  /// and 0 on a read-only file system, where nothing changes.
  ControlPage* Control(int* error);

  const std::string& directory() const { return directory_; }
  Family family() const { return family_; }
  /// The process is ending: wakes whom its last changes have not woken yet.
  void FinishWaking();
  void AbandonInForkedChild();

 private:
  enum class Condition { kGood, kOpenAnew, kDamaged };

  int Connect();
  int EnsureConnected();
  bool IsUsable() const;
  int BeginReading();
  int ReadRecord(const Key& key, Value* value);
  void LookOnce(const Key& key, Look* look);
  int Commit(const Key& key, const Value& value, Look* look);
  int CommitUnderLock(const Key& key, const Value& value, Look* look, bool* wake);
  int CommitOnce(const Key& key, const Value& value, Look* look, bool* wake);
  int Collect(std::string_view prefix, std::vector<std::pair<std::string, Value>>* entries);
  void Judge(int lmdb_result);
  void ReportConnecting(int error);

  const Family family_;
  const std::string directory_;
  std::timed_mutex write_mutex_;  // taken before read_mutex_; both to replace the connection
  std::mutex read_mutex_;         // guards the read transaction
  std::unique_ptr<Connection> connection_;
  Transaction reader_;
  std::atomic<Condition> condition_ = Condition::kGood;
  std::string record_;  // the bytes being written; under write_mutex_
  int reported_ = 0;
};

}  // namespace kavrel_vconf
