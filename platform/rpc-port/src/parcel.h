// A parcel: one frame being written or read.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "frame.h"

namespace kavrel_rpc {

/// Keeps its frame ready to send. Small frames live inside the object, and the memory of a few
/// objects is kept for the next ones, so that an ordinary request costs no allocation. One thread
/// at a time.
class Parcel {
 public:
  /// How many objects' memory is kept, in the whole process: a call needs two, request and result.
  /// What a larger frame takes besides is never kept.
  static constexpr std::size_t kSpareObjects = 4;

  /// An empty parcel with a fresh sequence number; null without memory.
  static Parcel* Create();
  /// A copy of a frame that has no fault; null without memory.
  static Parcel* FromFrame(Bytes frame);

  Parcel(const Parcel&) = delete;
  Parcel& operator=(const Parcel&) = delete;
  ~Parcel() {
    if (data_ != inline_) std::free(data_);
  }
  /// Null without memory.
  static void* operator new(std::size_t size) noexcept;
  static void operator delete(void* memory) noexcept;

  int SetTag(const char* tag);
  int CopyTag(char** tag) const;
  void SetSequence(std::int32_t sequence) {
    frame::Store(data_ + frame::kSequenceOffset, sequence);
  }
  std::int32_t Sequence() const {
    return frame::Load<std::int32_t>(data_ + frame::kSequenceOffset);
  }

  /// Each gives 0, -EMSGSIZE or -ENOMEM.
  int WriteNumber(frame::Item type, std::int32_t value);
  int WriteBool(bool value);
  int WriteString(const char* value);

  /// Each gives 0, -ENODATA (no item left), -EBADMSG (another type) or -ENOMEM.
  int ReadNumber(frame::Item type, std::int32_t* value);
  int ReadBool(bool* value);
  int ReadString(char** value);

  /// 0, or why the frame is not what its writer meant: the code of the first failed write.
  int Fault() const { return fault_; }
  Bytes Frame() const { return {data_, size_}; }

 private:
  static constexpr std::size_t kInlineSize = 224;

  // cppcheck-suppress uninitMemberVarPrivate ; only what was written is read
  Parcel() = default;
  std::size_t TagSize() const { return frame::Load<std::uint16_t>(data_ + frame::kTagSizeOffset); }
  int Reserve(std::size_t more) { return more <= capacity_ - size_ ? 0 : Grow(more); }
  int Grow(std::size_t more);
  int Fail(int code);
  void SetSize(std::size_t size);
  int CheckNext(frame::Item type) const;

  std::uint8_t* data_ = inline_;
  std::size_t capacity_ = kInlineSize;
  std::size_t size_ = frame::kMinSize;
  std::size_t cursor_ = frame::kMinSize;
  int fault_ = 0;
  std::uint8_t inline_[kInlineSize];
};

}  // namespace kavrel_rpc
