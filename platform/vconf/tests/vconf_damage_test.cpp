// Files that are not what they should be, before a store is opened and while it is in use.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "fresh_store.h"
#include "lmdb_handles.h"
#include "loop.h"

namespace {

using kavrel_test::Loop;
using kavrel_test::ReadFile;
using kavrel_vconf::Environment;
using kavrel_vconf::Transaction;
using kavrel_vconf_test::Forked;
using kavrel_vconf_test::FreshStoreTest;
using kavrel_vconf_test::Repetitions;
using kavrel_vconf_test::Shared;

constexpr char kKey[] = "db/kavrel_test/value";

struct Reading {
  kavrel_vconf_test::Bell news;
  std::atomic<bool> has_begun = false;
};

int IntOf(const std::string& key) {
  int value = 0;
  const int error = vconf_get_int(key.c_str(), &value);
  return error != 0 ? error : value;
}

std::string NumberedKey(int number) {
  return kKey + std::to_string(number);
}

class Damage : public FreshStoreTest {
 protected:
  static constexpr int kKeys = 40;

  void SetUp() override {
    Run([] {
      for (int number = 0; number < kKeys; ++number) {
        EXPECT_EQ(vconf_set_int(NumberedKey(number).c_str(), number), 0);
      }
      const std::string text(9000, 't');
      EXPECT_EQ(vconf_set_str("db/kavrel_test/text", text.c_str()), 0);
    });
    whole_ = ReadFile(DurableFile(".mdb"));
    ASSERT_FALSE(whole_.empty());
  }

  void Write(const std::string& content) const {
    std::ofstream(DurableFile(".mdb"), std::ios::binary | std::ios::trunc) << content;
  }

  // Every key holds its value or nothing, everything can be set again. Returns how many were left.
  static int UseStore() {
    int left = 0;
    for (int number = 0; number < kKeys; ++number) {
      const int value = IntOf(NumberedKey(number));
      EXPECT_TRUE(value == number || value == -ENOENT) << number << ": " << value;
      if (value == number) ++left;
    }
    if (char* text = vconf_get_str("db/kavrel_test/text")) {
      EXPECT_EQ(text, std::string(9000, 't'));
      std::free(text);
    }
    EXPECT_EQ(vconf_set_int(kKey, 5), 0);
    EXPECT_EQ(IntOf(kKey), 5);
    return left;
  }

  // What a first process makes of the file, and that a second one agrees with it.
  int LeftAfterDamage() const {
    Shared<int> left;
    Run([&] { *left = UseStore(); });
    Run([&] {
      EXPECT_EQ(IntOf(kKey), 5);
      EXPECT_EQ(UseStore(), *left);
    });
    return *left;
  }

