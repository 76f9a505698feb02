// Parcels by themselves: items, header, refusals.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "pair.h"

namespace {

using rpc_test::ParcelOwner;

TEST(Parcel, GivesItsItemsBackInOrder) {
  const ParcelOwner parcel;
  ASSERT_EQ(rpc_port_parcel_write_int32(parcel.get(), -7), 0);
  ASSERT_EQ(rpc_port_parcel_write_bool(parcel.get(), true), 0);
  ASSERT_EQ(rpc_port_parcel_write_string(parcel.get(), "grüße"), 0);
  ASSERT_EQ(rpc_port_parcel_write_array_count(parcel.get(), 3), 0);
  ASSERT_EQ(rpc_port_parcel_write_string(parcel.get(), ""), 0);
  ASSERT_EQ(rpc_port_parcel_write_bool(parcel.get(), false), 0);
  EXPECT_EQ(parcel.Int(), -7);
  bool flag = false;
  EXPECT_EQ(rpc_port_parcel_read_bool(parcel.get(), &flag), 0);
  EXPECT_TRUE(flag);
  EXPECT_EQ(parcel.Text(), "grüße");
  int count = 0;
  EXPECT_EQ(rpc_port_parcel_read_array_count(parcel.get(), &count), 0);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(parcel.Text(), "");
  EXPECT_EQ(rpc_port_parcel_read_bool(parcel.get(), &flag), 0);
  EXPECT_FALSE(flag);
}

TEST(Parcel, GivesExtremeNumbersBack) {
  const ParcelOwner parcel;
  rpc_port_parcel_write_int32(parcel.get(), INT32_MIN);
  rpc_port_parcel_write_int32(parcel.get(), INT32_MAX);
  rpc_port_parcel_write_array_count(parcel.get(), -1);
  EXPECT_EQ(parcel.Int(), INT32_MIN);
  EXPECT_EQ(parcel.Int(), INT32_MAX);
  int count = 0;
  EXPECT_EQ(rpc_port_parcel_read_array_count(parcel.get(), &count), 0);
  EXPECT_EQ(count, -1);
}

// All four reads, each with an output that shows whether it was touched.
void ExpectNothingReadable(const ParcelOwner& parcel, char skipped) {
  int32_t number = 99;
  int count = 99;
  bool flag = true;
  char untouched = 'x';
  char* text = &untouched;
  if (skipped != 'i') {
    EXPECT_LT(rpc_port_parcel_read_int32(parcel.get(), &number), 0);
  }
  if (skipped != 'a') {
    EXPECT_LT(rpc_port_parcel_read_array_count(parcel.get(), &count), 0);
  }
  if (skipped != 'b') {
    EXPECT_LT(rpc_port_parcel_read_bool(parcel.get(), &flag), 0);
  }
  if (skipped != 's') {
    EXPECT_LT(rpc_port_parcel_read_string(parcel.get(), &text), 0);
  }
  EXPECT_EQ(number, 99);
  EXPECT_EQ(count, 99);
  EXPECT_TRUE(flag);
  EXPECT_EQ(text, &untouched);
}

TEST(Parcel, RefusesAReadOfAMissingItem) {
  ExpectNothingReadable(ParcelOwner(), '-');
}

TEST(Parcel, RefusesAReadOfAnotherTypeAndStaysWhereItIs) {
  const ParcelOwner parcel;
  rpc_port_parcel_write_int32(parcel.get(), 1);
  rpc_port_parcel_write_string(parcel.get(), "two");
  rpc_port_parcel_write_bool(parcel.get(), false);
  rpc_port_parcel_write_array_count(parcel.get(), 4);
  ExpectNothingReadable(parcel, 'i');
  EXPECT_EQ(parcel.Int(), 1);
  ExpectNothingReadable(parcel, 's');
  EXPECT_EQ(parcel.Text(), "two");
  ExpectNothingReadable(parcel, 'b');
  bool flag = true;
  EXPECT_EQ(rpc_port_parcel_read_bool(parcel.get(), &flag), 0);
  EXPECT_FALSE(flag);
  ExpectNothingReadable(parcel, 'a');
  int count = 0;
  EXPECT_EQ(rpc_port_parcel_read_array_count(parcel.get(), &count), 0);
  EXPECT_EQ(count, 4);
  ExpectNothingReadable(parcel, '-');
}

TEST(Parcel, HasAFreshSequenceNumberEach) {
  const ParcelOwner first;
  const ParcelOwner second;
  EXPECT_NE(first.sequence(), second.sequence());
  first.SetSequence(-12345);
  EXPECT_EQ(first.sequence(), -12345);
}

TEST(Parcel, HasNoTagUntilOneIsSet) {
  ParcelOwner parcel;
  EXPECT_EQ(parcel.tag(), std::nullopt);
  parcel.Int(5);
  parcel.SetTag("1.9.1");
  EXPECT_EQ(parcel.tag(), "1.9.1");
  parcel.SetTag("a longer one than before");
  EXPECT_EQ(parcel.tag(), "a longer one than before");
  parcel.SetTag("short");
  EXPECT_EQ(parcel.tag(), "short");
  EXPECT_EQ(parcel.Int(), 5);
}

TEST(Parcel, TakesATagBetweenReads) {
  ParcelOwner parcel;
  parcel.Int(1).Int(2);
  EXPECT_EQ(parcel.Int(), 1);
  parcel.SetTag("in between");
  EXPECT_EQ(parcel.Int(), 2);
}

TEST(Parcel, GrowsWithItsItems) {
  ParcelOwner parcel;
  for (int i = 0; i < 5000; ++i) parcel.Int(i).Text("item " + std::to_string(i));
  for (int i = 0; i < 5000; ++i) {
    ASSERT_EQ(parcel.Int(), i);
    ASSERT_EQ(parcel.Text(), "item " + std::to_string(i));
  }
}

TEST(Parcel, RefusesNullHandlesAndOutputs) {
  const ParcelOwner parcel;
  rpc_port_parcel_header_h header = nullptr;
  int number = 0;
  EXPECT_EQ(rpc_port_parcel_create(nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_destroy(nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_get_header(nullptr, &header), -22);
  EXPECT_EQ(rpc_port_parcel_get_header(parcel.get(), nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_header_get_seq_num(nullptr, &number), -22);
  EXPECT_EQ(rpc_port_parcel_header_set_tag(nullptr, "tag"), -22);
  EXPECT_EQ(rpc_port_parcel_write_string(parcel.get(), nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_write_int32(nullptr, 1), -22);
  EXPECT_EQ(rpc_port_parcel_read_int32(parcel.get(), nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_send(parcel.get(), nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_create_from_port(nullptr, nullptr), -22);
  EXPECT_EQ(rpc_port_disconnect(nullptr), -22);
}

}  // namespace
