// The bodies that all exported functions of the state API share, over one property each. What a
// property does not have does not compile.
//
// Lines belong to the exported function, so each body takes its caller's place.
#pragma once

#include <kavrel/state_properties.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "../common/log.h"
#include "KavrelVconfInternal.h"

namespace kavrel::state {

struct FreeStoredText {
  void operator()(char* text) const { std::free(text); }
};
using StoredText = std::unique_ptr<char, FreeStoredText>;

inline void LogStart(SourceLine where) {
  KAVREL_LOG(kLogInfo, "kavrel-api", where, "start\n");
}

template <class P>
int Get(SourceLine where, const P& property, int* value) {
  static_assert(P::kType == PropertyType::Int || P::kType == PropertyType::Bool);
  LogStart(where);
  constexpr auto kRead = P::kType == PropertyType::Int ? &GetVconfIntKey : &GetVconfBoolKey;
  return kRead(property.key, value);
}

/// Only whether the text is there: the state API never hands it out.
template <class P>
int GetStatus(SourceLine where, const P& property) {
  static_assert(P::kType == PropertyType::String);
  LogStart(where);
  return StoredText(GetVconfStrKey(property.key)) != nullptr ? 0 : -1;
}

template <class P>
int Set(SourceLine where, const P& property, int value) {
  static_assert(P::kWritable, "this property has no setter");
  static_assert(P::kType == PropertyType::Int || P::kType == PropertyType::Bool);
  LogStart(where);
  constexpr auto kWrite = P::kType == PropertyType::Int ? &SetVconfIntKey : &SetVconfBoolKey;
  return kWrite(property.key, value);
}

template <class P>
int Watch(SourceLine where, const P& property, kavrel_value_changed_cb callback, void* user_data,
          AssignCb assign = &AssignNodeInfo) {
  static_assert(P::kWatchable, "this property cannot be watched");
  LogStart(where);
  return KavrelRegisterValueCb(std::string(property.key), callback, assign, user_data);
}

template <class P>
int Unwatch(SourceLine where, const P& property, kavrel_value_changed_cb callback) {
  static_assert(P::kWatchable, "this property cannot be watched");
  LogStart(where);
  return KavrelUnregisterValueCb(std::string(property.key), callback);
}

}  // namespace kavrel::state
