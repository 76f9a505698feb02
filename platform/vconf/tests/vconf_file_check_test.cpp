// The check of a file before LMDB maps it: sound files pass, and what passes, LMDB can use.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "file_check.h"
#include "forked.h"
#include "lmdb_handles.h"
#include "temporary_directory.h"
#include "unique_fd.h"

namespace {

using kavrel_vconf::Cursor;
using kavrel_vconf::Environment;
using kavrel_vconf::FileCheck;
using kavrel_vconf::kLargestStore;
using kavrel_vconf::Transaction;
using kavrel_vconf_test::Forked;
using kavrel_vconf_test::Repetitions;

constexpr std::size_t kPage = 4096;

std::string KeyOf(unsigned number) {
  return "db/kavrel_test/key" + std::to_string(number);
}

class FileCheckTest : public testing::Test {
 protected:
  std::string DamageOf(const std::string& path) const {
    const kavrel_platform::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return FileCheck(file.get(), kLargestStore).FindDamage();
  }

  // Adds, changes and removes keys in `rounds` transactions, the same each time.
  static bool Work(const std::string& path, unsigned keys, unsigned rounds, std::size_t largest) {
    std::unique_ptr<Environment> environment;
    if (Environment::Open(path, MDB_NOSYNC, &environment) != 0) return false;
    std::mt19937 random(7);
    for (unsigned round = 0; round < rounds; ++round) {
      Transaction transaction;
      if (transaction.Begin(environment.get(), 0) != 0) return false;
      for (unsigned change = 0; change < 10; ++change) {
        const std::string key = KeyOf(static_cast<unsigned>(random()) % keys);
        const std::string value(random() % largest, 'v');
        const int result =
            random() % 4 == 0 ? transaction.Delete(key) : transaction.Put(key, value);
        if (result != 0 && result != MDB_NOTFOUND) return false;
      }
      if (transaction.Commit() != 0) return false;
    }
    return true;
  }

  static std::string Content(const std::string& path) { return kavrel_test::ReadFile(path); }

  void Write(const std::string& path, const std::string& content) const {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    ::unlink((path + "-lock").c_str());
  }

  // Whether LMDB reads everything and then changes much without dying; error results are fine.
  static int UseAll(const std::string& path) {
    {
      std::unique_ptr<Environment> environment;
      if (Environment::Open(path, MDB_NOSYNC, &environment) != 0) return 0;
      Transaction transaction;
      Cursor cursor;
      if (transaction.Begin(environment.get(), MDB_RDONLY) != 0) return 0;
      if (cursor.Open(transaction) != 0) return 0;
      std::string_view key;
      std::string_view value;
      unsigned sum = 0;
      for (int result = cursor.Seek(&key, &value); result == 0;
           result = cursor.Next(&key, &value)) {
        for (const char c : value) sum += static_cast<unsigned char>(c);
      }
      volatile unsigned kept = sum;
      static_cast<void>(kept);
    }
    Work(path, 60, 12, 6000);
    return 0;
  }

