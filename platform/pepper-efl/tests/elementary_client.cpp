// A plug-in's window as Elementary makes it: green, blue after the red key, red after a click.
#include <Elementary.h>
#include <unistd.h>

namespace {

void Paint(Evas_Object* background, int red, int green, int blue) {
  elm_bg_color_set(background, red, green, blue);
}

void KeyPressed(void* background, Evas*, Evas_Object*, void* information) {
  const auto* event = static_cast<Evas_Event_Key_Down*>(information);
  if (eina_streq(event->key, "XF86Red")) Paint(static_cast<Evas_Object*>(background), 0, 0, 0xff);
}

void Clicked(void* background, Evas*, Evas_Object*, void*) {
  Paint(static_cast<Evas_Object*>(background), 0xff, 0, 0);
}

}  // namespace

int main(int argc, char** argv) {
  elm_init(argc, argv);
  elm_policy_set(ELM_POLICY_QUIT, ELM_POLICY_QUIT_LAST_WINDOW_CLOSED);
  Evas_Object* window = elm_win_util_standard_add("main", "a toolkit's window");
  elm_win_autodel_set(window, EINA_TRUE);
  Evas_Object* background = elm_bg_add(window);
  evas_object_size_hint_weight_set(background, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
  elm_win_resize_object_add(window, background);
  Paint(background, 0, 0xff, 0);
  evas_object_show(background);
  evas_object_event_callback_add(window, EVAS_CALLBACK_KEY_DOWN, KeyPressed, background);
  evas_object_event_callback_add(background, EVAS_CALLBACK_MOUSE_DOWN, Clicked, background);
  evas_object_resize(window, 200, 150);
  evas_object_show(window);
  elm_run();
  ::_exit(0);  // EFL's shutdown, with threads of its own still running, is not what is tried here
}
