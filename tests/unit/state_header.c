/* The header of the state API as a C program sees it, and in front of every other header. */
#include <kavrel/state_api.h>
/* A second time changes nothing. */
#include <kavrel/state_api.h>

int StateHeaderInC(void);

static int ReadRecord(const struct valuenode_s* node);

static void Changed(valuenode_s* node, void* user_data) {
  *(int*)user_data = ReadRecord(node);
}

/* A record as a callback gets it; each member by its name. */
static int ReadRecord(const struct valuenode_s* node) {
  switch (node->type) {
    case KAVREL_VALUE_STRING:
      return node->value.strValue == 0;
    case KAVREL_VALUE_INT:
      return node->value.intValue;
    case KAVREL_VALUE_DOUBLE:
      return node->value.doubleValue < 0;
    case KAVREL_VALUE_BOOL:
      return node->value.boolValue;
    default:
      return -1;
  }
}

/* Reads, writes, registers and unregisters; the sum of the results, 0 when all succeed. */
int StateHeaderInC(void) {
  static int seen;
  int focus = 0;
  bool locked = false;
  const struct valuenode_s node = {KAVREL_VALUE_INT, {0}};
  const kavrel_value_changed_cb callback = Changed;
  int failures = kavrel_register_pip_focus_change_cb(callback, &seen);
  failures += kavrel_set_pip_focus(1) + kavrel_get_pip_focus(&focus);
  failures += kavrel_set_more_key_option_type("text") + kavrel_get_more_key_option_type();
  failures += kavrel_set_memroy_serdes_error(1) + kavrel_get_rating_locked(&locked);
  failures += kavrel_unregister_pip_focus_change_cb(callback);
  return failures + (focus != 1) + !locked + ReadRecord(&node);
}
