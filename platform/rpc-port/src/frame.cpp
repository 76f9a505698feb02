#include "frame.h"

#include "bounds.h"

namespace kavrel_rpc::frame {
namespace {

constexpr std::size_t kTypeSize = 1;
constexpr std::size_t kNumberItemSize = kTypeSize + sizeof(std::int32_t);
constexpr std::size_t kBoolItemSize = kTypeSize + 1;
constexpr std::size_t kStringPrefixSize = kTypeSize + sizeof(std::uint32_t);

// True for a text of `size` bytes whose one NUL is its last byte.
bool IsText(const std::uint8_t* text, std::size_t size) {
  return size > 0 && std::memchr(text, '\0', size) == text + size - 1;
}

const char* FindTagFault(Bytes frame) {
  const std::size_t size = Load<std::uint16_t>(frame.data() + kTagSizeOffset);
  if (size == 0) return nullptr;
  if (size > kMaxTagLength + 1) return "a tag above its limit";
  if (size > frame.size() - kTagOffset) return "a tag cut short";
  return IsText(frame.data() + kTagOffset, size) ? nullptr : "a tag that is not a text";
}

// The checks of one item; `item` is what remains of the frame. On success `size` is the item's.
const char* FindItemFault(Bytes item, std::size_t& size) {
  switch (item[0]) {
    case kInt32:
    case kArrayCount:
      size = kNumberItemSize;
      return item.size() >= size ? nullptr : "a number cut short";
    case kBool:
      size = kBoolItemSize;
      if (item.size() < size) return "a bool cut short";
      return item[1] <= 1 ? nullptr : "a bool that is neither 0 nor 1";
    case kString: {
      if (item.size() < kStringPrefixSize) return "a string cut short";
      const std::size_t text_size = Load<std::uint32_t>(item.data() + kTypeSize);
      if (text_size > item.size() - kStringPrefixSize) return "a string cut short";
      size = kStringPrefixSize + text_size;
      return IsText(item.data() + kStringPrefixSize, text_size) ? nullptr
                                                                : "a string that is not a text";
    }
    default:
      return "an unknown item type";
  }
}

}  // namespace

bool IsSizeAllowed(std::size_t size) {
  return size >= kMinSize && size <= kMaxFrameSize;
}

const char* FindFault(Bytes frame) {
  if (const char* fault = FindTagFault(frame)) return fault;
  std::size_t offset = kTagOffset + Load<std::uint16_t>(frame.data() + kTagSizeOffset);
  while (offset < frame.size()) {
    std::size_t size = 0;
    if (const char* fault = FindItemFault(frame.subspan(offset), size)) return fault;
    offset += size;
  }
  return nullptr;
}

}  // namespace kavrel_rpc::frame
