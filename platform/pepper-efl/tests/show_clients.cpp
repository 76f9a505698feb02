// Runs a compositor without a display and real Wayland clients in it, and reports what it saw:
//
//   pepper_efl_show_clients SECONDS PICTURE.png COMMAND [ARGUMENT...]
//
// Prints one line a window that comes or goes, and at the end the frames, the processor time of
// this process and the share of the picture that is not the background. The runtime directory is
// taken from the environment. Exits with 0 when a window came.
#include <Ecore.h>
#include <Ecore_Evas.h>
#include <pepper-efl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr char kSocket[] = "pepper-efl-clients";
constexpr int kWidth = 1280, kHeight = 720;
constexpr unsigned kBackground = 0xff204060;

/// What is counted while the loop runs.
struct Counts {
  int windows = 0;
  int frames = 0;
};

void Report(const char* what, Evas_Object* object) {
  int width = 0, height = 0;
  evas_object_image_size_get(object, &width, &height);
  const char* app_id = pepper_efl_object_app_id_get(object);
  std::printf("%s \"%s\" (%s) %dx%d\n", what, pepper_efl_object_title_get(object),
              app_id != nullptr ? app_id : "no id", width, height);
  (void)std::fflush(stdout);
}

void Added(void* data, Evas_Object*, void* object) {
  ++static_cast<Counts*>(data)->windows;
  Report("add", static_cast<Evas_Object*>(object));
  evas_object_show(static_cast<Evas_Object*>(object));
}

void Gone(void*, Evas_Object*, void* object) {
  Report("del", static_cast<Evas_Object*>(object));
  evas_object_del(static_cast<Evas_Object*>(object));
}

Evas_Object* AddRoot(Evas* canvas) {
  Evas_Object* background = evas_object_rectangle_add(canvas);
  evas_object_color_set(background, 0x20, 0x40, 0x60, 0xff);
  evas_object_layer_set(background, EVAS_LAYER_MIN);
  evas_object_resize(background, kWidth, kHeight);
  evas_object_show(background);
  static const Evas_Smart_Class type = EVAS_SMART_CLASS_INIT_NAME_VERSION("root window");
  Evas_Object* root = evas_object_smart_add(canvas, evas_smart_class_new(&type));
  evas_object_resize(root, kWidth, kHeight);
  evas_object_show(root);
  return root;
}

pid_t Start(char** command) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::setenv("WAYLAND_DISPLAY", kSocket, 1);
    ::unsetenv("DISPLAY");
    ::execvp(command[0], command);
    std::perror(command[0]);
    ::_exit(127);
  }
  return child;
}

double ProcessorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double CoveredShare(Ecore_Evas* window) {
  ecore_evas_manual_render(window);
  const auto* pixels = static_cast<const unsigned*>(ecore_evas_buffer_pixels_get(window));
  int covered = 0;
  for (int i = 0; i < kWidth * kHeight; ++i) covered += pixels[i] != kBackground ? 1 : 0;
  return static_cast<double>(covered) / (kWidth * kHeight);
}

bool Save(Ecore_Evas* window, const char* path) {
  Evas_Object* image = evas_object_image_add(ecore_evas_get(window));
  evas_object_image_size_set(image, kWidth, kHeight);
  const void* pixels = ecore_evas_buffer_pixels_get(window);
  void* own = evas_object_image_data_get(image, EINA_TRUE);
  std::memcpy(own, pixels, std::size_t{4} * kWidth * kHeight);
  evas_object_image_data_set(image, own);
  const bool saved = evas_object_image_save(image, path, nullptr, nullptr) != EINA_FALSE;
  evas_object_del(image);
  return saved;
}

Eina_Bool Quit(void*) {
  ecore_main_loop_quit();
  return ECORE_CALLBACK_CANCEL;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    (void)std::fprintf(stderr, "usage: %s SECONDS PICTURE.png COMMAND [ARGUMENT...]\n", argv[0]);
    return 2;
  }
  ecore_app_no_system_modules();
  ecore_evas_init();
  Ecore_Evas* window = ecore_evas_buffer_new(kWidth, kHeight);
  ecore_evas_show(window);
  Counts counts;
  Evas_Object* root = AddRoot(ecore_evas_get(window));
  evas_object_smart_callback_add(root, "add.object", Added, &counts);
  evas_object_smart_callback_add(root, "del.object", Gone, nullptr);
  evas_event_callback_add(
      ecore_evas_get(window), EVAS_CALLBACK_RENDER_POST,
      [](void* data, Evas*, void*) { ++static_cast<Counts*>(data)->frames; }, &counts);
  void* compositor = pepper_efl_compositor_create(root, kSocket);
  if (compositor == nullptr) return 1;
  const pid_t child = Start(argv + 3);
  const double seconds = std::stod(argv[1]);
  ecore_timer_add(seconds, Quit, nullptr);
  const double before = ProcessorSeconds();
  ecore_main_loop_begin();
  const double spent = ProcessorSeconds() - before;
  const double covered = CoveredShare(window);
  std::printf("frames %.1f a second, processor %.1f %%, covered %.1f %%, picture %s\n",
              counts.frames / seconds, 100 * spent / seconds, 100 * covered,
              Save(window, argv[2]) ? argv[2] : "not saved");
  pepper_efl_compositor_destroy(compositor);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ecore_evas_free(window);
  ecore_evas_shutdown();
  return counts.windows > 0 ? 0 : 1;
}
