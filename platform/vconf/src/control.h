// The control page: a small file beside each store that every process using the store maps. It
// holds the lock that writers take with a time limit, a word for every group of keys that moves
// with each change, and which watchers are asleep.
//
// A word is even while nothing happens and then never the same twice, so a reader may keep what it
// read for as long as the word stays as it was. A writer makes it odd before it commits and even
// afterwards. One that is killed in between leaves it odd: readers then always look into the store,
// and the next writer puts the word right. The order "odd, commit, even" is what makes a kept value
// safe; nothing here has to be guessed after a crash.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "unique_fd.h"

namespace kavrel_vconf {

/// What the file holds. All members are shared with other processes: what one writes while another
/// reads stands on cache lines of its own.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct ControlPage {
  static constexpr std::size_t kWords = 1024;

  std::uint64_t magic;
  std::uint32_t format;
  std::uint32_t size;
  std::array<char, 48> boot_id;
  std::uint64_t generation;  // of the values: another one means other values under all keys

  alignas(64) pthread_mutex_t writer_lock;
  std::atomic<std::uint32_t> in_flight;  // number of the odd word plus one; under the lock
  std::atomic<std::uint64_t> sequence;   // counts the changes begun; written under the lock
  std::atomic<std::uint64_t> file_size;  // the values' file has never been seen smaller

  // Every watcher takes the next ticket before it sleeps; a writer that has woken everybody up to a
  // ticket says so. Both only grow, so a process stopped or killed half-way confuses nobody.
  alignas(64) std::atomic<std::uint64_t> asleep;
  std::atomic<std::uint64_t> woken;
  std::atomic<std::uint32_t> retired;  // 1: these files have been replaced; open the store anew
  alignas(64) std::array<std::atomic<std::uint64_t>, kWords> words;

  std::atomic<std::uint64_t>& WordOf(std::uint64_t hash) { return words[hash % kWords]; }
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

/// Whether a value kept under `word` may be used while the word stays so.
inline bool IsSettled(std::uint64_t word) {
  return (word & 1) == 0;
}

/// What a control file says before it is mapped. Nothing of it holds when it cannot be read: the
/// result is then a negative errno value, else 0.
struct ControlInfo {
  bool is_valid = false;  // otherwise the other members say nothing
  bool is_retired = false;
  bool is_of_this_boot = false;
  std::uint64_t sequence = 0;
  std::uint64_t generation = 0;
};
int InspectControl(int fd, ControlInfo* info);

/// Writes a new page for a store that no other process has open, its words and its counter beyond
/// `sequence`: nothing that this process kept before can be taken for new. A `generation` of 0
/// stands for a new one. 0 or a negative errno value.
int InitialiseControl(int fd, std::uint64_t sequence, std::uint64_t generation);

/// Maps the page of `fd`; null with errno set when it cannot be mapped or is no control page. The
/// mapping stays for the life of the process: values kept by any thread point into it.
ControlPage* MapControl(int fd);

/// Has every process open the store anew: for a store whose files were replaced or removed.
void RetireControl(ControlPage* page);

/// Holds the writers' lock. Any thread, this process or another: a holder that dies frees it.
class WriterLock {
 public:
  explicit WriterLock(ControlPage* page) : page_(page) {}
  ~WriterLock();
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

  /// 0, or -ETIMEDOUT after LockTimeout().
  int Take();

 private:
  ControlPage* page_;
  bool held_ = false;
};

/// One change of one key, under the writers' lock: the word is odd while this object lives.
class ChangeMark {
 public:
  ChangeMark(ControlPage* page, std::uint64_t hash);
  ~ChangeMark();
  ChangeMark(const ChangeMark&) = delete;
  ChangeMark& operator=(const ChangeMark&) = delete;

  /// What the word will be once this change is settled.
  std::uint64_t SettledWord() const { return 2 * sequence_; }

  /// Settles the word that a killed writer left odd; under the lock, once the store itself has
  /// recovered. True when there was one: watchers must then be woken for it.
  static bool SettleForDeadWriter(ControlPage* page);

 private:
  ControlPage* page_;
  std::atomic<std::uint64_t>& word_;
  std::uint64_t sequence_;
};

}  // namespace kavrel_vconf
