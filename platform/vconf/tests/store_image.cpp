#include "store_image.h"

#include <cstring>

namespace kavrel_vconf_test {
namespace {

constexpr std::size_t kBigSize = 5000;  // two pages

template <typename Object>
void Put(std::string& bytes, std::size_t at, const Object& object) {
  std::memcpy(bytes.data() + at, &object, sizeof object);
}

std::string NodeBytes(const StoreImage::Node& node, bool is_leaf) {
  const std::array<std::uint16_t, 4> words{
      static_cast<std::uint16_t>(node.child_or_size),
      static_cast<std::uint16_t>(node.child_or_size >> 16),
      static_cast<std::uint16_t>(is_leaf ? node.flags : node.child_or_size >> 32),
      static_cast<std::uint16_t>(node.key.size())};
  std::string bytes(sizeof words, '\0');
  Put(bytes, 0, words);
  bytes += node.key + node.data;
  return bytes;
}

// Offsets from the front, nodes from the end, as they come.
std::string PageBytes(StoreImage::PageNumber number, const StoreImage::Page& page) {
  std::string bytes(StoreImage::kPageSize, '\0');
  StoreImage::PageHeader header{number, 0, page.flags, sizeof header, StoreImage::kPageSize};
  for (const StoreImage::Node& node : page.nodes) {
    const std::string laid = NodeBytes(node, page.flags == StoreImage::kLeaf);
    header.upper = static_cast<std::uint16_t>(header.upper - (laid.size() + 1) / 2 * 2);
    bytes.replace(header.upper, laid.size(), laid);
    Put(bytes, header.lower, header.upper);
    header.lower = static_cast<std::uint16_t>(header.lower + sizeof header.upper);
  }
  Put(bytes, 0, header);
  return bytes;
}

}  // namespace

std::string StoreImage::Number(std::size_t number) {
  std::string bytes(sizeof number, '\0');
  Put(bytes, 0, number);
  return bytes;
}

std::string StoreImage::List(const std::vector<PageNumber>& pages) {
  std::string bytes = Number(pages.size());
  for (const PageNumber page : pages) bytes += Number(page);
  return bytes;
}

StoreImage::StoreImage() {
  const Tree free_pages{kPageSize, 0x08, 2, 1, 2, 2, 2, kFreeRoot};
  const Tree values{0, 0, 2, 1, 2, 2, 4, kValuesRoot};
  for (const PageNumber number : {PageNumber{0}, PageNumber{1}}) {
    heads[number] = {{number, 0, kHead, 0, 0}, 0xBEEFC0DE, 1,         0, 1 << 20,
                     {free_pages, values},     kLastPage,  4 + number};
  }
  pages[kValuesRoot] = {kBranch, {Child("", kFirstValues), Child("db/m", kLastValues)}};
  pages[kFirstValues] = {kLeaf, {Value("db/a", "1"), Big("db/b", kBigSize, kBigValue)}};
  pages[kLastValues] = {kLeaf, {Value("db/m", "22"), Value("db/n", "333")}};
  pages[kFreeRoot] = {kBranch, {Child("", kFirstFree), Child(Number(2), kLastFree)}};
  pages[kFirstFree] = {kLeaf, {Value(Number(1), List({12}))}};
  pages[kLastFree] = {kLeaf, {Big(Number(2), kBigSize, kBigFree)}};
  overflows[kBigValue] = {kBigValue, 0, kOverflow, 2, 0};
  overflows[kBigFree] = {kBigFree, 0, kOverflow, 2, 0};
  contents[kBigFree * kPageSize + sizeof(PageHeader)] = List({14, 13});
}

std::string StoreImage::Bytes() const {
  std::string bytes((kLastPage + 1) * kPageSize, '\0');
  for (const Head& head : heads) Put(bytes, head.page.number * kPageSize, head);
  for (const auto& [number, page] : pages) {
    bytes.replace(number * kPageSize, kPageSize, PageBytes(number, page));
  }
  for (const auto& [number, header] : overflows) Put(bytes, number * kPageSize, header);
  for (const auto& [at, content] : contents) bytes.replace(at, content.size(), content);
  for (const HeaderChange& change : changes_) {
    PageHeader header;
    std::memcpy(&header, bytes.data() + change.page * kPageSize, sizeof header);
    header.*change.field = change.value;
    Put(bytes, change.page * kPageSize, header);
  }
  return bytes;
}

}  // namespace kavrel_vconf_test
