// Reading all records of a store: without memory, and where LMDB finds damage.
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "damage.h"
#include "faults.h"
#include "store_image.h"
#include "temporary_directory.h"

namespace {

using kavrel_vconf::Environment;
using kavrel_vconf::kFileDamaged;
using kavrel_vconf::ReadSoundRecords;
using kavrel_vconf::Record;
using kavrel_vconf_test::StoreImage;

class RecordsTest : public testing::Test {
 protected:
  int Read(std::vector<Record>* records) {
    return ReadSoundRecords(environment_.get(), "records.mdb", records);
  }

  const kavrel_test::TemporaryDirectory directory_;
  const std::string path_ = directory_.Path("records.mdb");
  std::unique_ptr<Environment> environment_;
};

TEST_F(RecordsTest, AreNotReadWithoutMemory) {
  const std::string key = "db/kavrel_test/" + std::string(40, 'k');
  const std::vector<Record> written = {{key, kavrel_vconf::IntValue(7)}};
  ASSERT_EQ(Environment::Open(path_, 0, &environment_), 0);
  ASSERT_EQ(kavrel_vconf::WriteRecords(environment_.get(), written), 0);
  // What LMDB asks for; operator new throws, and that its callers' callers catch.
  int failures = 0;
  for (int nth = 1;; ++nth) {
    std::vector<Record> records;
    bool has_failed = false;
    try {
      const kavrel_test::ScopedFault fault(kavrel_test::Fault::kMemory, nth);
      const int result = Read(&records);
      has_failed = fault.has_occurred();
      EXPECT_EQ(result, has_failed ? -ENOMEM : 0) << nth;
    } catch (const std::bad_alloc&) {
      has_failed = true;
    }
    if (!has_failed) {
      ASSERT_EQ(records.size(), 1U);
      EXPECT_EQ(records[0].first, key);
      break;
    }
    ++failures;
  }
  EXPECT_GE(failures, 1);
}

TEST_F(RecordsTest, AreNotReadWhenThereIsNoPlaceForAReader) {
  ASSERT_EQ(Environment::Open(path_, 0, &environment_), 0);
  std::vector<kavrel_vconf::Transaction> readers;
  int result = 0;
  while (result == 0) result = readers.emplace_back().Begin(environment_.get(), MDB_RDONLY);
  std::vector<Record> records;
  EXPECT_EQ(Read(&records), -EUSERS);
  readers.clear();
  EXPECT_EQ(Read(&records), 0);
}

TEST_F(RecordsTest, BehindDamageAreNotRead) {
  StoreImage image;
  image.Values().root = StoreImage::kLastPage + 1;
  std::ofstream(path_, std::ios::binary) << image.Bytes();
  ASSERT_EQ(Environment::Open(path_, 0, &environment_), 0);
  std::vector<Record> records;
  EXPECT_EQ(Read(&records), kFileDamaged);
  EXPECT_TRUE(records.empty());
}

}  // namespace
