// Each thing that can be wrong with a values' file is found, and named; and so is a file that
// cannot be read at any place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "file_check.h"
#include "lmdb_handles.h"
#include "store_image.h"
#include "temporary_directory.h"
#include "unique_fd.h"

namespace {

using kavrel_vconf::FileCheck;
using kavrel_vconf::kLargestStore;
using kavrel_vconf_test::StoreImage;
using Header = StoreImage::PageHeader;

int reads_until_failure = 0;  // 0: none fails

}  // namespace

// Stands in for the C library's.
extern "C" ssize_t pread(int fd, void* bytes, size_t size, off_t offset) {
  if (reads_until_failure > 0 && --reads_until_failure == 0) {
    errno = EIO;
    return -1;
  }
  return ::syscall(SYS_pread64, fd, bytes, size, offset);
}

namespace {

class StoreImageTest : public testing::Test {
 protected:
  std::string DamageOf(const StoreImage& image) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << image.Bytes();
    return DamageOfFile();
  }
  std::string DamageOfFile() const {
    const kavrel_platform::UniqueFd file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    return FileCheck(file.get(), kLargestStore).FindDamage();
  }

  const kavrel_test::TemporaryDirectory directory_;
  const std::string path_ = directory_.Path("image.mdb");
};

TEST_F(StoreImageTest, SoundOneIsSound) {
  EXPECT_EQ(DamageOf(StoreImage()), "");
}

TEST_F(StoreImageTest, WithoutAFileIsDamaged) {
  EXPECT_EQ(FileCheck(-1, kLargestStore).FindDamage(), "it is not a file");
}

TEST_F(StoreImageTest, ThatCannotBeReadAnywhereIsDamaged) {
  ASSERT_EQ(DamageOf(StoreImage()), "");
  int failures = 0;
  do {
    reads_until_failure = ++failures;
  } while (!DamageOfFile().empty());
  EXPECT_EQ(failures, 11 + 1) << "two heads, six pages, two big values and one list";
  reads_until_failure = 0;
}

struct Fault {
  const char* name;
  void (*make)(StoreImage& image);
  std::string damage;  // empty: left to LMDB
};

class StoreImageFaults : public StoreImageTest, public testing::WithParamInterface<Fault> {};

TEST_P(StoreImageFaults, AreNamed) {
  StoreImage image;
  GetParam().make(image);
  EXPECT_EQ(DamageOf(image), GetParam().damage);
}

std::string NameOf(const testing::TestParamInfo<Fault>& fault) {
  return fault.param.name;
}

using Image = StoreImage;

const Fault kHeadFaults[] = {
    {"NotAHead", [](Image& i) { i.heads[1].page.flags = 0; }, "it does not begin like a store"},
    {"OtherMagic", [](Image& i) { i.heads[0].magic = 1; }, "it does not begin like a store"},
    {"Versions", [](Image& i) { i.heads[0].version = 2; }, "its heads differ in version"},
    {"Version", [](Image& i) { i.heads[0].version = i.heads[1].version = 2; }, ""},
    {"Order", [](Image& i) { i.heads[0].transaction = 7; }, "its heads are in the wrong order"},
    {"SmallPages", [](Image& i) { i.heads[0].trees[0].page_size = 256; },
     "its page size is impossible"},
    {"LargePages", [](Image& i) { i.heads[0].trees[0].page_size = 0x10000; },
     "its page size is impossible"},
    {"OddPages", [](Image& i) { i.heads[0].trees[0].page_size = 4095; },
     "its page size is impossible"},
    {"PageSizes", [](Image& i) { i.FreeList().page_size = 512; }, "its heads differ in page size"},
    {"NoPages", [](Image& i) { i.heads[1].last_page = 0; }, "its number of pages is impossible"},
    {"TooManyPages", [](Image& i) { i.heads[1].last_page = kLargestStore; },
     "its number of pages is impossible"},
};
INSTANTIATE_TEST_SUITE_P(Head, StoreImageFaults, testing::ValuesIn(kHeadFaults), NameOf);

