// One and four animating windows of 1280x720 inside a program that composes without a display,
// beside a bare copy of the same pixels into Evas images at the same rate, and beside Weston with
// the same clients: processor time of a frame, and the time from a client's commit to its pixels in
// the program's picture.
//
//   window_bench [SECONDS]   of each measurement of each round (0.6)
#include <Ecore.h>
#include <Ecore_Evas.h>
#include <pepper-efl.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "measure.h"
#include "shared.h"
#include "table.h"
#include "temporary_directory.h"
#include "test_client.h"
#include "weston.h"

using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::Kind;
using kavrel_bench::Median;
using kavrel_bench::Percentile;
using kavrel_bench::ProcessorMicroseconds;
using kavrel_bench::Row;

namespace {

constexpr int kWidth = 1280, kHeight = 720;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
constexpr int kRounds = 7;
constexpr int kMostWindows = 4;
constexpr double kFramesPerSecond = 60;
constexpr double kWarmUpSeconds = 0.3;
constexpr char kSocket[] = "kavrel-compositor";
constexpr std::uint32_t kHalfTransparent = 0x80000000, kOpaque = 0xff000000;
constexpr std::uint32_t kNumberMask = 0x3f3f3f;  // below half of each channel, as premultiplied
constexpr std::uint32_t kNumbers = 64;

double Now() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

/// What a measurement leaves for the process that prints it, and the processes for each other.
struct Shared {
  double processor_us_a_frame;
  double frames_a_second;
  double delay_p50_ms, delay_p99_ms;
  volatile double committed[kMostWindows][kNumbers];  // when, by the frame's number
  volatile unsigned frames[kMostWindows];             // that clients were told of
  volatile double told[kMostWindows][kNumbers];       // how long after the commit, in seconds
};
Shared* shared;

/// How the window's client draws.
struct Drawing {
  std::uint32_t format = WL_SHM_FORMAT_XRGB8888;
  std::uint32_t alpha = kOpaque;
  bool says_opaque = false;
  bool flooding_neighbour = false;
  int windows = 1;  // beside each other
};

/// So many windows beside each other, and below each other when there are more than two.
struct Picture {
  explicit Picture(int windows)
      : columns(windows > 1 ? 2 : 1),
        width(kWidth * columns),
        height(kHeight * (windows / columns)) {}
  /// Where the last pixel of a window is.
  std::size_t LastPixel(int window) const {
    const int row = (window / columns + 1) * kHeight - 1;
    const int column = (window % columns + 1) * kWidth - 1;
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
           static_cast<std::size_t>(column);
  }
  int windows() const { return width * height / (kWidth * kHeight); }

