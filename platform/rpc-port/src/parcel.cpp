#include "parcel.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include "bounds.h"
#include "memory_checks.h"
#include "spare_blocks.h"

namespace kavrel_rpc {
namespace {

// Unsigned, so that the count may go round.
std::atomic<std::uint32_t> next_sequence{1};

constinit SpareBlocks<Parcel::kSpareObjects> spare_objects;

int CopyText(const std::uint8_t* text, std::size_t size, char** copy) {
  auto* memory = static_cast<char*>(std::malloc(size));
  if (memory == nullptr) return -ENOMEM;
  std::memcpy(memory, text, size);
  *copy = memory;
  return 0;
}

}  // namespace

void* Parcel::operator new(std::size_t size) noexcept {
  if (void* const spare = spare_objects.Take()) return spare;
  return ::operator new(size, std::nothrow);
}

// Nothing is kept where the use of a destroyed parcel is to be found.
void Parcel::operator delete(void* memory) noexcept {
  if (memory == nullptr || (!kMemoryIsChecked && spare_objects.Keep(memory))) return;
  ::operator delete(memory);
}

Parcel* Parcel::Create() {
  auto* parcel = new Parcel;
  if (parcel == nullptr) return nullptr;
  parcel->SetSize(frame::kMinSize);
  const auto sequence = next_sequence.fetch_add(1, std::memory_order_relaxed);
  parcel->SetSequence(static_cast<std::int32_t>(sequence));
  frame::Store<std::uint16_t>(parcel->data_ + frame::kTagSizeOffset, 0);
  return parcel;
}

Parcel* Parcel::FromFrame(Bytes frame) {
  std::unique_ptr<Parcel> parcel(new Parcel);
  if (parcel == nullptr) return nullptr;
  parcel->size_ = 0;
  if (parcel->Reserve(frame.size()) != 0) return nullptr;
  std::memcpy(parcel->data_, frame.data(), frame.size());
  parcel->size_ = frame.size();
  parcel->cursor_ = frame::kTagOffset + parcel->TagSize();
  return parcel.release();
}

int Parcel::Fail(int code) {
  if (fault_ == 0) fault_ = code;
  return code;
}

void Parcel::SetSize(std::size_t size) {
  size_ = size;
  frame::Store(data_ + frame::kSizeOffset, static_cast<std::uint32_t>(size));
}

// Never beyond the size of the largest frame, so that what fits needs no other check.
int Parcel::Grow(std::size_t more) {
  if (more > kMaxFrameSize - size_) return Fail(-EMSGSIZE);
  const std::size_t needed = size_ + more;
  const std::size_t capacity = std::min(std::max(needed, 2 * capacity_), kMaxFrameSize);
  void* old = data_ == inline_ ? nullptr : data_;
  auto* grown = static_cast<std::uint8_t*>(std::realloc(old, capacity));
  if (grown == nullptr) return Fail(-ENOMEM);
  if (old == nullptr) std::memcpy(grown, inline_, size_);
  data_ = grown;
  capacity_ = capacity;
  return 0;
}

int Parcel::SetTag(const char* tag) {
  const std::size_t length = tag != nullptr ? ::strnlen(tag, kMaxTagLength + 1) : 0;
  if (length > kMaxTagLength) return -EINVAL;
  const std::size_t new_size = tag != nullptr ? length + 1 : 0;
  const std::size_t old_size = TagSize();
  if (new_size > old_size) {
    if (const int result = Reserve(new_size - old_size); result != 0) return result;
  }
  if (const std::size_t items = size_ - frame::kTagOffset - old_size; items != 0) {
    std::memmove(data_ + frame::kTagOffset + new_size, data_ + frame::kTagOffset + old_size, items);
  }
  if (new_size != 0) std::memcpy(data_ + frame::kTagOffset, tag, new_size);
  frame::Store(data_ + frame::kTagSizeOffset, static_cast<std::uint16_t>(new_size));
  cursor_ = cursor_ + new_size - old_size;
  SetSize(size_ + new_size - old_size);
  return 0;
}

int Parcel::CopyTag(char** tag) const {
  if (TagSize() != 0) return CopyText(data_ + frame::kTagOffset, TagSize(), tag);
  *tag = nullptr;
  return 0;
}

int Parcel::WriteNumber(frame::Item type, std::int32_t value) {
  if (const int result = Reserve(1 + sizeof value); result != 0) return result;
  data_[size_] = type;
  frame::Store(data_ + size_ + 1, value);
  SetSize(size_ + 1 + sizeof value);
  return 0;
}

int Parcel::WriteBool(bool value) {
  if (const int result = Reserve(2); result != 0) return result;
  data_[size_] = frame::kBool;
  data_[size_ + 1] = value ? 1 : 0;
  SetSize(size_ + 2);
  return 0;
}

int Parcel::WriteString(const char* value) {
  const std::size_t text_size = ::strnlen(value, kMaxFrameSize) + 1;
  const std::size_t prefix_size = 1 + sizeof(std::uint32_t);
  if (const int result = Reserve(prefix_size + text_size); result != 0) return result;
  data_[size_] = frame::kString;
  frame::Store(data_ + size_ + 1, static_cast<std::uint32_t>(text_size));
  std::memcpy(data_ + size_ + prefix_size, value, text_size);
  SetSize(size_ + prefix_size + text_size);
  return 0;
}

int Parcel::CheckNext(frame::Item type) const {
  if (cursor_ >= size_) return -ENODATA;
  return data_[cursor_] == type ? 0 : -EBADMSG;
}

int Parcel::ReadNumber(frame::Item type, std::int32_t* value) {
  if (const int result = CheckNext(type); result != 0) return result;
  *value = frame::Load<std::int32_t>(data_ + cursor_ + 1);
  cursor_ += 1 + sizeof *value;
  return 0;
}

int Parcel::ReadBool(bool* value) {
  if (const int result = CheckNext(frame::kBool); result != 0) return result;
  *value = data_[cursor_ + 1] != 0;
  cursor_ += 2;
  return 0;
}

int Parcel::ReadString(char** value) {
  if (const int result = CheckNext(frame::kString); result != 0) return result;
  const std::size_t prefix_size = 1 + sizeof(std::uint32_t);
  const std::size_t text_size = frame::Load<std::uint32_t>(data_ + cursor_ + 1);
  const int result = CopyText(data_ + cursor_ + prefix_size, text_size, value);
  if (result == 0) cursor_ += prefix_size + text_size;
  return result;
}

}  // namespace kavrel_rpc