const std::string kOtherOrder = "a tree is sorted in another way";
const std::string kOtherPages = "a tree holds other pages than its head says";

const Fault kTreeFaults[] = {
    {"FreeOrder", [](Image& i) { i.FreeList().flags |= 0x02; }, kOtherOrder},
    {"FreeNames", [](Image& i) { i.FreeList().flags = 0; }, kOtherOrder},
    {"ValuesOrder", [](Image& i) { i.Values().flags = 0x08; }, kOtherOrder},
    {"Depth", [](Image& i) { i.Values().depth = 33; }, "a tree is too deep"},
    {"NoRoot", [](Image& i) { i.Values().root = Image::kNoPage; },
     "a tree has a depth without pages"},
    {"BranchPages", [](Image& i) { ++i.Values().branch_pages; }, kOtherPages},
    {"LeafPages", [](Image& i) { ++i.Values().leaf_pages; }, kOtherPages},
    {"OverflowPages", [](Image& i) { ++i.Values().overflow_pages; }, kOtherPages},
    {"Entries", [](Image& i) { ++i.FreeList().entries; }, kOtherPages},
};
INSTANTIATE_TEST_SUITE_P(Tree, StoreImageFaults, testing::ValuesIn(kTreeFaults), NameOf);

const Fault kPageFaults[] = {
    {"Twice", [](Image& i) { i.pages[2].nodes[1].child_or_size = 3; }, "a page number is wrong"},
    {"BeyondTheLast", [](Image& i) { i.pages[2].nodes[1].child_or_size = 15; },
     "a page number is wrong"},
    {"FarBeyondTheLast", [](Image& i) { i.pages[2].nodes[1].child_or_size = std::size_t{1} << 40; },
     "a page number is wrong"},
    {"Number", [](Image& i) { i.contents[3 * Image::kPageSize] = Image::Number(4); },
     "another page's number on page 3"},
    {"BranchForLeaf", [](Image& i) { i.pages[3].flags = Image::kBranch; }, "wrong kind on page 3"},
    {"LeafForBranch", [](Image& i) { i.pages[2].flags = Image::kLeaf; }, "wrong kind on page 2"},
    {"LowerInTheHeader", [](Image& i) { i.Change(3, &Header::lower, 14); }, "bad bounds on page 3"},
    {"LowerOdd", [](Image& i) { i.Change(3, &Header::lower, 19); }, "bad bounds on page 3"},
    {"LowerAboveUpper", [](Image& i) { i.Change(3, &Header::upper, 18); }, "bad bounds on page 3"},
    {"UpperBeyondThePage", [](Image& i) { i.Change(3, &Header::upper, 4098); },
     "bad bounds on page 3"},
    {"NodeInTheOffsets", [](Image& i) { i.Change(3, &Header::upper, 4090); },
     "a node outside the page on page 3"},
    {"NodeAtTheEnd",
     [](Image& i) { i.contents[3 * Image::kPageSize + sizeof(Header)] = "\xFC\x0F"; },
     "a node outside the page on page 3"},
    {"NodeBeyondThePage", [](Image& i) { i.pages[3].nodes[0].child_or_size = 100; },
     "a node beyond the page on page 3"},
    {"NodesOverlap", [](Image& i) { i.Change(3, &Header::upper, 4000); },
     "overlapping nodes on page 3"},
};
INSTANTIATE_TEST_SUITE_P(Page, StoreImageFaults, testing::ValuesIn(kPageFaults), NameOf);

const std::string kLongKey(512, 'k');
const std::string kBadOrderOn3 = "keys out of order on page 3";

