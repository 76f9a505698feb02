// The bodies that all exported functions of the state API share, over one property each. What a
// property does not have does not compile.
//
// Lines belong to the exported function, so each body takes its caller's place.
#pragma once

#include <kavrel/state_properties.h>

#include <string>

#include "../common/log.h"
#include "KavrelVconfInternal.h"

namespace kavrel::state {

template <class P>
concept IsNumber = P::kType == PropertyType::Int || P::kType == PropertyType::Bool;
template <class P>
concept IsText = P::kType == PropertyType::String;
template <class P>
concept HasSetter = P::kWritable;
template <class P>
concept CanBeWatched = P::kWatchable;

inline void LogStart(SourceLine where) {
  KAVREL_LOG(kLogInfo, kLogTag, where, "start\n");
}

template <IsNumber P>
int Get(SourceLine where, const P& property, int* value) {
  LogStart(where);
  constexpr auto kRead = P::kType == PropertyType::Int ? &GetVconfIntKey : &GetVconfBoolKey;
  return kRead(property.key, value);
}

/// Only whether the text is there: the state API never hands it out.
template <IsText P>
int GetStatus(SourceLine where, const P& property) {
  LogStart(where);
  return StoredText(GetVconfStrKey(property.key)) != nullptr ? 0 : -1;
}

template <IsNumber P>
requires HasSetter<P>
int Set(SourceLine where, const P& property, int value) {
  LogStart(where);
  constexpr auto kWrite = P::kType == PropertyType::Int ? &SetVconfIntKey : &SetVconfBoolKey;
  return kWrite(property.key, value);
}

template <IsText P>
requires HasSetter<P>
int Set(SourceLine where, const P& property, const char* value) {
  LogStart(where);
  if (value == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, where, "set value is NULL\n");
    return -1;
  }
  return SetVconfStrKey(property.key, value);
}

template <CanBeWatched P>
int Watch(SourceLine where, const P& property, kavrel_value_changed_cb callback, void* user_data,
          AssignCb assign = &AssignNodeInfo) {
  LogStart(where);
  return KavrelRegisterValueCb(std::string(property.key), callback, assign, user_data);
}

template <CanBeWatched P>
int Unwatch(SourceLine where, const P& property, kavrel_value_changed_cb callback) {
  LogStart(where);
  return KavrelUnregisterValueCb(std::string(property.key), callback);
}

}  // namespace kavrel::state
