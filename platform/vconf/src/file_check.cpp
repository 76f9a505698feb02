#include "file_check.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

namespace kavrel_vconf {
namespace {

constexpr std::uint32_t kMagic = 0xBEEFC0DE;
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kHeads = 2;
constexpr std::size_t kNoPage = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kLongestKey = 511;
constexpr unsigned kDeepestTree = 32;

constexpr unsigned kBranchPage = 0x01;
constexpr unsigned kLeafPage = 0x02;
constexpr unsigned kOverflowPage = 0x04;
constexpr unsigned kHeadPage = 0x08;
constexpr unsigned kBigData = 0x01;      // the node's data lies on overflow pages
constexpr unsigned kIntegerKeys = 0x08;  // of a tree
constexpr unsigned kOtherOrders = 0x76;  // of a tree: all other ways to sort or nest

std::size_t RoundUpToEven(std::size_t size) {
  return (size + 1) & ~std::size_t{1};
}

template <typename Object>
Object Load(const char* bytes) {
  Object object;
  std::memcpy(&object, bytes, sizeof object);
  return object;
}

}  // namespace

struct FileCheck::Tree {
  std::uint32_t page_size;  // in the first tree of a head only
  std::uint16_t flags;
  std::uint16_t depth;
  PageNumber branch_pages;
  PageNumber leaf_pages;
  PageNumber overflow_pages;
  std::size_t entries;
  PageNumber root;
};

struct FileCheck::PageHeader {
  PageNumber number;
  std::uint16_t padding;
  std::uint16_t flags;
  std::uint16_t lower;  // end of the list of node offsets
  std::uint16_t upper;  // begin of the nodes, which fill the page to its end
};

struct FileCheck::Head {
  PageHeader page;
  std::uint32_t magic;
  std::uint32_t version;
  std::size_t address;
  std::size_t map_size;
  std::array<Tree, 2> trees;  // free pages, values
  PageNumber last_page;
  std::size_t transaction;
};

struct FileCheck::Node {
  std::size_t child = 0;  // on a branch page
  std::size_t data_size = 0;
  unsigned flags = 0;
  std::string_view key;
  std::string_view data;  // of a leaf page: as it lies there, with kBigData a page number
};

// What is found on the way through one tree, to be compared with what its head says.
struct FileCheck::Walk {
  bool is_free_list = false;
  unsigned depth = 0;
  Tree found{};
  std::string last_key;
  bool may_equal_last = true;  // the last key was only a separator