  const kavrel_test::TemporaryDirectory directory_;
  const std::string path_ = directory_.Path("test.mdb");
};

TEST_F(FileCheckTest, AcceptsWhatLmdbWrites) {
  Write(path_, "");
  EXPECT_EQ(DamageOf(path_), "");
  for (const unsigned keys : {1u, 10u, 200u, 5000u}) {
    for (const unsigned rounds : {1u, 20u, 300u}) {
      for (const std::size_t largest : {std::size_t{30}, std::size_t{3000}, std::size_t{20000}}) {
        ::unlink(path_.c_str());
        ASSERT_TRUE(Work(path_, keys, rounds, largest));
        EXPECT_EQ(DamageOf(path_), "") << keys << " keys, " << rounds << " rounds, " << largest;
      }
    }
  }
}

TEST_F(FileCheckTest, AcceptsAStoreFromWhichEverythingWasRemoved) {
  ASSERT_TRUE(Work(path_, 40, 100, 9000));
  std::unique_ptr<Environment> environment;
  ASSERT_EQ(Environment::Open(path_, MDB_NOSYNC, &environment), 0);
  Transaction transaction;
  ASSERT_EQ(transaction.Begin(environment.get(), 0), 0);
  for (unsigned number = 0; number < 40; ++number) transaction.Delete(KeyOf(number));
  ASSERT_EQ(transaction.Commit(), 0);
  EXPECT_EQ(DamageOf(path_), "");
}

TEST_F(FileCheckTest, RefusesForeignFiles) {
  for (const std::string& content :
       {std::string("x"), std::string("SQLite format 3\0", 16), std::string(100, '\0'),
        std::string(3 * kPage, '\0'), std::string(3 * kPage, '\xff')}) {
    Write(path_, content);
    EXPECT_NE(DamageOf(path_), "");
  }
  const kavrel_platform::UniqueFd file(::open(directory_.path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(FileCheck(file.get(), kLargestStore).FindDamage(), "it is not a file");
}

TEST_F(FileCheckTest, RefusesAFileOfMorePagesThanAStoreCanHave) {
  ASSERT_TRUE(Work(path_, 10, 10, 3000));
  const kavrel_platform::UniqueFd file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(FileCheck(file.get(), kLargestStore).FindDamage(), "");
  EXPECT_NE(FileCheck(file.get(), 2 * kPage).FindDamage(), "");
}

TEST_F(FileCheckTest, NoTruncationLeavesAFileThatLmdbDiesOf) {
  ASSERT_TRUE(Work(path_, 60, 40, 6000));
  const std::string whole = Content(path_);
  std::vector<std::size_t> sizes;
  for (std::size_t size = 0; size < whole.size(); size += kPage) {
    for (const std::size_t more : {std::size_t{1}, std::size_t{17}, kPage / 2, kPage}) {
      if (size + more < whole.size()) sizes.push_back(size + more);
    }
  }
  int refused = 0;
  for (const std::size_t size : sizes) {
    Write(path_, whole.substr(0, size));
    if (!DamageOf(path_).empty()) {
      ++refused;
      continue;
    }
    Forked user([&] { return UseAll(path_); });
    ASSERT_EQ(user.Wait(), 0) << "cut to " << size << " of " << whole.size() << " bytes";
  }
  EXPECT_GT(refused, static_cast<int>(sizes.size()) / 2);
}

// Half of the bits lie where pages keep their numbers, kinds and offsets.
TEST_F(FileCheckTest, NoFlippedBitLeavesAFileThatLmdbDiesOf) {
  ASSERT_TRUE(Work(path_, 200, 60, 300));
  const std::string whole = Content(path_);
  std::mt19937 random(11);
  int refused = 0;
  const int flips = Repetitions(500, 100000);
  for (int flip = 0; flip < flips; ++flip) {
    std::size_t at = random() % whole.size();
    if (flip % 2 == 0) at = at / kPage * kPage + random() % 192;
    std::string damaged = whole;
    const int bit = static_cast<int>(random() % 8);
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
    Write(path_, damaged);
    if (!DamageOf(path_).empty()) {
      ++refused;
      continue;
    }
    Forked user([&] { return UseAll(path_); });
    ASSERT_EQ(user.Wait(), 0) << "bit " << bit << " of byte " << at;
  }
  EXPECT_GT(refused, flips / 50);
}

// Whole pages of the file in each other's place, or of an earlier state: nothing that one bit does.
TEST_F(FileCheckTest, NoSwappedPagesLeaveAFileThatLmdbDiesOf) {
  ASSERT_TRUE(Work(path_, 60, 40, 6000));
  const std::string whole = Content(path_);
  const std::size_t pages = whole.size() / kPage;
  std::mt19937 random(13);
  for (int swap = 0; swap < Repetitions(200, 10000); ++swap) {
    const std::size_t from = random() % pages;
    const std::size_t to = random() % pages;
    std::string damaged = whole;
    damaged.replace(to * kPage, kPage, whole, from * kPage, kPage);
    Write(path_, damaged);
    if (!DamageOf(path_).empty()) continue;
    Forked user([&] { return UseAll(path_); });
    ASSERT_EQ(user.Wait(), 0) << "page " << from << " in place of " << to;
  }
}

}  // namespace