const Fault kNodeFaults[] = {
    {"OneChild", [](Image& i) { i.pages[2].nodes.pop_back(); }, "too few nodes on page 2"},
    {"NoChild", [](Image& i) { i.pages[7].nodes.clear(); }, "too few nodes on page 7"},
    {"EmptySeparator", [](Image& i) { i.pages[2].nodes[1].key = ""; },
     "keys out of order on page 2"},
    {"LongSeparator", [](Image& i) { i.pages[2].nodes[1].key = kLongKey; },
     "keys out of order on page 2"},
    {"LowSeparator", [](Image& i) { i.pages[2].nodes[1].key = "db/"; },
     "keys out of order on page 2"},
    {"FreeSeparator", [](Image& i) { i.pages[7].nodes[1].key = "2"; },
     "keys out of order on page 7"},
    {"LowFreeSeparator", [](Image& i) { i.pages[7].nodes[1].key = Image::Number(0); },
     "keys out of order on page 7"},
    {"NoNodes", [](Image& i) { i.pages[3].nodes.clear(); }, "no nodes on page 3"},
    {"EmptyKey", [](Image& i) { i.pages[3].nodes[0].key = ""; }, kBadOrderOn3},
    {"LongKey", [](Image& i) { i.pages[3].nodes[0].key = kLongKey; }, kBadOrderOn3},
    {"SameKey", [](Image& i) { i.pages[3].nodes[1].key = "db/a"; }, kBadOrderOn3},
    {"LowFreeKey", [](Image& i) { i.pages[9].nodes[0].key = Image::Number(1); },
     "keys out of order on page 9"},
    {"ShortFreeKey", [](Image& i) { i.pages[8].nodes[0].key = "1"; },
     "keys out of order on page 8"},
    {"Kind", [](Image& i) { i.pages[3].nodes[0].flags = 2; }, "a node of another kind on page 3"},
};
INSTANTIATE_TEST_SUITE_P(Node, StoreImageFaults, testing::ValuesIn(kNodeFaults), NameOf);

const std::string kOthersPages = "overflow pages that others use on page 5";
const std::string kNotTheOverflow = "not the overflow page that it should be on page 5";

const Fault kOverflowFaults[] = {
    {"BeyondTheLast", [](Image& i) { i.pages[3].nodes[1].data = Image::Number(15); },
     "an overflow page number is wrong"},
    {"Number", [](Image& i) { i.overflows[5].number = 6; }, kNotTheOverflow},
    {"Kind", [](Image& i) { i.overflows[5].flags = Image::kLeaf; }, kNotTheOverflow},
    {"TooFew", [](Image& i) { i.overflows[5].lower = 1; }, kNotTheOverflow},
    {"Used", [](Image& i) { i.pages[4].nodes[0] = Image::Big("db/m", 5000, 5); }, kOthersPages},
    {"TooMany", [](Image& i) { i.overflows[5].lower = 11; }, kOthersPages},
};
INSTANTIATE_TEST_SUITE_P(Overflow, StoreImageFaults, testing::ValuesIn(kOverflowFaults), NameOf);

const Fault kFreeFaults[] = {
    {"CutOff", [](Image& i) { i.pages[8].nodes[0] = Image::Value(Image::Number(1), "1234"); },
     "a list of free pages is cut off"},
    {"TooLong",
     [](Image& i) {
       i.pages[8].nodes[0] = Image::Value(Image::Number(1), Image::Number(2) + Image::Number(12));
     },
     "a list of free pages is too long"},
    {"Order",
     [](Image& i) {
       i.pages[8].nodes[0] = Image::Value(Image::Number(1), Image::List({12, 13}));
     },
     "a list of free pages is out of order"},
    {"BigOrder",
     [](Image& i) {
       i.contents[10 * Image::kPageSize + sizeof(Header)] = Image::List({13, 14});
     },
     "a list of free pages is out of order"},
    {"Used",
     [](Image& i) { i.pages[8].nodes[0] = Image::Value(Image::Number(1), Image::List({3})); },
     "a page is both free and used"},
};
INSTANTIATE_TEST_SUITE_P(FreePages, StoreImageFaults, testing::ValuesIn(kFreeFaults), NameOf);

}  // namespace
