// One animating window of 1280x720 inside a program that composes without a display, beside a bare
// copy of the same pixels into an Evas image at the same rate: processor time of a frame, and the
// time from a client's commit to its pixels in the program's picture.
//
//   window_bench [SECONDS]   of each measurement of each round (2)
#include <Ecore.h>
#include <Ecore_Evas.h>
#include <pepper-efl.h>
#include <sys/mman.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "measure.h"
#include "temporary_directory.h"
#include "test_client.h"

using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::Median;
using kavrel_bench::Percentile;
using kavrel_bench::ProcessorMicroseconds;

namespace {

constexpr int kWidth = 1280, kHeight = 720;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
constexpr int kRounds = 5;
constexpr double kFramesPerSecond = 60;
constexpr double kWarmUpSeconds = 0.5;
constexpr char kSocket[] = "kavrel-compositor";
constexpr std::uint32_t kHalfTransparent = 0x80000000, kOpaque = 0xff000000;
constexpr std::uint32_t kNumberMask = 0x3f3f3f;  // below half of each channel, as premultiplied

double Now() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

/// What a measurement leaves for the process that prints it, and the processes for each other.
struct Shared {
  double processor_us_a_frame;
  double frames_a_second;
  double delay_p50_ms, delay_p99_ms;
  volatile double committed[64];  // when, by the frame's number
};
Shared* shared;

/// How the window's client draws.
struct Drawing {
  std::uint32_t format = WL_SHM_FORMAT_XRGB8888;
  std::uint32_t alpha = kOpaque;
  bool says_opaque = false;
  bool flooding_neighbour = false;
};

// The number of a frame is its colour: what the picture shows tells which commit it is.
std::uint32_t ColourOf(unsigned number) {
  return (number & 63) | ((number & 63) << 8);
}

// ---- clients

// Draws a frame each time it is told to.
void Animate(const Drawing& drawing) {
  ecore_init();
  kavrel_pepper_test::TestClient client;
  kavrel_pepper_test::TestWindow window(client, "animation");
  kavrel_pepper_test::TestBuffer first(client, kWidth, kHeight, 0, drawing.format);
  kavrel_pepper_test::TestBuffer second(client, kWidth, kHeight, 0, drawing.format);
  if (drawing.says_opaque) {
    wl_region* region = wl_compositor_create_region(client.compositor);
    wl_region_add(region, 0, 0, kWidth, kHeight);
    wl_surface_set_opaque_region(window.surface, region);
  }
  for (unsigned number = 0; client.error() == 0; ++number) {
    kavrel_pepper_test::TestBuffer& buffer = number % 2 == 0 ? first : second;
    buffer.Fill(0, 0, kWidth, kHeight, drawing.alpha | ColourOf(number));
    window.WantFrame();
    shared->committed[number & 63] = Now();
    window.Show(buffer);
    client.Flush();
    const int frames = window.frames;
    while (window.frames == frames && client.error() == 0) {
      ecore_main_loop_iterate_may_block(EINA_TRUE);
    }
  }
}

// Commits as fast as it can, and comes back each time it is cut off.
void Flood() {
  ecore_init();
  for (;;) {
    kavrel_pepper_test::TestClient client;
    if (!client.connected() || client.error() != 0) continue;
    kavrel_pepper_test::TestWindow window(client, nullptr);
    kavrel_pepper_test::TestBuffer buffer(client, 400, 300, kOpaque);
    while (client.error() == 0) {
      for (int i = 0; i < 100; ++i) window.Show(buffer);
      client.RoundTrip();
    }
  }
}

// Starts clients once the byte has come that says that there is a compositor.
std::unique_ptr<Child> StartClient(int ready, const std::function<void()>& body) {
  return std::make_unique<Child>([ready, body] {
    char byte = 0;
    if (read(ready, &byte, 1) == 1) body();
  });
}

// ---- the program

/// A canvas in memory that counts its frames, and the main loop. Main thread.
class Canvas {
 public:
  Canvas() : window_((Start(), ecore_evas_buffer_new(kWidth, kHeight))) {
    ecore_evas_show(window_);
    Evas_Object* background = evas_object_rectangle_add(evas());
    evas_object_color_set(background, 0, 0, 0, 255);
    evas_object_layer_set(background, EVAS_LAYER_MIN);
    evas_object_resize(background, kWidth, kHeight);
    evas_object_show(background);
    pixels_ = static_cast<const std::uint32_t*>(ecore_evas_buffer_pixels_get(window_));
    evas_event_callback_add(evas(), EVAS_CALLBACK_RENDER_POST, &Canvas::Rendered, this);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  Evas* evas() { return ecore_evas_get(window_); }

  /// Runs the loop and leaves in `shared` what was seen after the warm-up.
  void Measure(double seconds) {
    Run(kWarmUpSeconds);
    frames_ = 0;
    delays_.clear();
    const double processor = ProcessorMicroseconds(), start = Now();
    Run(seconds);
    shared->processor_us_a_frame = (ProcessorMicroseconds() - processor) / std::max(1, frames_);
    shared->frames_a_second = frames_ / (Now() - start);
    shared->delay_p50_ms = Percentile(delays_, 50);
    shared->delay_p99_ms = Percentile(delays_, 99);
  }

 private:
  static void Start() {
    ecore_app_no_system_modules();
    ecore_evas_init();
    ecore_animator_frametime_set(1 / kFramesPerSecond);
  }

  static void Run(double seconds) {
    ecore_timer_add(
        seconds,
        [](void*) -> Eina_Bool {
          ecore_main_loop_quit();
          return ECORE_CALLBACK_CANCEL;
        },
        nullptr);
    ecore_main_loop_begin();
  }

  // Counts the frames that show something new.
  static void Rendered(void* data, Evas*, void*) {
    auto* self = static_cast<Canvas*>(data);
    const std::uint32_t shown = self->pixels_[kPixels - 1] & kNumberMask;
    if (std::exchange(self->shown_, shown) == shown) return;
    ++self->frames_;
    self->delays_.push_back((Now() - shared->committed[shown & 63]) * 1e3);
  }

  Ecore_Evas* window_;
  const std::uint32_t* pixels_ = nullptr;
  std::uint32_t shown_ = 0;
  int frames_ = 0;
  std::vector<double> delays_;
};

Evas_Object* AddRoot(Evas* canvas) {
  static const Evas_Smart_Class type = EVAS_SMART_CLASS_INIT_NAME_VERSION("root window");
  Evas_Object* root = evas_object_smart_add(canvas, evas_smart_class_new(&type));
  evas_object_resize(root, kWidth, kHeight);
  evas_object_show(root);
  return root;
}

void ShowWindow(void*, Evas_Object*, void* object) {
  evas_object_show(static_cast<Evas_Object*>(object));
}

void MeasureWindow(const Drawing& drawing, double seconds) {
  int ready[2];
  if (pipe(ready) != 0) std::abort();
  const auto animation = StartClient(ready[0], [&] { Animate(drawing); });
  const auto neighbour =
      drawing.flooding_neighbour ? StartClient(ready[0], Flood) : std::unique_ptr<Child>();
  Canvas canvas;
  Evas_Object* root = AddRoot(canvas.evas());
  evas_object_smart_callback_add(root, "add.object", ShowWindow, nullptr);
  if (pepper_efl_compositor_create(root, kSocket) == nullptr) std::abort();
  if (write(ready[1], "rr", 2) != 2) std::abort();
  canvas.Measure(seconds);
}

// ---- the reference

/// Pixels that another process draws, as a client does, and an image that they are copied into.
struct BareCopy {
  std::uint32_t* sources[2];
  Evas_Object* image;
  int draw;  // a byte to it asks for the next picture
  unsigned number = 0;

