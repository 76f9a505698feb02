// The compositor: display, clients, and the glue between the loops of Wayland and EFL.
#pragma once

#include <Ecore.h>
#include <Evas.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>
#include <wayland-server.h>

#include "admission.h"
#include "announcer.h"
#include "evas_hooks.h"
#include "frame_clock.h"
#include "ledger.h"
#include "output.h"
#include "seat.h"
#include "window_focus.h"
#include "wire.h"

namespace kavrel_pepper {

class Toplevel;

/// One running compositor. Main thread.
class Server {
 public:
  /// Null, with a line in the log, when it cannot run.
  static std::unique_ptr<Server> Create(Evas_Object* root, const std::string& socket_name);

  /// Use End: the program's callbacks may ask for the end while clients are being served.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Announces the end of all windows and ends, at the latest when the current requests have been
  /// handled.
  static void End(std::unique_ptr<Server> server);

  Evas* canvas() { return canvas_; }
  FrameClock& frames() { return frames_; }
  Announcer& announcer() { return announcer_; }
  WindowFocus& focus() { return focus_; }
  Seat& seat() { return *seat_; }
  Output& output() { return output_; }
  bool is_ending() const { return ending_; }

  std::shared_ptr<Ledger> LedgerOf(wl_client* client);
  std::uint32_t NextSerial() { return wl_display_next_serial(display_.get()); }
  Box RootBox() const;
  void AddWindow(Toplevel* window);
  void RemoveWindow(Toplevel* window);
  void ForgetSurface(Surface* surface);
  void ShutOut(wl_client* client) { admission_.ShutOut(client); }

 private:
  struct FreeDisplay {
    void operator()(wl_display* display) const { wl_display_destroy(display); }
  };
  struct ClientRecord;

  explicit Server(Evas_Object* root);
  bool Listen(const std::string& socket_name);
  bool MakeGlobals();
  bool JoinLoop();
  void WatchRoot();
  void LeaveLoop();

  void Dispatch();
  void Flush();
  void ClientCreated(void* client);
  void RootResized(void*);
  void Rendered();
  void CutOffRefused();

  static Eina_Bool DispatchCall(void* data, Ecore_Fd_Handler* handler);
  static Eina_Bool FlushCall(void* data);
  static void RenderedCall(void* data, Evas* canvas, void* event);
  static void FocusLostCall(void* data, Evas* canvas, void* event);

  Evas_Object* root_;
  Evas* canvas_;
  Admission admission_;
  FrameClock frames_;
  Announcer announcer_;
  std::unique_ptr<wl_display, FreeDisplay> display_;
  Output output_;
  std::unique_ptr<Seat> seat_;
  WindowFocus focus_;
  std::unordered_map<wl_client*, std::unique_ptr<ClientRecord>> clients_;
  std::vector<wl_client*> refused_;
  std::vector<Toplevel*> windows_;
  Listener<Server, &Server::ClientCreated> client_created_{this};
  ObjectHooks root_hooks_;
  Ecore_Fd_Handler* fd_handler_ = nullptr;
  Ecore_Idle_Enterer* idle_enterer_ = nullptr;
  bool dispatching_ = false;
  bool ending_ = false;
};

}  // namespace kavrel_pepper
