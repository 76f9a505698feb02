#include "wire_model.h"

#include <algorithm>
#include <cstring>

namespace kavrel_fuzz {
namespace {

constexpr std::size_t kLeastFrame = 10;
constexpr std::size_t kLargestFrame = std::size_t{1} << 20;
constexpr std::size_t kLongestTag = 255;

// Takes things off the front of bytes; once something was missing, nothing is there any more.
class Reader {
 public:
  explicit Reader(ByteView bytes) : bytes_(bytes) {}

  template <class Number>
  Number Take() {
    Number number{};
    const ByteView bytes = TakeBytes(sizeof number);
    if (!bytes.empty()) std::memcpy(&number, bytes.data(), sizeof number);
    return number;
  }

  // A text of that many bytes, the NUL that ends it included.
  std::string TakeText(std::size_t size) {
    const ByteView bytes = TakeBytes(size);
    const std::string text(bytes.begin(), bytes.end());
    if (size == 0 || text.find('\0') + 1 != size) is_good_ = false;
    return text.substr(0, text.find('\0'));
  }

  Item TakeItem() {
    switch (Take<char>()) {
      case 'i':
        return Take<std::int32_t>();
      case 'a':
        return Count{Take<std::int32_t>()};
      case 'b':
        return TakeBool();
      case 's':
        return TakeText(Take<std::uint32_t>());
      default:
        is_good_ = false;
        return 0;
    }
  }

  bool is_good() const { return is_good_; }
  bool is_at_end() const { return bytes_.empty(); }

 private:
  bool TakeBool() {
    const auto value = Take<std::uint8_t>();
    is_good_ = is_good_ && value <= 1;
    return value != 0;
  }

  ByteView TakeBytes(std::size_t size) {
    is_good_ = is_good_ && size <= bytes_.size();
    if (!is_good_) return {};
    const ByteView taken = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return taken;
  }

  ByteView bytes_;
  bool is_good_ = true;
};

template <class Number>
void Append(Bytes& bytes, Number number) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(&number);
  bytes.insert(bytes.end(), first, first + sizeof number);
}

void Append(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.push_back(0);
}

struct ItemAppender {
  Bytes& bytes;

  void operator()(std::int32_t value) const {
    bytes.push_back('i');
    Append(bytes, value);
  }
  void operator()(bool value) const {
    bytes.push_back('b');
    bytes.push_back(value ? 1 : 0);
  }
  void operator()(Count count) const {
    bytes.push_back('a');
    Append(bytes, count.value);
  }
  void operator()(const std::string& text) const {
    bytes.push_back('s');
    Append(bytes, static_cast<std::uint32_t>(text.size() + 1));
    Append(bytes, text);
  }
};

}  // namespace

std::optional<Frame> ParseFrame(ByteView bytes) {
  Reader reader(bytes);
  Frame frame;
  const std::size_t stated_size = reader.Take<std::uint32_t>();
  frame.sequence = reader.Take<std::int32_t>();
  const std::size_t tag_size = reader.Take<std::uint16_t>();
  if (stated_size != bytes.size() || stated_size > kLargestFrame) return std::nullopt;
  if (tag_size > kLongestTag + 1) return std::nullopt;
  if (tag_size > 0) frame.tag = reader.TakeText(tag_size);
  while (reader.is_good() && !reader.is_at_end()) frame.items.push_back(reader.TakeItem());
  if (!reader.is_good()) return std::nullopt;
  return frame;
}

Bytes BuildFrame(const Frame& frame) {
  Bytes bytes(sizeof(std::uint32_t));
  Append(bytes, frame.sequence);
  Append(bytes, static_cast<std::uint16_t>(frame.tag ? frame.tag->size() + 1 : 0));
  if (frame.tag) Append(bytes, *frame.tag);
  for (const Item& item : frame.items) std::visit(ItemAppender{bytes}, item);
  const auto size = static_cast<std::uint32_t>(bytes.size());
  std::memcpy(bytes.data(), &size, sizeof size);
  return bytes;
}

Stream ParseStream(ByteView bytes) {
  Stream stream;
  while (bytes.size() >= sizeof(std::uint32_t)) {
    std::uint32_t size = 0;
    std::memcpy(&size, bytes.data(), sizeof size);
    stream.has_fault = size < kLeastFrame || size > kLargestFrame;
    if (stream.has_fault || size > bytes.size()) break;
    const ByteView frame = bytes.first(size);
    auto content = ParseFrame(frame);
    stream.has_fault = !content;
    if (!content) break;
    stream.frames.push_back({frame, std::move(*content)});
    bytes = bytes.subspan(size);
  }
  stream.rest = bytes;
  return stream;
}

}  // namespace kavrel_fuzz