  std::string whole_;
};

TEST_F(Damage, AForeignFileIsSetAside) {
  const std::string log = directory_.Path("log");
  const kavrel_test::ScopedEnvironment logging("KAVREL_LOG", "file:" + log);
  const std::string foreign = "this is not a store\n";
  Write(foreign);
  EXPECT_EQ(LeftAfterDamage(), 0);
  EXPECT_EQ(ReadFile(DurableFile(".mdb.damaged")), foreign);
  Write(foreign + "again");
  EXPECT_EQ(LeftAfterDamage(), 0);
  EXPECT_EQ(ReadFile(DurableFile(".mdb.damaged")), foreign + "again");
  int lines = 0;
  std::ifstream told(log);
  for (std::string line; std::getline(told, line);) {
    lines += line.find(" is damaged or not ours: set aside as ") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(lines, 2) << ReadFile(log);
}

TEST_F(Damage, AFileThatCannotBeOneIsSetAside) {
  std::filesystem::remove(DurableFile(".mdb"));
  std::filesystem::create_directory(DurableFile(".mdb"));
  EXPECT_EQ(LeftAfterDamage(), 0);
  std::filesystem::remove_all(DurableFile(".mdb.damaged"));
  std::filesystem::remove(DurableFile(".mdb"));
  const std::string target = directory_.Path("target");
  std::ofstream(target) << "precious";
  std::filesystem::create_symlink(target, DurableFile(".mdb"));
  EXPECT_EQ(LeftAfterDamage(), 0);
  EXPECT_EQ(ReadFile(target), "precious");
  std::filesystem::remove(DurableFile(".mdb"));
  ASSERT_EQ(::mkfifo(DurableFile(".mdb").c_str(), 0600), 0);
  EXPECT_EQ(LeftAfterDamage(), 0);
}

TEST_F(Damage, AnEmptyFileIsANewStore) {
  Write("");
  EXPECT_EQ(LeftAfterDamage(), 0);
  EXPECT_FALSE(Exists(DurableFile(".mdb.damaged")));
}

TEST_F(Damage, AnotherVersionOfTheStoreIsSetAside) {
  std::string other = whole_;
  for (const std::size_t page : {std::size_t{0}, std::size_t{4096}}) other[page + 20] = 2;
  Write(other);
  EXPECT_EQ(LeftAfterDamage(), 0);
  EXPECT_EQ(ReadFile(DurableFile(".mdb.damaged")), other);
}

// One bad record costs one value: the others move to the new store.
TEST_F(Damage, WholeRecordsAreCarriedOver) {
  std::unique_ptr<Environment> environment;
  ASSERT_EQ(Environment::Open(DurableFile(".mdb"), 0, &environment), 0);
  Transaction transaction;
  ASSERT_EQ(transaction.Begin(environment.get(), 0), 0);
  ASSERT_EQ(transaction.Put(NumberedKey(7), "neither whole nor of this version"), 0);
  ASSERT_EQ(transaction.Put("a key\nof nobody", "x"), 0);
  ASSERT_EQ(transaction.Commit(), 0);
  environment.reset();
  EXPECT_EQ(LeftAfterDamage(), kKeys - 1);
  EXPECT_TRUE(Exists(DurableFile(".mdb.damaged")));
}

TEST_F(Damage, EveryTruncationIsSurvived) {
  int lost = 0;
  for (std::size_t size = 1; size < whole_.size(); size += size < 300 ? 37 : 2003) {
    SCOPED_TRACE("cut to " + std::to_string(size));
    Write(whole_.substr(0, size));
    if (LeftAfterDamage() < kKeys) ++lost;
  }
  EXPECT_GT(lost, 0);
}

TEST_F(Damage, EveryFlippedBitIsSurvived) {
  std::mt19937 random(17);
  for (int flip = 0; flip < Repetitions(60, 10000); ++flip) {
    const std::size_t at = random() % whole_.size();
    const auto bit = static_cast<char>(1 << random() % 8);
    SCOPED_TRACE("bit " + std::to_string(bit) + " of byte " + std::to_string(at));
    std::string damaged = whole_;
    damaged[at] = static_cast<char>(damaged[at] ^ bit);
    Write(damaged);
    LeftAfterDamage();
  }
}

TEST_F(Damage, TheOtherFilesAreMadeAnew) {
  for (const char* suffix : {".control", ".mdb-lock", ".wake"}) {
    for (const std::string& content : {std::string(), std::string("x"), std::string(200000, 'x')}) {
      SCOPED_TRACE(suffix);
      std::filesystem::remove(DurableFile(suffix));
      std::ofstream(DurableFile(suffix)) << content;
      EXPECT_EQ(LeftAfterDamage(), kKeys);
    }
  }
  EXPECT_TRUE(std::filesystem::is_fifo(DurableFile(".wake")));
}

// --- While the store is in use

class Replacement : public FreshStoreTest {
 protected:
  static constexpr char kVolatile[] = "memory/kavrel_test/value";

  static void Count(keynode_t*, void* user_data) { ++*static_cast<int*>(user_data); }
};

// Somebody cuts the file short under two processes that have it mapped. Neither dies; both go on
// with the same new store, and watchers with them.
TEST_F(Replacement, AFileCutShortInUseIsAnErrorAndNotASignal) {
  for (const int left : {0, 1, 4096, 8192, 12288, 16384}) {
    SCOPED_TRACE("cut to " + std::to_string(left));
    Run([&] {
      Loop loop;
      int calls = 0;
      Run([] { EXPECT_EQ(vconf_set_int("memory/kavrel_test/unread", 1), 0); });
      ASSERT_EQ(vconf_set_int(kVolatile, 1), 0);
      ASSERT_EQ(vconf_notify_key_changed(kVolatile, Count, &calls), 0);
      loop.RunReady();
      Run([&] {
        EXPECT_EQ(IntOf(kVolatile), 1);
        EXPECT_EQ(::truncate(MemoryFile(".mdb").c_str(), left), 0);
        EXPECT_EQ(IntOf("memory/kavrel_test/unread"), -ENOENT);
        EXPECT_EQ(vconf_set_int(kVolatile, 2), 0);
        EXPECT_EQ(IntOf(kVolatile), 2);
      });
      EXPECT_TRUE(loop.RunUntil([&] { return calls == 1; }));
      EXPECT_EQ(IntOf(kVolatile), 2);
      EXPECT_EQ(vconf_set_int(kVolatile, 3), 0);
      EXPECT_TRUE(loop.RunUntil([&] { return calls == 2; }));
      Run([] { EXPECT_EQ(IntOf(kVolatile), 3); });
    });
    std::filesystem::remove_all(directory_.Path("run"));
  }
}

// A process stopped in the middle of a read would keep all pages from being used again until the
// file is full: the others move to a copy of the values.
TEST_F(Replacement, AReaderThatStandsStillNeitherStopsWritersNorGrowsTheFileForEver) {
  Run([this] {
    Loop loop;
    int calls = 0;
    ASSERT_EQ(vconf_set_int(kVolatile, -1), 0);
    ASSERT_EQ(vconf_set_int("memory/kavrel_test/kept", 77), 0);
    ASSERT_EQ(vconf_notify_key_changed(kVolatile, Count, &calls), 0);
    loop.RunReady();
    Shared<Reading> reading;
    Forked reader([&] {
      std::unique_ptr<Environment> environment;
      Transaction transaction;
      if (Environment::Open(MemoryFile(".mdb"), MDB_NOSYNC, &environment) != 0) return 1;
      if (transaction.Begin(environment.get(), MDB_RDONLY) != 0) return 1;
      reading->has_begun = true;
      reading->news.Ring();
      for (;;) ::pause();
    });
    reading->news.AwaitUntil([&] { return reading->has_begun.load(); });
    Run([] {
      const std::string text(20000, 't');
      for (int value = 0; value < 8000; ++value) {
        ASSERT_EQ(vconf_set_str("memory/kavrel_test/text", text.c_str()), 0) << value;
      }
      EXPECT_EQ(IntOf("memory/kavrel_test/kept"), 77);
      ASSERT_EQ(vconf_set_int(kVolatile, 5), 0);
    });
    EXPECT_TRUE(loop.RunUntil([&] { return IntOf(kVolatile) == 5 && calls > 0; }));
    EXPECT_EQ(IntOf("memory/kavrel_test/kept"), 77);
    EXPECT_LE(std::filesystem::file_size(MemoryFile(".mdb")), kavrel_vconf::kLargestStore);
    EXPECT_FALSE(Exists(MemoryFile(".mdb.new")));
    EXPECT_EQ(vconf_set_int(kVolatile, 6), 0);
    EXPECT_TRUE(loop.RunUntil([&] { return calls >= 2; }));
  });
}

// A reader that died in the middle of a read is only noticed when somebody asks.
TEST_F(Replacement, AReaderKilledInARead) {
  Run([this] {
    ASSERT_EQ(vconf_set_int(kVolatile, -1), 0);
    Forked reader([&] {
      std::unique_ptr<Environment> environment;
      Transaction transaction;
      if (Environment::Open(MemoryFile(".mdb"), MDB_NOSYNC, &environment) != 0) return 1;
      if (transaction.Begin(environment.get(), MDB_RDONLY) != 0) return 1;
      return ::raise(SIGKILL);
    });
    EXPECT_EQ(reader.Wait(), -SIGKILL);
    for (int value = 0; value < 10000; ++value) ASSERT_EQ(vconf_set_int(kVolatile, value), 0);
    const auto size = std::filesystem::file_size(MemoryFile(".mdb"));
    for (int value = 0; value < 10000; ++value) ASSERT_EQ(vconf_set_int(kVolatile, value), 0);
    EXPECT_EQ(std::filesystem::file_size(MemoryFile(".mdb")), size);
    EXPECT_LT(size, 1u << 20);
  });
}

}  // namespace
