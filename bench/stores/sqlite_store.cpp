// An SQLite database with a write-ahead log. It has no notices for other processes: who follows
// waits for the log to be written to (inotify) and then reads, more than once if need be.
#include <sqlite3.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "stores/store.h"

namespace kavrel_bench {
namespace {

struct Close {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

Database Open(const std::string& path) {
  sqlite3* database = nullptr;
  const int result = sqlite3_open(path.c_str(), &database);
  Database owner(database);
  if (result != SQLITE_OK) throw std::runtime_error("SQLite cannot open " + path);
  sqlite3_busy_timeout(database, 10'000);
  return owner;
}

class SqliteConnection final : public Store {
 public:
  SqliteConnection(const std::string& path, bool durable) : path_(path), database_(Open(path)) {
    Run("PRAGMA journal_mode=WAL");
    Run(durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
    Run("CREATE TABLE IF NOT EXISTS state (name TEXT PRIMARY KEY, value INTEGER) WITHOUT ROWID");
    get_ = Prepare("SELECT value FROM state WHERE name = 'memory/kavrel/pip_focus'");
    set_ = Prepare("REPLACE INTO state VALUES ('memory/kavrel/pip_focus', ?)");
  }

  int Get() override {
    const int result = sqlite3_step(get_.get());
    const int value = result == SQLITE_ROW ? sqlite3_column_int(get_.get(), 0) : 0;
    sqlite3_reset(get_.get());
    if (result != SQLITE_ROW) throw std::runtime_error("SQLite has no value");
    return value;
  }
  void Set(int value) override {
    sqlite3_bind_int(set_.get(), 1, value);
    const int result = sqlite3_step(set_.get());
    sqlite3_reset(set_.get());
    if (result != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(database_.get()));
  }
  void Follow(const std::function<void()>& ready, const std::function<void()>& called) override {
    const int watch = inotify_init1(IN_CLOEXEC);
    if (watch < 0 || inotify_add_watch(watch, (path_ + "-wal").c_str(), IN_MODIFY) < 0) {
      throw std::runtime_error("no inotify watch");
    }
    ready();
    std::array<char, 4096> events{};
    for (int seen = Get(); read(watch, events.data(), events.size()) > 0;) {
      if (LookFor(seen)) called();
    }
  }

 private:
  // The log is written to more than once for a change, and what was written counts only a moment
  // after the last time, of which there is no notice.
  bool LookFor(int& seen) {
    constexpr int kLooks = 200;
    for (int look = 0; look < kLooks; ++look) {
      const int value = Get();
      if (value != seen) {
        seen = value;
        return true;
      }
      usleep(1);
    }
    return false;
  }

  void Run(const char* text) const {
    if (sqlite3_exec(database_.get(), text, nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error(std::string(text) + ": " + sqlite3_errmsg(database_.get()));
    }
  }
  Statement Prepare(const char* text) const {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database_.get(), text, -1, &statement, nullptr) != SQLITE_OK) {
      throw std::runtime_error(std::string(text) + ": " + sqlite3_errmsg(database_.get()));
    }
    return Statement(statement);
  }

  std::string path_;
  Database database_;
  Statement get_;
  Statement set_;
};

}  // namespace

StoreKind SqliteStore(const std::string& directory, bool durable) {
  const std::string path = directory + (durable ? "/durable.sqlite" : "/volatile.sqlite");
  StoreKind kind{
      durable ? "SQLite, write-ahead log, synced" : "SQLite, write-ahead log, not synced",
      [path, durable]() -> std::unique_ptr<Store> {
        return std::make_unique<SqliteConnection>(path, durable);
      }};
  kind.most_followers = 10;  // they look again and again
  try {
    kind.open()->Set(0);
  } catch (const std::exception& error) {
    kind.missing = error.what();
  }
  return kind;
}

}  // namespace kavrel_bench
