// One process's connection with one store: its files opened, checked and mapped.
//
// A store is four files in its directory, named after its family (here "db"):
//
//   db.mdb          the values (LMDB)          db.mdb-lock   LMDB's readers and its writers' lock
//   db.control      the control page           db.wake       a FIFO that wakes watchers
//
// Everybody who has the store open holds a shared lock on db.control. Who can have it alone is the
// only one there: it checks the values' file before LMDB, which trusts its file, maps it. A damaged
// or foreign one is set aside as db.mdb.damaged, and a new store begins.
//
// A store can also be replaced while it is open: new files take the names, and the old control page
// is marked retired, which sends every process to the new files at its next look.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "control.h"
#include "damage.h"
#include "key.h"
#include "lmdb_handles.h"
#include "unique_fd.h"
#include "wake_sender.h"

namespace kavrel_vconf {

class Connection {
 public:
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Opens the store, creating what is missing. On a read-only file system the connection can only
  /// read, and has no environment when there is no store. 0 or a negative errno value.
  static int Open(Family family, const std::string& directory, std::unique_ptr<Connection>* result);

  /// False when the files were replaced, removed or cut short behind our back: reading on would at
  /// best yield what no other process sees, at worst end in SIGBUS.
  bool IsIntact() const;
  /// False when the values' file is shorter than it was.
  bool HasWholeFile() const;

  /// Sets the values' file aside, so that the next Open begins a new store. The connection is of no
  /// use afterwards.
  int ReplaceDamaged();
  /// Gives the store a new file with the same values, which no reader of the old one pins. Under
  /// the writers' lock; the connection is of no use afterwards.
  int ReplaceFull();
  /// Whether a full file holds few values: then something keeps its free pages from being used.
  bool IsMostlyFree() const { return environment_->LiveSize() * 2 < environment_->UsedSize(); }
  /// Notes how large the file has become after a commit. Looks for dead readers when it has grown
  /// much: what they have not given back is not used again.
  void NoteFileSize();

  /// Null when there is nothing to read.
  Environment* environment() const { return environment_.get(); }
  /// Null on a read-only file system: nothing can change there.
  ControlPage* control() const { return control_; }

  /// Opens the file that wakes watchers. It is held open by everybody who has written: should this
  /// process be killed between a commit and the wake-up, the kernel closes the file, and that wakes
  /// the watchers just as well. 0 or a negative errno value.
  int PrepareToWake();
  /// Null before PrepareToWake.
  WakeSender* wake_sender() const { return wake_sender_.get(); }

  /// In a forked child: closes the descriptors whose closing others wait for, and nothing else.
  void AbandonInForkedChild();

 private:
  Connection(Family family, std::string directory);
  int OpenFiles();
  int OpenStore();
  int Join();
  int OpenControl();
  int OpenReadOnly();
  int OpenAlone();
  int OpenChecked(std::vector<Record>* rescued);
  int BeginAnew(const std::vector<Record>& rescued);
  int OpenEnvironment(unsigned flags);
  int DiscardOtherBoot();
  bool HoldsTheName() const;
  int CopyValues();
  std::string FileName(const char* suffix) const;
  std::string Path(const char* suffix) const;

  const Family family_;
  const std::string directory_path_;
  kavrel_platform::UniqueFd directory_;
  kavrel_platform::UniqueFd control_file_;
  std::shared_ptr<WakeSender> wake_sender_;  // shared with its thread
  ControlInfo control_info_;
  ControlPage* control_ = nullptr;  // mapped for the life of the process
  std::unique_ptr<Environment> environment_;
  std::size_t noted_size_ = 0;
  std::size_t size_at_last_look_ = 0;  // for dead readers
};

/// Where a family's files lie, from the environment variables of this process.
std::string StoreDirectory(Family family);
/// The file that watchers watch.
std::string WakePath(Family family);

}  // namespace kavrel_vconf
