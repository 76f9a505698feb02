#include <kavrel/state_api.h>

#include <string_view>

#include "PropertyAccess.h"
#include "RatingLock.h"

using kavrel::Here;
using kavrel::kLogError;
using kavrel::state::AssignRatingLockedInfo;
using kavrel::state::ConvertRatingLockedValueToInt;
using kavrel::state::GetVconfStrKey;
using kavrel::state::kLogTag;
using kavrel::state::LogStart;
using kavrel::state::StoredText;
using kavrel::state::Unwatch;
using kavrel::state::Watch;
namespace properties = kavrel::state::properties;

namespace kavrel::state {

bool ConvertRatingLockedValueToInt(char* locked_state) {
  const bool locked = std::string_view(locked_state) == "locked";
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "lockedState: %s, retVal: %d(bool).\n", locked_state,
             static_cast<int>(locked));
  return locked;
}

void AssignRatingLockedInfo(keynode_t* node, valuenode_s& info) {
  char* const text = vconf_keynode_get_str(node);
  if (text == nullptr) return;
  info.type = KAVREL_VALUE_BOOL;
  info.value.boolValue = static_cast<int>(ConvertRatingLockedValueToInt(text));
}

}  // namespace kavrel::state

int kavrel_get_rating_locked(bool* value) {
  LogStart(Here());
  const StoredText text(GetVconfStrKey(properties::rating_locked.key));
  if (text == nullptr || *text == '\0') {
    KAVREL_LOG(kLogError, kLogTag, Here(), "value is NULL\n");
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
