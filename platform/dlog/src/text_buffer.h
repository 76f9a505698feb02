// Room for one text: short ones stay on the stack of the caller, long ones go to the heap.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace kavrel_dlog {

/// Belongs to the thread that made it. Nothing throws: what does not fit into memory is left out,
/// except for the end, for which room is kept.
class TextBuffer {
 public:
  // cppcheck-suppress uninitMemberVar ; only what was written is read
  TextBuffer() = default;
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;
  ~TextBuffer() {
    if (data_ != on_stack_) std::free(data_);
  }

  char* data() { return data_; }
  std::size_t size() const { return size_; }
  std::size_t capacity() const { return capacity_; }
  std::string_view view() const { return {data_, size_}; }
  void SetSize(std::size_t size) { size_ = size; }

  /// Room for `wanted` bytes in all; false when there is no memory.
  bool Reserve(std::size_t wanted) noexcept {
    if (wanted <= capacity_) return true;
    const std::size_t room = wanted > 2 * capacity_ ? wanted : 2 * capacity_;
    char* const grown = static_cast<char*>(std::malloc(room + kRoomForEnd));
    if (grown == nullptr) return false;
    std::memcpy(grown, data_, size_);
    if (data_ != on_stack_) std::free(data_);
    data_ = grown;
    capacity_ = room;
    return true;
  }

  /// As much of a text without characters of several bytes as there is memory for; true when that
  /// is all of it.
  bool AppendWhatFits(std::string_view text) noexcept {
    if (Append(text)) return true;
    if (size_ < capacity_) Append(text.substr(0, capacity_ - size_));
    return false;
  }

  /// Appends a mark of at most kRoomForEnd bytes that ends the text, whatever memory there is.
  void AppendEnd(std::string_view end) noexcept {
    if (size_ + end.size() > capacity_ + kRoomForEnd) return;
    std::memcpy(data_ + size_, end.data(), end.size());
    size_ += end.size();
  }

  bool Append(std::string_view text) noexcept {
    if (!Reserve(size_ + text.size())) return false;
    if (!text.empty()) std::memcpy(data_ + size_, text.data(), text.size());
    size_ += text.size();
    return true;
  }

 private:
  static constexpr std::size_t kRoomForEnd = 16;

  char on_stack_[4096];
  char* data_ = on_stack_;
  std::size_t size_ = 0;
  std::size_t capacity_ = sizeof on_stack_ - kRoomForEnd;
};

}  // namespace kavrel_dlog
