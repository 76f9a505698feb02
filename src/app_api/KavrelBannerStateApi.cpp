#include <kavrel/state_api.h>

#include <string_view>

#include "PropertyAccess.h"

using kavrel::Here;
using kavrel::kLogError;
using kavrel::kLogInfo;
using kavrel::state::GetVconfStrKey;
using kavrel::state::LogStart;
using kavrel::state::StoredText;
using kavrel::state::Unwatch;
using kavrel::state::Watch;
namespace properties = kavrel::state::properties;

#define LOG_TAG "kavrel-api"

namespace {

// Only "locked" locks; any other text, "unlocked" or not, does not.
bool ConvertRatingLockedValueToInt(char* locked_state) {
  const bool locked = std::string_view(locked_state) == "locked";
  KAVREL_LOG(kLogInfo, LOG_TAG, Here(), "lockedState: %s, retVal: %d(bool).\n", locked_state,
             static_cast<int>(locked));
  return locked;
}

// Handed over at registration, where it is accepted and not used: watchers get the text.
void AssignRatingLockedInfo(keynode_t* node, valuenode_s& info) {
  char* const text = vconf_keynode_get_str(node);
  if (text == nullptr) return;
  info.type = KAVREL_VALUE_BOOL;
  info.value.boolValue = static_cast<int>(ConvertRatingLockedValueToInt(text));
}

}  // namespace

int kavrel_get_rating_locked(bool* value) {
  LogStart(Here());
  const StoredText text(GetVconfStrKey(properties::rating_locked.key));
  if (text == nullptr || *text == '\0') {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "value is NULL\n");
    return -1;
  }
  *value = ConvertRatingLockedValueToInt(text.get());
  return 0;
}

int kavrel_register_rating_locked_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::rating_locked, callback, user_data, &AssignRatingLockedInfo);
}

int kavrel_unregister_rating_locked_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::rating_locked, callback);
}
