#include <kavrel/state_api.h>

#include "PropertyAccess.h"

using kavrel::Here;
using kavrel::state::Get;
using kavrel::state::Unwatch;
using kavrel::state::Watch;
namespace properties = kavrel::state::properties;

int kavrel_get_window_id(int* value) {
  return Get(Here(), properties::window_id, value);
}

int kavrel_register_window_id_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::window_id, callback, user_data);
}

int kavrel_unregister_window_id_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::window_id, callback);
}
