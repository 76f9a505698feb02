#include "test_client.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "test_host.h"

namespace kavrel_pepper_test {

TestClient::TestClient(const char* socket) : display_(wl_display_connect(socket)) {
  if (display_ == nullptr) return;
  static const wl_registry_listener kListener = {&TestClient::Global,
                                                 [](void*, wl_registry*, std::uint32_t) {}};
  ReadAgain();
  idle_enterer_ = ecore_idle_enterer_before_add(&TestClient::FlushCall, this);
  registry_ = wl_display_get_registry(display_);
  wl_registry_add_listener(registry_, &kListener, this);
  RoundTrip();
}

TestClient::~TestClient() {
  Die();
  if (display_ == nullptr) return;
  for (void* proxy : std::initializer_list<void*>{compositor, subcompositor, shm, seat, wm_base,
                                                  data_device_manager, output, registry_}) {
    if (proxy != nullptr) wl_proxy_destroy(static_cast<wl_proxy*>(proxy));
  }
  wl_display_disconnect(display_);
}

void TestClient::Die() {
  StopReading();
  if (idle_enterer_ != nullptr) ecore_idle_enterer_del(std::exchange(idle_enterer_, nullptr));
  if (display_ == nullptr) return;
  Flush();
  ::shutdown(wl_display_get_fd(display_), SHUT_RDWR);
}

void TestClient::StopReading() {
  if (fd_handler_ != nullptr) ecore_main_fd_handler_del(std::exchange(fd_handler_, nullptr));
}

void TestClient::ReadAgain() {
  fd_handler_ = ecore_main_fd_handler_add(wl_display_get_fd(display_), ECORE_FD_READ,
                                          &TestClient::Readable, this, nullptr, nullptr);
}

void TestClient::Flush() {
  if (display_ != nullptr) wl_display_flush(display_);
}

Eina_Bool TestClient::FlushCall(void* data) {
  static_cast<TestClient*>(data)->Flush();
  return ECORE_CALLBACK_RENEW;
}

void TestClient::Global(void* data, wl_registry* registry, std::uint32_t name,
                        const char* interface, std::uint32_t version) {
  auto* self = static_cast<TestClient*>(data);
  const auto bind = [&](const wl_interface& wanted, auto& into) {
    if (std::strcmp(interface, wanted.name) != 0) return;
    into = static_cast<std::remove_reference_t<decltype(into)>>(
        wl_registry_bind(registry, name, &wanted, version));
  };
  bind(wl_compositor_interface, self->compositor);
  bind(wl_subcompositor_interface, self->subcompositor);
  bind(wl_shm_interface, self->shm);
  bind(wl_seat_interface, self->seat);
  bind(xdg_wm_base_interface, self->wm_base);
  bind(wl_data_device_manager_interface, self->data_device_manager);
  bind(wl_output_interface, self->output);
}

Eina_Bool TestClient::Readable(void* data, Ecore_Fd_Handler*) {
  static_cast<TestClient*>(data)->Read();
  return ECORE_CALLBACK_RENEW;
}

void TestClient::Read() {
  while (wl_display_prepare_read(display_) != 0) wl_display_dispatch_pending(display_);
  if (wl_display_read_events(display_) < 0 || wl_display_dispatch_pending(display_) < 0) Fail();
}

void TestClient::Fail() {
  error_ = wl_display_get_error(display_);
  StopReading();
  const wl_interface* interface = nullptr;
  std::uint32_t id = 0;
  if (error_ != EPROTO) return;
  error_code_ = wl_display_get_protocol_error(display_, &interface, &id);
  error_interface_ = interface != nullptr ? interface->name : "";
}

bool TestClient::RoundTrip() {
  static const wl_callback_listener kListener = {
      [](void* data, wl_callback* callback, std::uint32_t) {
        *static_cast<bool*>(data) = true;
        wl_callback_destroy(callback);
      }};
  if (error_ != 0) return false;
  bool done = false;
  wl_callback* callback = wl_display_sync(display_);
  wl_callback_add_listener(callback, &kListener, &done);
  const bool ran = RunUntil([&] { return done || error_ != 0; });
  if (!done) wl_callback_destroy(callback);
  return ran && done;
}

bool TestClient::RunUntilCutOff() {
  return RunUntil([this] { return error_ != 0; });
}

// ---- buffers

TestBuffer::TestBuffer(TestClient& client_, int width_, int height_, std::uint32_t colour,
                       std::uint32_t format)
    : client(client_),
      width(width_),
      height(height_),
      file(::memfd_create("buffer", MFD_CLOEXEC)),
      bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
  static const wl_buffer_listener kListener = {
      [](void* data, wl_buffer*) { ++static_cast<TestBuffer*>(data)->releases; }};
  if (::ftruncate(file.get(), static_cast<off_t>(bytes)) != 0) throw std::bad_alloc();
  pixels = static_cast<std::uint32_t*>(
      ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
  Fill(0, 0, width, height, colour);
  pool = wl_shm_create_pool(client.shm, file.get(), static_cast<int>(bytes));
  buffer = wl_shm_pool_create_buffer(pool, 0, width, height, width * 4, format);
  wl_buffer_add_listener(buffer, &kListener, this);
}

TestBuffer::~TestBuffer() {
  wl_buffer_destroy(buffer);
  wl_shm_pool_destroy(pool);
  ::munmap(pixels, bytes);
}

void TestBuffer::Fill(int x, int y, int fill_width, int fill_height, std::uint32_t colour) {
  for (int row = y; row < y + fill_height; ++row) {
    for (int column = x; column < x + fill_width; ++column) pixels[row * width + column] = colour;
  }
}

// ---- surfaces

TestSurface::TestSurface(TestClient& client_)
    : client(client_), surface(wl_compositor_create_surface(client.compositor)) {}

TestSurface::~TestSurface() {
  for (wl_callback* callback : waiting) wl_callback_destroy(callback);
  wl_surface_destroy(surface);
}

void TestSurface::Show(TestBuffer& buffer) {
  wl_surface_attach(surface, buffer.buffer, 0, 0);
  wl_surface_damage(surface, 0, 0, INT32_MAX, INT32_MAX);
  wl_surface_commit(surface);
}

void TestSurface::Unmap() {
  wl_surface_attach(surface, nullptr, 0, 0);
  wl_surface_commit(surface);
}

void TestSurface::WantFrame() {
  static const wl_callback_listener kListener = {
      [](void* data, wl_callback* callback, std::uint32_t) {
        auto* self = static_cast<TestSurface*>(data);
        ++self->frames;
        self->waiting.erase(callback);
        wl_callback_destroy(callback);
      }};
  wl_callback* callback = wl_surface_frame(surface);
  waiting.insert(callback);
  wl_callback_add_listener(callback, &kListener, this);
}

TestWindow::TestWindow(TestClient& client_, const char* title, const char* app_id)
    : TestSurface(client_),
      xdg(xdg_wm_base_get_xdg_surface(client.wm_base, surface)),
      toplevel(xdg_surface_get_toplevel(xdg)) {
  static const xdg_surface_listener kSurface = {
      [](void* data, xdg_surface* object, std::uint32_t serial) {
        ++static_cast<TestWindow*>(data)->configures;
        xdg_surface_ack_configure(object, serial);
      }};
  static const xdg_toplevel_listener kToplevel = {
      .configure =
          [](void* data, xdg_toplevel*, int width_, int height_, wl_array* states) {
            auto* self = static_cast<TestWindow*>(data);
            self->width = width_;
            self->height = height_;
            self->active = false;
            const auto* first = static_cast<const std::uint32_t*>(states->data);
            for (std::size_t i = 0; i < states->size / sizeof *first; ++i) {
              self->active = self->active || first[i] == XDG_TOPLEVEL_STATE_ACTIVATED;
            }
          },
      .close = [](void* data, xdg_toplevel*) { static_cast<TestWindow*>(data)->closed = true; },
      .configure_bounds = nullptr,
      .wm_capabilities = nullptr,
  };
  xdg_surface_add_listener(xdg, &kSurface, this);
  xdg_toplevel_add_listener(toplevel, &kToplevel, this);
  if (title != nullptr) xdg_toplevel_set_title(toplevel, title);
  if (app_id != nullptr) xdg_toplevel_set_app_id(toplevel, app_id);
  Commit();
  AwaitConfigure();
}

TestWindow::~TestWindow() {
  xdg_toplevel_destroy(toplevel);
  xdg_surface_destroy(xdg);
}

bool TestWindow::AwaitConfigure() {
  const int before = configures;
  return RunUntil([&] { return configures > before || client.error() != 0; });
}

}  // namespace kavrel_pepper_test
