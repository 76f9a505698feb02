// Raw Wayland clients in the test's own process, served by the test's main loop.
#pragma once

#include <Ecore.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>
#include <wayland-client.h>
#include <xdg-shell-client-protocol.h>

#include "child_process.h"

namespace kavrel_pepper_test {

/// A connection to the compositor with the global objects it offers. Main thread.
class TestClient {
 public:
  /// Connects through $XDG_RUNTIME_DIR; check connected().
  explicit TestClient(const char* socket = "kavrel-compositor");
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;
  ~TestClient();

  bool connected() const { return display_ != nullptr; }
  wl_display* display() { return display_; }
  /// What ended the connection: 0 none yet, else an errno value; EPROTO with the protocol error.
  int error() const { return error_; }
  const std::string& error_interface() const { return error_interface_; }
  std::uint32_t error_code() const { return error_code_; }

  /// Ends the connection as a killed process does: nothing is destroyed first.
  void Die();
  void Flush();
  /// Runs the main loop until the compositor has handled everything sent so far; false when the
  /// connection ended instead.
  bool RoundTrip();
  bool RunUntilCutOff();
  /// Stops reading what the compositor sends, and begins again.
  void StopReading();
  void ReadAgain();

  wl_compositor* compositor = nullptr;
  wl_subcompositor* subcompositor = nullptr;
  wl_shm* shm = nullptr;
  wl_seat* seat = nullptr;
  xdg_wm_base* wm_base = nullptr;
  wl_data_device_manager* data_device_manager = nullptr;
  wl_output* output = nullptr;

 private:
  static void Global(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                     std::uint32_t version);
  static Eina_Bool Readable(void* data, Ecore_Fd_Handler* handler);
  static Eina_Bool FlushCall(void* data);
  void Read();
  void Fail();

  wl_display* display_;
  wl_registry* registry_ = nullptr;
  Ecore_Fd_Handler* fd_handler_ = nullptr;
  Ecore_Idle_Enterer* idle_enterer_ = nullptr;
  int error_ = 0;
  std::string error_interface_;
  std::uint32_t error_code_ = 0;
};

/// A shared-memory buffer.
struct TestBuffer {
  TestBuffer(TestClient& client, int width, int height, std::uint32_t colour,
             std::uint32_t format = WL_SHM_FORMAT_XRGB8888);
  TestBuffer(const TestBuffer&) = delete;
  TestBuffer& operator=(const TestBuffer&) = delete;
  ~TestBuffer();

  void Fill(int x, int y, int fill_width, int fill_height, std::uint32_t colour);

  TestClient& client;
  int width, height;
  kavrel_test::Descriptor file;
  std::size_t bytes;
  std::uint32_t* pixels;
  wl_shm_pool* pool;
  wl_buffer* buffer;
  int releases = 0;
};

/// A surface.
struct TestSurface {
  explicit TestSurface(TestClient& client);
  TestSurface(const TestSurface&) = delete;
  TestSurface& operator=(const TestSurface&) = delete;
  ~TestSurface();

  /// Attaches, damages everything and commits.
  void Show(TestBuffer& buffer);
  void Unmap();
  /// Asks for a frame callback with the next commit; `frames` counts those that came.
  void WantFrame();

  TestClient& client;
  wl_surface* surface;
  std::set<wl_callback*> waiting;
  int frames = 0;
};

/// A toplevel window: set up and committed for the first time, the configure awaited.
struct TestWindow : TestSurface {
  TestWindow(TestClient& client, const char* title, const char* app_id = "test.app");
  ~TestWindow();

  bool AwaitConfigure();
  void Commit() { wl_surface_commit(surface); }

  xdg_surface* xdg;
  xdg_toplevel* toplevel;
  int configures = 0;
  int width = 0, height = 0;
  bool active = false;
  bool closed = false;
};

}  // namespace kavrel_pepper_test
