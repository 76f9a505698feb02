// The owner of one rpc-port parcel, and the typed items of the remote interface in it.
//
// Thread: a parcel belongs to the thread that made it.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <rpc-port.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace kavrel::app_api {

/// More elements than any caller of the interface has use for; a longer list is refused.
inline constexpr int kMaxListElements = 4096;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
/// A text that the platform allocated and its reader frees.
using PlatformText = std::unique_ptr<char, FreeText>;

class Parcel {
 public:
  Parcel() = default;
  Parcel(Parcel&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Parcel& operator=(Parcel&& other) noexcept {
    if (this != &other) {
      Reset();
      handle_ = std::exchange(other.handle_, nullptr);
    }
    return *this;
  }
  Parcel(const Parcel&) = delete;
  Parcel& operator=(const Parcel&) = delete;
  ~Parcel() { Reset(); }

  /// Takes over `handle`, which may be null.
  static Parcel Adopt(rpc_port_parcel_h handle) {
    Parcel parcel;
    parcel.handle_ = handle;
    return parcel;
  }

  /// A new parcel with a fresh sequence number; empty on failure.
  static Parcel Create() {
    rpc_port_parcel_h handle = nullptr;
    return Adopt(rpc_port_parcel_create(&handle) == 0 ? handle : nullptr);
  }

  rpc_port_parcel_h get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }
  rpc_port_parcel_h Release() { return std::exchange(handle_, nullptr); }

  void Reset() {
    if (handle_ != nullptr) rpc_port_parcel_destroy(std::exchange(handle_, nullptr));
  }

  /// The header, owned by the parcel; null on failure.
  rpc_port_parcel_header_h Header() const {
    rpc_port_parcel_header_h header = nullptr;
    return rpc_port_parcel_get_header(handle_, &header) == 0 ? header : nullptr;
  }

 private:
  rpc_port_parcel_h handle_ = nullptr;
};

/// Appends one item. T is one of the types that ItemTypeOf knows; false when the platform refuses.
template <class T>
bool WriteItem(rpc_port_parcel_h parcel, const T& value) {
  constexpr ItemType kType = ItemTypeOf<T>();
  if constexpr (kType == ItemType::Int32) {
    return rpc_port_parcel_write_int32(parcel, value) == 0;
  } else if constexpr (kType == ItemType::Bool) {
    return rpc_port_parcel_write_bool(parcel, value) == 0;
  } else if constexpr (kType == ItemType::String) {
    return rpc_port_parcel_write_string(parcel, value.c_str()) == 0;
  } else {
    bool written = rpc_port_parcel_write_array_count(parcel, static_cast<int>(value.size())) == 0;
    for (const std::string& element : value) written = written && WriteItem(parcel, element);
    return written;
  }
}

/// Takes the next item; false, with `value` unspecified but valid, when it is missing, of another
/// type, or a list whose count is negative or above kMaxListElements. Nothing is reserved by a
/// count: a list grows with the elements that are really there.
template <class T>
bool ReadItem(rpc_port_parcel_h parcel, T& value) {
  constexpr ItemType kType = ItemTypeOf<T>();
  if constexpr (kType == ItemType::Int32) {
    return rpc_port_parcel_read_int32(parcel, &value) == 0;
  } else if constexpr (kType == ItemType::Bool) {
    return rpc_port_parcel_read_bool(parcel, &value) == 0;
  } else if constexpr (kType == ItemType::String) {
    char* text = nullptr;
    if (rpc_port_parcel_read_string(parcel, &text) != 0) return false;
    const PlatformText owned(text);
    if (owned == nullptr) return false;
    value.assign(owned.get());
    return true;
  } else {
    int count = -1;
    if (rpc_port_parcel_read_array_count(parcel, &count) != 0) return false;
    if (count < 0 || count > kMaxListElements) return false;
    for (int i = 0; i < count; ++i) {
      if (!ReadItem(parcel, value.emplace_back())) return false;
    }
    return true;
  }
}

/// Whether any item is left. The platform has no such question, so each kind of item is tried; one
/// that is there is taken.
inline bool HasMoreItems(rpc_port_parcel_h parcel) {
  int number = 0;
  bool flag = false;
  char* text = nullptr;
  if (rpc_port_parcel_read_int32(parcel, &number) == 0) return true;
  if (rpc_port_parcel_read_bool(parcel, &flag) == 0) return true;
  if (rpc_port_parcel_read_array_count(parcel, &number) == 0) return true;
  const bool is_text = rpc_port_parcel_read_string(parcel, &text) == 0;
  const PlatformText owned(text);
  return is_text;
}

}  // namespace kavrel::app_api
