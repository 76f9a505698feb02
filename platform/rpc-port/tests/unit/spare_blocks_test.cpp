// Memory that is kept for the next parcel.
#include "spare_blocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "memory_checks.h"
#include "parcel.h"

namespace {

using kavrel_rpc::Parcel;
using kavrel_rpc::SpareBlocks;

TEST(SpareBlocks, GiveBackWhatTheyWereGivenAndNoMore) {
  SpareBlocks<2> spare;
  std::array<int, 3> blocks{};
  EXPECT_EQ(spare.Take(), nullptr);
  EXPECT_TRUE(spare.Keep(&blocks[0]));
  EXPECT_TRUE(spare.Keep(&blocks[1]));
  EXPECT_FALSE(spare.Keep(&blocks[2]));
  const std::set<void*> taken{spare.Take(), spare.Take()};
  EXPECT_EQ(taken, (std::set<void*>{&blocks[0], &blocks[1]}));
  EXPECT_EQ(spare.Take(), nullptr);
}

// Threads that take and give back never hold the same block at the same time.
TEST(SpareBlocks, BelongToOneThreadAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 50000;
  SpareBlocks<3> spare;
  std::array<std::atomic<int>, 3> holders{};
  for (auto& each : holders) ASSERT_TRUE(spare.Keep(&each));
  std::atomic<int> shared = 0;
  const auto work = [&] {
    for (int round = 0; round < kRounds; ++round) {
      auto* const block = static_cast<std::atomic<int>*>(spare.Take());
      if (block == nullptr) continue;
      if (block->fetch_add(1) != 0) ++shared;
      block->fetch_sub(1);
      if (!spare.Keep(block)) ++shared;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(shared, 0);
  std::set<void*> left{spare.Take(), spare.Take(), spare.Take()};
  EXPECT_EQ(left, (std::set<void*>{&holders[0], &holders[1], &holders[2]}));
}

std::vector<std::unique_ptr<Parcel>> MakeParcels(std::size_t count) {
  std::vector<std::unique_ptr<Parcel>> parcels;
  while (parcels.size() < count) parcels.emplace_back(Parcel::Create());
  return parcels;
}

std::set<void*> PlacesOf(const std::vector<std::unique_ptr<Parcel>>& parcels) {
  std::set<void*> places;
  for (const auto& parcel : parcels) places.insert(parcel.get());
  return places;
}

TEST(SpareParcels, AreUsedForTheNextOnesOnAnyThread) {
  auto parcels = MakeParcels(Parcel::kSpareObjects);
  const std::set<void*> places = PlacesOf(parcels);
  std::thread([&] { parcels.clear(); }).join();
  parcels = MakeParcels(Parcel::kSpareObjects);
  EXPECT_EQ(PlacesOf(parcels).size(), Parcel::kSpareObjects);
  EXPECT_TRUE(kavrel_rpc::kMemoryIsChecked || PlacesOf(parcels) == places);
}

// Of what was in them nothing is left: not the items, not the tag, not a large frame's memory.
TEST(SpareParcels, BeginEmpty) {
  for (auto& parcel : MakeParcels(Parcel::kSpareObjects)) {
    parcel->SetTag("tag");
    parcel->WriteString(std::string(100'000, 'x').c_str());
  }
  for (auto& parcel : MakeParcels(2 * Parcel::kSpareObjects)) {
    char* tag = nullptr;
    EXPECT_EQ(parcel->CopyTag(&tag), 0);
    EXPECT_EQ(tag, nullptr);
    EXPECT_EQ(parcel->Frame().size(), kavrel_rpc::frame::kMinSize);
    EXPECT_EQ(parcel->Fault(), 0);
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(parcel.get());
    EXPECT_TRUE(parcel->Frame().data() > begin && parcel->Frame().data() < begin + sizeof(Parcel));
  }
}

}  // namespace