  int columns, width, height;
};

// The number of a frame is its colour: what the picture shows tells which commit it is, and whose.
std::uint32_t ColourOf(int window, unsigned number) {
  const auto client = static_cast<std::uint32_t>(window);
  return (number % kNumbers) | ((number % kNumbers) << 8) | (client << 16);
}

// ---- clients

// Draws a frame each time it is told to.
void Animate(const Drawing& drawing, int self, const char* socket) {
  ecore_init();
  kavrel_pepper_test::TestClient client(socket);
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
    buffer.Fill(0, 0, kWidth, kHeight, drawing.alpha | ColourOf(self, number));
    window.WantFrame();
    const double committed = Now();
    shared->committed[self][number % kNumbers] = committed;
    window.Show(buffer);
    client.Flush();
    const int frames = window.frames;
    while (window.frames == frames && client.error() == 0) {
      ecore_main_loop_iterate_may_block(EINA_TRUE);
    }
    shared->told[self][number % kNumbers] = Now() - committed;
    shared->frames[self] = number + 1;
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
  explicit Canvas(const Picture& size)
      : size_(size), window_((Start(), ecore_evas_buffer_new(size.width, size.height))) {
    ecore_evas_show(window_);
    Evas_Object* background = evas_object_rectangle_add(evas());
    evas_object_color_set(background, 0, 0, 0, 255);
    evas_object_layer_set(background, EVAS_LAYER_MIN);
    evas_object_resize(background, size.width, size.height);
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
    shared->frames_a_second = frames_ / (Now() - start) / size_.windows();
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

  static void Rendered(void* data, Evas*, void*) {
    auto* self = static_cast<Canvas*>(data);
    for (int window = 0; window < self->size_.windows(); ++window) self->LookAt(window);
  }

  // Counts the frames that show something new.
  void LookAt(int window) {
    const std::uint32_t shown = pixels_[size_.LastPixel(window)] & kNumberMask;
    if (std::exchange(shown_[window], shown) == shown) return;
    ++frames_;
    delays_.push_back((Now() - shared->committed[(shown >> 16) % kMostWindows][shown % kNumbers]) *
                      1e3);
  }

  Picture size_;
  Ecore_Evas* window_;
  const std::uint32_t* pixels_ = nullptr;
  std::uint32_t shown_[kMostWindows] = {};
  int frames_ = 0;
  std::vector<double> delays_;
};

Evas_Object* AddRoot(Evas* canvas, const Picture& size) {
  static const Evas_Smart_Class type = EVAS_SMART_CLASS_INIT_NAME_VERSION("root window");
  Evas_Object* root = evas_object_smart_add(canvas, evas_smart_class_new(&type));
  evas_object_resize(root, size.width, size.height);
  evas_object_show(root);
  return root;
}

/// Puts the windows that come beside each other.
struct Arrangement {
  Picture size;
  int shown = 0;

  void Put(Evas_Object* object) {
    const int place = shown++;
    evas_object_geometry_set(object, place % size.columns * kWidth, place / size.columns * kHeight,
                             kWidth, kHeight);
    evas_object_show(object);
  }
  static void Show(void* self, Evas_Object*, void* object) {
    static_cast<Arrangement*>(self)->Put(static_cast<Evas_Object*>(object));
  }
};

using Clients = std::vector<std::unique_ptr<Child>>;

// Clients that draw once a byte for each has come.
Clients StartClients(int ready, const Drawing& drawing, const char* socket) {
  Clients clients;
  for (int window = 0; window < drawing.windows; ++window) {
    clients.push_back(StartClient(ready, [=] { Animate(drawing, window, socket); }));
  }
  if (drawing.flooding_neighbour) clients.push_back(StartClient(ready, Flood));
  return clients;
}

void LetDraw(int ready, const Clients& clients) {
  const std::string bytes(clients.size(), 'r');
  if (write(ready, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
}

void MeasureWindows(const Drawing& drawing, double seconds) {
  int ready[2];
  if (pipe(ready) != 0) std::abort();
  const Clients clients = StartClients(ready[0], drawing, kSocket);
  Arrangement arrangement{Picture(drawing.windows)};
  Canvas canvas(arrangement.size);
  Evas_Object* root = AddRoot(canvas.evas(), arrangement.size);
  evas_object_smart_callback_add(root, "add.object", &Arrangement::Show, &arrangement);
  if (pepper_efl_compositor_create(root, kSocket) == nullptr) std::abort();
  LetDraw(ready[1], clients);
  canvas.Measure(seconds);
}

// ---- Weston, which is a program of its own

unsigned AllFrames() {
  unsigned sum = 0;
  for (const volatile unsigned& frames : shared->frames) sum += frames;
  return sum;
}

// What the clients saw: Weston tells of a frame when it has composed it.
void MeasureWeston(const Drawing& drawing, double seconds) {
  const Picture size(drawing.windows);
  const kavrel_bench::Weston weston(size.width, size.height);
  int ready[2];
  if (pipe(ready) != 0) std::abort();
  const Clients clients = StartClients(ready[0], drawing, weston.socket());
  LetDraw(ready[1], clients);
  const auto sleep_for = [](double time) { usleep(static_cast<unsigned>(time * 1e6)); };
  while (shared->frames[drawing.windows - 1] == 0) sleep_for(0.01);
  sleep_for(kWarmUpSeconds);
  const unsigned before = AllFrames();
  const double processor = ProcessorMicroseconds(weston.pid()), start = Now();
  sleep_for(seconds);
  const auto frames = static_cast<double>(AllFrames() - before);
  shared->processor_us_a_frame =
      (ProcessorMicroseconds(weston.pid()) - processor) / std::max(1.0, frames);
  shared->frames_a_second = frames / (Now() - start) / drawing.windows;
  std::vector<double> delays;
  for (const volatile double& told : shared->told[0]) {
    if (told > 0) delays.push_back(told * 1e3);
  }
  shared->delay_p50_ms = Percentile(delays, 50);
  shared->delay_p99_ms = Percentile(delays, 99);
}

// ---- the reference

/// Pixels that another process draws, as a client does, and an image that they are copied into.
struct BareCopy {
  BareCopy(int number_of_window, std::uint32_t alpha) : window(number_of_window) {
    for (std::uint32_t*& source : sources) {
      source = kavrel_bench::MakeShared<std::array<std::uint32_t, kPixels>>()->data();
      std::fill_n(source, kPixels, alpha | ColourOf(window, 0));
    }
    if (pipe(asked) != 0) std::abort();
    drawing = std::make_unique<Child>([this, alpha] { Draw(alpha); });
  }

  void Draw(std::uint32_t alpha) const {
    char byte = 0;
    for (unsigned next = 1; read(asked[0], &byte, 1) == 1; ++next) {
      std::fill_n(sources[next % 2], kPixels, alpha | ColourOf(window, next));
    }
  }

  void AddImage(Evas* canvas, const Picture& size, std::uint32_t alpha) {
    image = evas_object_image_filled_add(canvas);
    evas_object_image_alpha_set(image, alpha != kOpaque);
    evas_object_image_size_set(image, kWidth, kHeight);
    evas_object_geometry_set(image, window % size.columns * kWidth, window / size.columns * kHeight,
                             kWidth, kHeight);
    evas_object_show(image);
  }

  static Eina_Bool Tick(void* data) {
    auto* self = static_cast<BareCopy*>(data);
    shared->committed[self->window][self->number % kNumbers] = Now();
    void* pixels = evas_object_image_data_get(self->image, EINA_TRUE);
    std::memcpy(pixels, self->sources[self->number % 2], kPixels * 4);
    evas_object_image_data_set(self->image, pixels);
    evas_object_image_data_update_add(self->image, 0, 0, kWidth, kHeight);
    ++self->number;
    if (write(self->asked[1], "d", 1) != 1) std::abort();
    return ECORE_CALLBACK_RENEW;
  }

  int window;
  std::uint32_t* sources[2];
  int asked[2];  // a byte asks for the next picture
  std::unique_ptr<Child> drawing;
  Evas_Object* image = nullptr;
  unsigned number = 0;
};

void MeasureBareCopies(int windows, std::uint32_t alpha, double seconds) {
  std::vector<std::unique_ptr<BareCopy>> copies;
  copies.reserve(windows);
  for (int window = 0; window < windows; ++window) {
    copies.push_back(std::make_unique<BareCopy>(window, alpha));
  }
  const Picture size(windows);
  Canvas canvas(size);
  for (const auto& copy : copies) {
    copy->AddImage(canvas.evas(), size, alpha);
    ecore_animator_add(&BareCopy::Tick, copy.get());
  }
  canvas.Measure(seconds);
}

// ---- the table

struct Measurement {
  std::string name;
  Kind kind;
  std::function<void()> run;
  std::size_t reference;  // its row
  std::string missing = {};
  std::vector<double> processor = {}, frames = {}, p50 = {}, p99 = {};
};

// In a process of its own: EFL is started once, and nothing of the last measurement is left.
void RunOnce(Measurement& measurement) {
  if (!measurement.missing.empty()) return;
  std::memset(static_cast<void*>(shared), 0, sizeof *shared);
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      measurement.run();
    } catch (const std::exception& error) {
      (void)std::fprintf(stderr, "%s: %s\n", measurement.name.c_str(), error.what());
      _exit(1);
    }
    // What the program leaves is of no interest, its clients are killed with this process.
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) measurement.missing = "its process failed";
  measurement.processor.push_back(shared->processor_us_a_frame);
  measurement.frames.push_back(shared->frames_a_second);
  measurement.p50.push_back(shared->delay_p50_ms);
  measurement.p99.push_back(shared->delay_p99_ms);
}

void Print(const std::vector<Measurement>& rows) {
  std::printf("\nWindows of %dx%d at %.0f frames a second\n%-44s %9s %6s %8s %8s %8s\n", kWidth,
              kHeight, kFramesPerSecond, "", "CPU us/fr", "ratio", "frames/s", "p50 ms", "p99 ms");
  for (const Measurement& row : rows) {
    if (!row.missing.empty()) {
      std::printf("%-44s not measured: %s\n", row.name.c_str(), row.missing.c_str());
      continue;
    }
    const double processor = Median(row.processor);
    std::printf("%-44s %9.0f %6.2f %8.1f %8.1f %8.1f\n", row.name.c_str(), processor,
                processor / Median(rows[row.reference].processor), Median(row.frames),
                Median(row.p50), Median(row.p99));
  }
  std::printf(
      "p50, p99: from the commit (the copy) to the pixels in the program's picture;\n"
      "Weston's: until it tells the client that it has composed them\n");
}

void Record(const std::vector<Measurement>& measured) {
  std::vector<Row> processor;
  std::vector<Row> frames;
  std::vector<Row> delays;
  for (const Measurement& one : measured) {
    Row row{one.name, {}, one.kind};
    row.missing = one.missing;
    row.reference = measured[one.reference].name;
    const auto add = [&row](std::vector<Row>& rows, const std::vector<double>& p50,
                            const std::vector<double>& p99) {
      rows.push_back(row);
      rows.back().p50 = p50;
      rows.back().p99 = p99;
    };
    add(processor, one.processor, {});
    add(frames, one.frames, {});
    add(delays, one.p50, one.p99);
  }
  kavrel_bench::RecordRows("Windows of 1280x720: processor time of the composer for a frame of one",
                           "us", processor);
  kavrel_bench::RecordRows("Windows of 1280x720: frames of each", "a second", frames);
  kavrel_bench::RecordRows("Windows of 1280x720: from commit to composed pixels", "ms", delays);
}

std::vector<Measurement> Rows(double seconds) {
  const auto bare = [seconds](int windows, std::uint32_t alpha) {
    return [=] { MeasureBareCopies(windows, alpha, seconds); };
  };
  const auto ours = [seconds](const Drawing& drawing) {
    return [=] { MeasureWindows(drawing, seconds); };
  };
  const auto weston = [seconds](int windows) {
    return [=] { MeasureWeston({.windows = windows}, seconds); };
  };
  const Drawing said_opaque{WL_SHM_FORMAT_ARGB8888, kHalfTransparent, true};
  const Drawing blended{WL_SHM_FORMAT_ARGB8888, kHalfTransparent};
  std::vector<Measurement> rows = {
      {"bare copy", Kind::kLimit, bare(1, kOpaque), 0},
      {"window", Kind::kOurs, ours({}), 0},
      {"window in Weston", Kind::kPeer, weston(1), 0},
      {"4 bare copies", Kind::kLimit, bare(4, kOpaque), 3},
      {"4 windows", Kind::kOurs, ours({.windows = 4}), 3},
      {"4 windows in Weston", Kind::kPeer, weston(4), 3},
      {"window with alpha, said to be opaque", Kind::kOurs, ours(said_opaque), 0},
      {"window beside one that floods commits", Kind::kOurs, ours({.flooding_neighbour = true}), 0},
      {"bare copy, blended", Kind::kLimit, bare(1, kHalfTransparent), 8},
      {"window with alpha, blended", Kind::kOurs, ours(blended), 8}};
  for (Measurement& row : rows) {
    if (row.kind == Kind::kPeer) row.missing = kavrel_bench::Weston::Missing();
  }
  return rows;
}

}  // namespace

int main(int argc, char** argv) {
  const kavrel_test::TemporaryDirectory directory;
  for (const char* variable : {"XDG_RUNTIME_DIR", "KAVREL_RUNTIME_DIR", "KAVREL_EVENT_DIR"}) {
    setenv(variable, directory.path().c_str(), 1);
  }
  setenv("EINA_LOG_LEVEL", "0", 1);
  shared = kavrel_bench::MakeShared<Shared>();
  std::vector<Measurement> rows = Rows(argc > 1 ? std::stod(argv[1]) : 0.6);
  for (int round = 0; round < kavrel_bench::Rounds(kRounds); ++round) {
    for (Measurement& row : rows) RunOnce(row);
  }
  Print(rows);
  Record(rows);
}
