// What every function of the state API stands on: typed access to one key of the platform's state
// store, and the registry that fans one platform notification a key out to all its callbacks.
//
// Names, logged texts and their order are a contract with the programs and log readers in the
// field.
//
// Thread: the accessors may be called from any thread that the store allows; the registry belongs
// to the thread on which the store delivers notifications and takes no lock.
#pragma once

#include <kavrel/state_api.h>
#include <vconf.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace kavrel::state {

inline constexpr const char* kLogTag = "kavrel-api";

/// Owns a text that the store, or GetVconfStrKey, has handed out.
struct FreeStoredText {
  void operator()(char* text) const { std::free(text); }
};
using StoredText = std::unique_ptr<char, FreeStoredText>;

using AssignCb = void (*)(keynode_t*, valuenode_s&);

/// A copy of the text that the caller frees with free(); null when there is none.
char* GetVconfStrKey(const char* key);
/// 0, or -1 for any failure of the store; `value` must not be null.
int GetVconfBoolKey(const char* key, int* value);
int GetVconfIntKey(const char* key, int* value);
int SetVconfStrKey(const char* key, const char* value);
int SetVconfBoolKey(const char* key, int value);
int SetVconfIntKey(const char* key, int value);

/// Adds a callback to a key. `assign_cb` is accepted and not used: records are always filled by
/// AssignNodeInfo. 0, or -1 when the callback is null, already there, or the store refuses.
/// Nothing has changed when it throws std::bad_alloc.
int KavrelRegisterValueCb(std::string key, kavrel_value_changed_cb value_cb, AssignCb assign_cb,
                          void* user_data);
/// Removes a callback from a key; 0 also for a key that nobody watches.
int KavrelUnregisterValueCb(std::string key, kavrel_value_changed_cb value_cb);

/// The store's notification: calls the key's callbacks in the order of their registration, each
/// with the user data that came with the notification. A callback that throws ends the program
/// here: the frames below are the store's and the main loop's, which nothing may unwind.
void KavrelVconfCb(keynode_t* node, void* user_data) noexcept;

/// Fills the record from a notification; text is borrowed from the node. A type that the state API
/// does not know leaves the record as it is.
void AssignNodeInfo(keynode_t* node, valuenode_s& info);

}  // namespace kavrel::state
