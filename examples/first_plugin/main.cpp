// A plug-in with a window in the viewer: shows the last colour key that was pressed.
#include <Elementary.h>
#include <kavrel/KavrelAPI.h>

#include <iostream>

struct KeyView : IKeyInputListener {
  bool OnKeyPressed(const std::string& key, int /*device*/) override {
    elm_object_text_set(label, key.c_str());
    std::cerr << key << '\n';
    return true;
  }
  bool OnKeyReleased(const std::string& /*key*/, int /*device*/) override { return true; }

  IViewerPluggable* plugin = nullptr;
  Evas_Object* label = nullptr;
};

// Each time the viewer is there: one that was restarted has forgotten the keys.
static void Connected(void* view) {
  CKeyRepository keys;
  for (const char* key : {"XF86Red", "XF86Green", "XF86Yellow", "XF86Blue"}) keys.AddKey(key);
  static_cast<KeyView*>(view)->plugin->RegsiterKeyRepository(keys);
  static_cast<KeyView*>(view)->plugin->Show();
}

int main(int argc, char** argv) {
  elm_init(argc, argv);
  KeyView view;
  if (!KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES, "keys", &view.plugin, "kavrel")) return 1;
  view.plugin->RegisterKeyInputListener(&view);
  view.plugin->SetConnectionChangedCallback(&Connected, nullptr, &view);
  Evas_Object* const window = KavrelAPI::CreatePepperPluginWindow("main", "keys", "kavrel");
  if (window == nullptr) return 1;
  view.label = elm_label_add(window);
  elm_object_text_set(view.label, "press a colour key");
  elm_win_resize_object_add(window, view.label);
  evas_object_show(view.label);
  evas_object_show(window);
  elm_run();  // until the viewer ends, or SIGTERM
  KavrelAPI::DestroyPluggable();
  elm_shutdown();
}
