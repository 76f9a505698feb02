// Other ways of keeping a value that many processes read, set and follow: a store server in memory
// (Redis), a database file (SQLite), GLib's settings with their own service (dconf). One file a
// way; each keeps one int under one name.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kavrel_bench {

/// A connection to a store. Belongs to one thread. What fails throws std::runtime_error.
class Store {
 public:
  virtual ~Store() = default;
  virtual int Get() = 0;
  virtual void Set(int value) = 0;
  /// Sets, and lets those who follow know.
  virtual void Tell(int value) { Set(value); }
  /// Never returns: `ready` once changes will be noticed, `called` for each.
  virtual void Follow(const std::function<void()>& ready, const std::function<void()>& called) = 0;
};

/// A way of keeping values, and the server that it needs, for as long as the object lives.
struct StoreKind {
  std::string name;
  std::function<std::unique_ptr<Store>()> open;
  std::shared_ptr<void> server = nullptr;
  /// It starts threads, so that a process that has opened it must not fork.
  bool threads = false;
  int most_followers = 1000;  ///< with more it takes too long
  std::string missing = {};   ///< why it cannot be measured
};

/// What they need is made below `directory`. Durable: a set that has returned survives a loss of
/// power.
StoreKind RedisStore(const std::string& directory, bool durable);
StoreKind SqliteStore(const std::string& directory, bool durable);
/// Always durable. Sets the environment of the process.
StoreKind GSettingsStore(const std::string& directory);

}  // namespace kavrel_bench
