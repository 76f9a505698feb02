/* Follows two properties of the viewer until Ctrl-C. */
#include <kavrel/state_api.h>
#include <stdio.h>

#include <glib-unix.h>

static void focus_changed(valuenode_s* node, void* user_data) {
  (void)user_data;
  if (node->type == KAVREL_VALUE_INT) printf("pip focus: %d\n", node->value.intValue);
}

/* The rating lock is a text in the store, and watchers get the text. It is borrowed: a watcher that
 * wants to keep it copies it. */
static void rating_changed(valuenode_s* node, void* user_data) {
  (void)user_data;
  if (node->type == KAVREL_VALUE_STRING) printf("rating: %s\n", node->value.strValue);
}

static void show_current(void) {
  int focus = 0;
  bool locked = false;
  if (kavrel_get_pip_focus(&focus) == 0) printf("pip focus is %d\n", focus);
  if (kavrel_get_rating_locked(&locked) == 0) printf("rating is %s\n", locked ? "locked" : "open");
}

static gboolean quit(gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_CONTINUE;
}

int main(void) {
  GMainLoop* loop = g_main_loop_new(NULL, FALSE);
  g_unix_signal_add(SIGINT, quit, loop);
  g_unix_signal_add(SIGTERM, quit, loop);
  setvbuf(stdout, NULL, _IOLBF, 0); /* each line at once, also into a pipe */

  if (kavrel_register_pip_focus_change_cb(focus_changed, NULL) != 0 ||
      kavrel_register_rating_locked_cb(rating_changed, NULL) != 0) {
    fputs("the state store cannot be watched; the log tells why\n", stderr);
    g_main_loop_unref(loop);
    return 1;
  }
  show_current(); /* after registering: no change falls between the two */
  puts("watching, Ctrl-C ends");
  g_main_loop_run(loop); /* callbacks run in here */

  kavrel_unregister_rating_locked_cb(rating_changed);
  kavrel_unregister_pip_focus_change_cb(focus_changed);
  g_main_loop_unref(loop);
  puts("ended");
  return 0;
}