  static Eina_Bool Tick(void* data) {
    auto* self = static_cast<BareCopy*>(data);
    shared->committed[self->number & 63] = Now();
    void* pixels = evas_object_image_data_get(self->image, EINA_TRUE);
    std::memcpy(pixels, self->sources[self->number % 2], kPixels * 4);
    evas_object_image_data_set(self->image, pixels);
    evas_object_image_data_update_add(self->image, 0, 0, kWidth, kHeight);
    ++self->number;
    if (write(self->draw, "d", 1) != 1) std::abort();
    return ECORE_CALLBACK_RENEW;
  }
};

void DrawSources(int asked, std::uint32_t* const sources[2], std::uint32_t alpha) {
  char byte = 0;
  for (unsigned number = 1; read(asked, &byte, 1) == 1; ++number) {
    std::fill_n(sources[number % 2], kPixels, alpha | ColourOf(number));
  }
}

void MeasureBareCopy(std::uint32_t alpha, double seconds) {
  BareCopy copy{};
  for (std::uint32_t*& source : copy.sources) {
    source = static_cast<std::uint32_t*>(
        mmap(nullptr, kPixels * 4, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::fill_n(source, kPixels, alpha);
  }
  int asked[2];
  if (pipe(asked) != 0) std::abort();
  copy.draw = asked[1];
  const Child drawing([&] { DrawSources(asked[0], copy.sources, alpha); });
  Canvas canvas;
  copy.image = evas_object_image_filled_add(canvas.evas());
  evas_object_image_alpha_set(copy.image, alpha != kOpaque);
  evas_object_image_size_set(copy.image, kWidth, kHeight);
  evas_object_resize(copy.image, kWidth, kHeight);
  evas_object_show(copy.image);
  ecore_animator_add(&BareCopy::Tick, &copy);
  canvas.Measure(seconds);
}

// ---- the table

struct Measurement {
  const char* name;
  std::function<void()> run;
  std::size_t reference;  // its row
  std::vector<double> processor, frames, p50, p99;
};

// In a process of its own: EFL is started once, and nothing of the last measurement is left.
void RunOnce(Measurement& measurement) {
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    measurement.run();
    // What the program leaves is of no interest, its clients are killed with this process.
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  measurement.processor.push_back(shared->processor_us_a_frame);
  measurement.frames.push_back(shared->frames_a_second);
  measurement.p50.push_back(shared->delay_p50_ms);
  measurement.p99.push_back(shared->delay_p99_ms);
}

void Print(const std::vector<Measurement>& rows) {
  std::printf("\nA window of %dx%d at %.0f frames a second\n%-44s %9s %6s %8s %8s %8s\n", kWidth,
              kHeight, kFramesPerSecond, "", "CPU us/fr", "ratio", "frames/s", "p50 ms", "p99 ms");
  for (const Measurement& row : rows) {
    const double processor = Median(row.processor);
    std::printf("%-44s %9.0f %6.2f %8.1f %8.1f %8.1f\n", row.name, processor,
                processor / Median(rows[row.reference].processor), Median(row.frames),
                Median(row.p50), Median(row.p99));
  }
  std::printf("p50, p99: from the commit (the copy) to the pixels in the program's picture\n");
}

}  // namespace

int main(int argc, char** argv) {
  const kavrel_test::TemporaryDirectory directory;
  for (const char* variable : {"XDG_RUNTIME_DIR", "KAVREL_RUNTIME_DIR", "KAVREL_EVENT_DIR"}) {
    setenv(variable, directory.path().c_str(), 1);
  }
  setenv("EINA_LOG_LEVEL", "0", 1);
  shared = static_cast<Shared*>(
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  const double seconds = argc > 1 ? std::atof(argv[1]) : 2;
  const auto window = [seconds](const Drawing& drawing) {
    return [drawing, seconds] { MeasureWindow(drawing, seconds); };
  };
  std::vector<Measurement> rows;
  rows.push_back({"bare copy", [&] { MeasureBareCopy(kOpaque, seconds); }, 0, {}, {}, {}, {}});
  rows.push_back({"window", window({}), 0, {}, {}, {}, {}});
  rows.push_back({"window with alpha, said to be opaque",
                  window({WL_SHM_FORMAT_ARGB8888, kHalfTransparent, true, false}),
                  0,
                  {},
                  {},
                  {},
                  {}});
  rows.push_back({"window beside one that floods commits",
                  window({WL_SHM_FORMAT_XRGB8888, kOpaque, false, true}),
                  0,
                  {},
                  {},
                  {},
                  {}});
  rows.push_back({"bare copy, blended",
                  [&] { MeasureBareCopy(kHalfTransparent, seconds); },
                  4,
                  {},
                  {},
                  {},
                  {}});
  rows.push_back({"window with alpha, blended",
                  window({WL_SHM_FORMAT_ARGB8888, kHalfTransparent, false, false}),
                  4,
                  {},
                  {},
                  {},
                  {}});
  for (int round = 0; round < kRounds; ++round) {
    for (Measurement& row : rows) RunOnce(row);
  }
  Print(rows);
}
