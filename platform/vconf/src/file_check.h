// Checks an LMDB file before LMDB maps it.
//
// LMDB follows the page numbers and offsets of its file without doubting them: one flipped bit can
// send it outside the map, into an assertion, or round in a circle. This check follows them first,
// with every step bounded, and reads the file instead of mapping it. What it accepts, LMDB can read
// and change: every page that it can reach lies in the file, belongs to one place only and is
// well-formed, every list of free pages names pages that nobody uses.
//
// It knows the layout of data version 1, which all releases of LMDB 0.9 write. A file of another
// version is left to LMDB, which refuses the ones that it does not know.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kavrel_vconf {

/// Reads one file that nobody changes meanwhile. One thread.
class FileCheck {
 public:
  /// `file` is open for reading and stays the caller's; none of ours is larger than `largest`.
  FileCheck(int file, std::size_t largest) : file_(file), largest_(largest) {}

  /// What is wrong with the file; empty when nothing is. Means nothing when error() is set.
  std::string FindDamage();

  /// The errno value of a read that failed, which tells nothing about the file; 0 when none did.
  int error() const { return error_; }

 private:
  using PageNumber = std::size_t;
  struct Tree;
  struct Head;
  struct PageHeader;
  struct Node;
  struct Walk;

  bool Fail(const std::string& what, PageNumber page = 0);
  bool Read(std::size_t offset, void* target, std::size_t size);
  bool ReadHead(std::size_t index, Head* head);
  bool CheckHeads(Head* newest);
  bool CheckTree(const Tree& tree, bool is_free_list);
  bool CheckPage(PageNumber number, unsigned depth, Walk* walk);
  bool ReadPage(PageNumber number, std::vector<char>* page, PageHeader* header);
  bool CheckNodes(PageNumber number, const std::vector<char>& page, const PageHeader& header,
                  std::vector<Node>* nodes);
  bool CheckBranch(PageNumber number, const std::vector<Node>& nodes, unsigned depth, Walk* walk);
  bool CheckLeaf(PageNumber number, const std::vector<Node>& nodes, Walk* walk);
  bool ReadOverflow(const Node& node, std::vector<char>* data, Walk* walk);
  bool NoteFreePages(std::string_view list);
  bool CheckFreePages();
  bool Claim(PageNumber first, std::size_t count);

  const int file_;
  const std::size_t largest_;
  std::size_t file_size_ = 0;
  std::size_t page_size_ = 0;
  PageNumber last_page_ = 0;
  std::vector<bool> claimed_;
  std::vector<PageNumber> free_;
  std::string damage_;
  int error_ = 0;
};

}  // namespace kavrel_vconf