  bool Follows(std::string_view key) const {
    const int order = is_free_list ? CompareNumbers(last_key, key) : last_key.compare(key);
    return may_equal_last ? order <= 0 : order < 0;
  }
  static int CompareNumbers(std::string_view a, std::string_view b) {
    if (a.size() != sizeof(std::size_t)) return -1;
    const auto left = Load<std::size_t>(a.data());
    const auto right = Load<std::size_t>(b.data());
    return left < right ? -1 : static_cast<int>(left > right);
  }
};

bool FileCheck::Fail(const std::string& what, PageNumber page) {
  damage_ = what;
  if (page != 0) damage_ += " on page " + std::to_string(page);
  return false;
}

bool FileCheck::Read(std::size_t offset, void* target, std::size_t size) {
  if (offset > file_size_ || size > file_size_ - offset) return false;
  const ssize_t got = ::pread(file_, target, size, static_cast<off_t>(offset));
  if (got < 0) error_ = errno;
  return got == static_cast<ssize_t>(size);
}

std::string FileCheck::FindDamage() {
  struct stat status {};
  if (::fstat(file_, &status) != 0 || !S_ISREG(status.st_mode)) return "it is not a file";
  file_size_ = static_cast<std::size_t>(status.st_size);
  if (file_size_ == 0) return "";
  Head head;
  if (!CheckHeads(&head) || head.version != kVersion) return damage_;
  last_page_ = head.last_page;
  claimed_.assign(last_page_ + 1, false);
  claimed_[0] = claimed_[1] = true;
  if (CheckTree(head.trees[1], false) && CheckTree(head.trees[0], true)) CheckFreePages();
  return damage_;
}

bool FileCheck::ReadHead(std::size_t index, Head* head) {
  if (!Read(index * page_size_, head, sizeof *head)) return Fail("its heads are cut off");
  if (head->magic != kMagic || (head->page.flags & kHeadPage) == 0) {
    return Fail("it does not begin like a store");
  }
  return true;
}

bool FileCheck::CheckHeads(Head* newest) {
  std::array<Head, kHeads> heads;
  if (!ReadHead(0, &heads[0])) return false;
  page_size_ = heads[0].trees[0].page_size;
  if (page_size_ < 512 || page_size_ > 0x8000 || (page_size_ & (page_size_ - 1)) != 0) {
    return Fail("its page size is impossible");
  }
  if (!ReadHead(1, &heads[1])) return false;
  const std::size_t chosen = heads[0].transaction < heads[1].transaction ? 1 : 0;
  *newest = heads[chosen];
  if (heads[0].version != heads[1].version) return Fail("its heads differ in version");
  if (newest->version != kVersion) return true;
  if (newest->transaction % kHeads != chosen) return Fail("its heads are in the wrong order");
  if (heads[1].trees[0].page_size != page_size_) return Fail("its heads differ in page size");
  if (newest->last_page < kHeads - 1 || newest->last_page >= largest_ / page_size_) {
    return Fail("its number of pages is impossible");
  }
  return true;
}

bool FileCheck::CheckTree(const Tree& tree, bool is_free_list) {
  if (is_free_list ? (tree.flags & kOtherOrders) != 0 || (tree.flags & kIntegerKeys) == 0
                   : tree.flags != 0) {
    return Fail("a tree is sorted in another way");
  }
  Walk walk;
  walk.is_free_list = is_free_list;
  walk.depth = tree.depth;
  if (tree.depth > kDeepestTree) return Fail("a tree is too deep");
  if ((tree.root == kNoPage) != (tree.depth == 0)) return Fail("a tree has a depth without pages");
  if (tree.root != kNoPage && !CheckPage(tree.root, 1, &walk)) return false;
  const Tree& found = walk.found;
  const bool agrees = found.branch_pages == tree.branch_pages &&
                      found.leaf_pages == tree.leaf_pages &&
                      found.overflow_pages == tree.overflow_pages && found.entries == tree.entries;
  if (!agrees) return Fail("a tree holds other pages than its head says");
  return true;
}

// A page belongs to one place only; that also ends every circle.
bool FileCheck::Claim(PageNumber first, std::size_t count) {
  if (first > last_page_ || count > last_page_ - first + 1) return false;
  for (PageNumber page = first; page < first + count; ++page) {
    if (claimed_[page]) return false;
    claimed_[page] = true;
  }
  return true;
}

bool FileCheck::ReadPage(PageNumber number, std::vector<char>* page, PageHeader* header) {
  if (!Claim(number, 1)) return Fail("a page number is wrong");
  page->resize(page_size_);
  if (!Read(number * page_size_, page->data(), page->size())) return Fail("the file is cut off");
  *header = Load<PageHeader>(page->data());
  if (header->number != number) return Fail("another page's number", number);
  return true;
}

bool FileCheck::CheckPage(PageNumber number, unsigned depth, Walk* walk) {
  std::vector<char> page;
  PageHeader header;
  std::vector<Node> nodes;
  if (!ReadPage(number, &page, &header)) return false;
  const bool is_leaf = depth == walk->depth;
  if (header.flags != (is_leaf ? kLeafPage : kBranchPage)) return Fail("wrong kind", number);
  if (!CheckNodes(number, page, header, &nodes)) return false;
  return is_leaf ? CheckLeaf(number, nodes, walk) : CheckBranch(number, nodes, depth, walk);
}

bool FileCheck::CheckNodes(PageNumber number, const std::vector<char>& page,
                           const PageHeader& header, std::vector<Node>* nodes) {
  constexpr std::size_t kNodeHeader = 8;
  const bool is_leaf = header.flags == kLeafPage;
  if (header.lower < sizeof header || header.lower % 2 != 0 || header.lower > header.upper ||
      header.upper > page_size_) {
    return Fail("bad bounds", number);
  }
  std::size_t filled = 0;
  for (std::size_t at = sizeof header; at < header.lower; at += 2) {
    const std::size_t offset = Load<std::uint16_t>(page.data() + at);
    if (offset < header.upper || offset + kNodeHeader > page_size_) {
      return Fail("a node outside the page", number);
    }
    const char* bytes = page.data() + offset;
    const auto words = Load<std::array<std::uint16_t, 4>>(bytes);
    Node node;
    node.data_size = words[0] | static_cast<std::size_t>(words[1]) << 16;
    node.flags = is_leaf ? words[2] : 0;
    node.child = node.data_size;
    if constexpr (sizeof(PageNumber) > 4) node.child |= static_cast<PageNumber>(words[2]) << 32;
    std::size_t inline_size = is_leaf ? node.data_size : 0;
    if (node.flags == kBigData) inline_size = sizeof(PageNumber);
    const std::size_t size = kNodeHeader + words[3] + inline_size;
    if (size > page_size_ - offset) return Fail("a node beyond the page", number);
    node.key = {bytes + kNodeHeader, words[3]};
    node.data = {bytes + kNodeHeader + words[3], inline_size};
    filled += RoundUpToEven(size);
    nodes->push_back(node);
  }
  if (filled != page_size_ - header.upper) return Fail("overlapping nodes", number);
  return true;
}

bool FileCheck::CheckBranch(PageNumber number, const std::vector<Node>& nodes, unsigned depth,
                            Walk* walk) {
  ++walk->found.branch_pages;
  if (nodes.size() < (walk->is_free_list ? 1u : 2u)) return Fail("too few nodes", number);
  for (std::size_t index = 0; index < nodes.size(); ++index) {
    const std::string_view key = nodes[index].key;
    if (index > 0) {  // the first key of a branch page means nothing
      const bool fits = walk->is_free_list ? key.size() == sizeof(std::size_t)
                                           : !key.empty() && key.size() <= kLongestKey;
      if (!fits || !walk->Follows(key)) return Fail("keys out of order", number);
      walk->last_key = key;
      walk->may_equal_last = true;
    }
    if (!CheckPage(nodes[index].child, depth + 1, walk)) return false;
  }
  return true;
}

bool FileCheck::CheckLeaf(PageNumber number, const std::vector<Node>& nodes, Walk* walk) {
  ++walk->found.leaf_pages;
  if (nodes.empty()) return Fail("no nodes", number);
  for (const Node& node : nodes) {
    ++walk->found.entries;
    const bool fits = walk->is_free_list ? node.key.size() == sizeof(std::size_t)
                                         : !node.key.empty() && node.key.size() <= kLongestKey;
    if (!fits || !walk->Follows(node.key)) return Fail("keys out of order", number);
    walk->last_key = node.key;
    walk->may_equal_last = false;
    std::vector<char> overflow;
    if (node.flags > kBigData) return Fail("a node of another kind", number);
    if (node.flags == kBigData && !ReadOverflow(node, &overflow, walk)) return false;
    if (!walk->is_free_list) continue;
    const std::string_view big{overflow.data(), overflow.size()};
    if (!NoteFreePages(node.flags == kBigData ? big : node.data)) return false;
  }
  return true;
}

// A value that was replaced by a shorter one keeps all its pages.
bool FileCheck::ReadOverflow(const Node& node, std::vector<char>* data, Walk* walk) {
  const auto first = Load<PageNumber>(node.data.data());
  const std::size_t needed = (sizeof(PageHeader) - 1 + node.data_size) / page_size_ + 1;
  PageHeader header;
  if (first > last_page_ || !Read(first * page_size_, &header, sizeof header)) {
    return Fail("an overflow page number is wrong");
  }
  const std::size_t pages = header.lower | static_cast<std::size_t>(header.upper) << 16;
  if (header.number != first || header.flags != kOverflowPage || pages < needed) {
    return Fail("not the overflow page that it should be", first);
  }
  if (!Claim(first, pages)) return Fail("overflow pages that others use", first);
  if ((first + pages) * page_size_ > file_size_) return Fail("the file is cut off");
  walk->found.overflow_pages += pages;
  if (!walk->is_free_list) return true;
  data->resize(node.data_size);
  if (Read(first * page_size_ + sizeof header, data->data(), data->size())) return true;
  return Fail("the file is cut off");
}

// A count, then that many page numbers from high to low; there may be room behind them.
bool FileCheck::NoteFreePages(std::string_view list) {
  constexpr std::size_t kSize = sizeof(PageNumber);
  if (list.size() < kSize) return Fail("a list of free pages is cut off");
  const auto count = Load<std::size_t>(list.data());
  if (count > list.size() / kSize - 1) return Fail("a list of free pages is too long");
  PageNumber before = kNoPage;
  for (std::size_t index = 1; index <= count; ++index) {
    const auto page = Load<PageNumber>(list.data() + index * kSize);
    if (page >= before) return Fail("a list of free pages is out of order");
    free_.push_back(before = page);
  }
  return true;
}

bool FileCheck::CheckFreePages() {
  for (const PageNumber page : free_) {
    if (!Claim(page, 1)) return Fail("a page is both free and used");
  }
  return true;
}

}  // namespace kavrel_vconf
