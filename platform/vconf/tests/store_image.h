// A values' file made by hand, so that each of its fields can be wrong.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kavrel_vconf_test {

/// A store of two trees of two levels, with values and a list of free pages on overflow pages. Made
/// sound; what a test changes before Bytes() is written as it is.
class StoreImage {
 public:
  using PageNumber = std::size_t;
  static constexpr std::size_t kPageSize = 4096;
  static constexpr std::size_t kNoPage = ~std::size_t{0};
  static constexpr std::uint16_t kBranch = 0x01;
  static constexpr std::uint16_t kLeaf = 0x02;
  static constexpr std::uint16_t kOverflow = 0x04;
  static constexpr std::uint16_t kHead = 0x08;
  static constexpr unsigned kBigData = 0x01;

  struct Tree {
    std::uint32_t page_size;
    std::uint16_t flags;
    std::uint16_t depth;
    PageNumber branch_pages;
    PageNumber leaf_pages;
    PageNumber overflow_pages;
    std::size_t entries;
    PageNumber root;
  };
  struct PageHeader {
    PageNumber number;
    std::uint16_t padding;
    std::uint16_t flags;
    std::uint16_t lower;
    std::uint16_t upper;
  };
  struct Head {
    PageHeader page;
    std::uint32_t magic;
    std::uint32_t version;
    std::size_t address;
    std::size_t map_size;
    std::array<Tree, 2> trees;  // free pages, values
    PageNumber last_page;
    std::size_t transaction;
  };
  struct Node {
    std::size_t child_or_size;
    unsigned flags;
    std::string key;
    std::string data;
  };
  struct Page {
    std::uint16_t flags;
    std::vector<Node> nodes;
  };

  /// The pages of the sound store.
  static constexpr PageNumber kValuesRoot = 2, kFirstValues = 3, kLastValues = 4, kBigValue = 5;
  static constexpr PageNumber kFreeRoot = 7, kFirstFree = 8, kLastFree = 9, kBigFree = 10;
  static constexpr PageNumber kLastPage = 14;

  StoreImage();

  Tree& FreeList() { return heads[1].trees[0]; }
  Tree& Values() { return heads[1].trees[1]; }
  /// Changes the header of a page after the page has been made.
  void Change(PageNumber page, std::uint16_t PageHeader::*field, std::size_t value) {
    changes_.push_back({page, field, static_cast<std::uint16_t>(value)});
  }

  std::string Bytes() const;

  static Node Child(const std::string& key, PageNumber page) { return {page, 0, key, ""}; }
  static Node Value(const std::string& key, const std::string& data) {
    return {data.size(), 0, key, data};
  }
  /// A value of `size` bytes that begins at an overflow page.
  static Node Big(const std::string& key, std::size_t size, PageNumber page) {
    return {size, kBigData, key, Number(page)};
  }
  static std::string Number(std::size_t number);
  /// Of free pages, from high to low.
  static std::string List(const std::vector<PageNumber>& pages);

  std::array<Head, 2> heads{};
  std::map<PageNumber, Page> pages;
  std::map<PageNumber, PageHeader> overflows;   // lower and upper together are the number of pages
  std::map<std::size_t, std::string> contents;  // what lies at an offset, above all else

 private:
  struct HeaderChange {
    PageNumber page;
    std::uint16_t PageHeader::*field;
    std::uint16_t value;
  };
  std::vector<HeaderChange> changes_;
};

}  // namespace kavrel_vconf_test
