#include "server.h"

#include <directories.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <xdg-decoration-unstable-v1-server-protocol.h>
#include <xdg-shell-server-protocol.h>

#include "input_events.h"
#include "log.h"
#include "quotas.h"
#include "region.h"
#include "small_globals.h"
#include "subsurface.h"
#include "toplevel.h"
#include "xdg_shell.h"

namespace kavrel_pepper {
namespace {

// Clients look for their compositor below XDG_RUNTIME_DIR and nowhere else.
bool IsUsableRuntimeDirectory(const std::string& path) {
  struct stat status {};
  if (path.empty() || path.front() != '/') {
    LogError("XDG_RUNTIME_DIR is \"%s\"; the path of a directory is needed",
             Printable(path).c_str());
    return false;
  }
  if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    LogError("XDG_RUNTIME_DIR %s is no directory", path.c_str());
    return false;
  }
  const bool ours = status.st_uid == ::geteuid() || status.st_uid == 0;
  if (ours && (status.st_mode & S_IWOTH) == 0) return true;
  LogError(
      "XDG_RUNTIME_DIR %s: owner %u, mode %o; it must be this user's or root's, and others "
      "must not write to it",
      path.c_str(), status.st_uid, status.st_mode & 07777U);
  return false;
}

/// wl_compositor of one client. Main thread.
class CompositorObject {
 public:
  CompositorObject(Server& server, wl_resource* resource) : server_(server), resource_(resource) {}

  void MakeSurface(std::uint32_t id) {
    kavrel_pepper::CreateSurface(server_, wl_resource_get_client(resource_),
                                 wl_resource_get_version(resource_), id);
  }
  void MakeRegion(std::uint32_t id) {
    kavrel_pepper::CreateRegion(wl_resource_get_client(resource_),
                                wl_resource_get_version(resource_), id);
  }

 private:
  Server& server_;
  wl_resource* resource_;
};

constexpr struct wl_compositor_interface kCompositor = {
    .create_surface = Request<&CompositorObject::MakeSurface>,
    .create_region = Request<&CompositorObject::MakeRegion>,
};

void BindCompositor(wl_client* client, void* server, std::uint32_t version, std::uint32_t id) {
  wl_resource* resource =
      MakeResource(client, &wl_compositor_interface, static_cast<int>(version), id);
  if (resource == nullptr) return;
  try {
    GiveToResource(std::make_unique<CompositorObject>(*static_cast<Server*>(server), resource),
                   resource, &kCompositor);
  } catch (...) {
    wl_client_post_no_memory(client);
  }
}

struct Global {
  const wl_interface* interface;
  int version;
  wl_global_bind_func_t bind;
};

const Global kGlobals[] = {
    {&wl_compositor_interface, 4, BindCompositor},
    {&wl_subcompositor_interface, 1, BindSubcompositor},
    {&wl_output_interface, 3, &Output::Bind},
    {&wl_seat_interface, 5, &Seat::Bind},
    {&xdg_wm_base_interface, 2, BindXdgShell},
    {&wl_data_device_manager_interface, 3, BindDataDeviceManager},
    {&zxdg_decoration_manager_v1_interface, 1, BindDecorationManager},
};

}  // namespace

/// What is known of an admitted client. Main thread.
struct Server::ClientRecord {
  ClientRecord(Server* server_, wl_client* client)
      : server(server_), ledger(std::make_shared<Ledger>(client)) {
    wl_client_add_destroy_listener(client, gone.get());
  }

  void Gone(void* client) {
    gone.Disconnect();
    ledger->ClientGone();
    server->clients_.erase(static_cast<wl_client*>(client));  // destroys this record
  }

  Server* server;
  std::shared_ptr<Ledger> ledger;
  Listener<ClientRecord, &ClientRecord::Gone> gone{this};
};

std::unique_ptr<Server> Server::Create(Evas_Object* root, const std::string& socket_name) {
  CatchWaylandLog();
  std::unique_ptr<Server> server(new Server(root));
  if (server->display_ == nullptr || !server->Listen(socket_name)) return nullptr;
  server->seat_ = std::make_unique<Seat>(server->display_.get());
  if (!server->MakeGlobals() || !server->JoinLoop()) {
    LogError("compositor \"%s\": out of memory", socket_name.c_str());
    return nullptr;
  }
  server->WatchRoot();
  return server;
}

Server::Server(Evas_Object* root)
    : root_(root),
      canvas_(evas_object_evas_get(root)),
      announcer_(root),
      display_(wl_display_create()),
      focus_(*this) {}

bool Server::Listen(const std::string& socket_name) {
  const std::string directory = kavrel_platform::Environment("XDG_RUNTIME_DIR");
  if (!IsUsableRuntimeDirectory(directory)) return false;
  const std::string path = directory + '/' + socket_name;
  if (wl_display_add_socket(display_.get(), socket_name.c_str()) != 0) {
    LogError(
        "no compositor on %s: %s", path.c_str(),
        errno == EAGAIN || errno == EWOULDBLOCK ? "another one is running" : std::strerror(errno));
    return false;
  }
  admission_.ProtectSocket(path);
  wl_display_add_client_created_listener(display_.get(), client_created_.get());
  return true;
}

bool Server::MakeGlobals() {
  for (const Global& global : kGlobals) {
    if (wl_global_create(display_.get(), global.interface, global.version, this, global.bind) ==
        nullptr) {
      return false;
    }
  }
  return wl_display_init_shm(display_.get()) == 0;
}

bool Server::JoinLoop() {
  wl_event_loop* loop = wl_display_get_event_loop(display_.get());
  fd_handler_ = ecore_main_fd_handler_add(wl_event_loop_get_fd(loop), ECORE_FD_READ,
                                          &Server::DispatchCall, this, nullptr, nullptr);
  idle_enterer_ = ecore_idle_enterer_before_add(&Server::FlushCall, this);
  return fd_handler_ != nullptr && idle_enterer_ != nullptr;
}

void Server::WatchRoot() {
  root_hooks_.Watch(root_);
  root_hooks_.Add<&Server::RootResized>(EVAS_CALLBACK_RESIZE, this);
  WatchKeys(root_hooks_, this);
  evas_event_callback_add(canvas_, EVAS_CALLBACK_RENDER_POST, &Server::RenderedCall, this);
  evas_event_callback_add(canvas_, EVAS_CALLBACK_CANVAS_FOCUS_OUT, &Server::FocusLostCall, this);
  RootResized(nullptr);
  // A canvas without a window system has no focus, and keys fed to it would go nowhere.
  if (evas_focus_get(canvas_) == nullptr) evas_object_focus_set(root_, EINA_TRUE);
}

void Server::LeaveLoop() {
  if (fd_handler_ == nullptr) return;
  root_hooks_.Clear();
  evas_event_callback_del_full(canvas_, EVAS_CALLBACK_RENDER_POST, &Server::RenderedCall, this);
  evas_event_callback_del_full(canvas_, EVAS_CALLBACK_CANVAS_FOCUS_OUT, &Server::FocusLostCall,
                               this);
  ecore_main_fd_handler_del(std::exchange(fd_handler_, nullptr));
  ecore_idle_enterer_del(std::exchange(idle_enterer_, nullptr));
}

void Server::End(std::unique_ptr<Server> server) {
  server->ending_ = true;
  server->LeaveLoop();
  for (Toplevel* window : std::vector<Toplevel*>(server->windows_)) window->ServerEnds();
  server->announcer_.Finish();
  if (server->dispatching_) static_cast<void>(server.release());  // Dispatch deletes it
}

Server::~Server() {
  LeaveLoop();
  if (display_ != nullptr) wl_display_destroy_clients(display_.get());
}

// ---- loop

Eina_Bool Server::DispatchCall(void* data, Ecore_Fd_Handler*) {
  try {
    static_cast<Server*>(data)->Dispatch();
  } catch (...) {
    LogError("out of memory while clients were served");
  }
  return ECORE_CALLBACK_RENEW;
}

// A callback of the program may run a main loop of its own; libwayland cannot be entered twice.
void Server::Dispatch() {
  if (dispatching_) return;
  dispatching_ = true;
  wl_event_loop_dispatch(wl_display_get_event_loop(display_.get()), 0);
  dispatching_ = false;
  if (ending_) {
    delete this;
    return;
  }
  CutOffRefused();
  Flush();
}

void Server::Flush() {
  wl_display_flush_clients(display_.get());
}

Eina_Bool Server::FlushCall(void* data) {
  auto* self = static_cast<Server*>(data);
  if (!self->dispatching_) self->Flush();
  return ECORE_CALLBACK_RENEW;
}

void Server::RenderedCall(void* data, Evas*, void*) {
  try {
    static_cast<Server*>(data)->Rendered();
  } catch (...) {
    LogError("out of memory after rendering");
  }
}

// Clients hear of the frame's end at once: at the end of the loop's turn it would be too late for
// the next frame.
void Server::Rendered() {
  if (frames_.End() && !dispatching_) Flush();
}

void Server::FocusLostCall(void* data, Evas*, void*) {
  static_cast<Server*>(data)->seat().keyboard().ReleaseAll();
}

// ---- clients

void Server::ClientCreated(void* data) {
  auto* client = static_cast<wl_client*>(data);
  if (!admission_.Admits(client)) {
    refused_.push_back(client);
    wl_client_post_implementation_error(client, "not admitted");
    return;
  }
  if (clients_.size() >= static_cast<std::size_t>(kMaxClients)) {
    refused_.push_back(client);
    LogWarning("client refused: there are %d already", kMaxClients);
    wl_client_post_implementation_error(client, "more than %d clients", kMaxClients);
    return;
  }
  clients_[client] = std::make_unique<ClientRecord>(this, client);
}

// Not from within the signal that tells of the client: libwayland still uses it afterwards. A
// client that is refused never gets to its first request, so nothing else can have destroyed it.
void Server::CutOffRefused() {
  for (wl_client* client : std::exchange(refused_, {})) wl_client_destroy(client);
}

std::shared_ptr<Ledger> Server::LedgerOf(wl_client* client) {
  const auto record = clients_.find(client);
  return record != clients_.end() ? record->second->ledger : nullptr;
}

// ---- windows

Box Server::RootBox() const {
  Box box;
  evas_object_geometry_get(root_, &box.x, &box.y, &box.width, &box.height);
  return box;
}

void Server::RootResized(void*) {
  const Box box = RootBox();
  output_.Resize(std::max(1, box.width), std::max(1, box.height));
  for (Toplevel* window : windows_) window->RootResized();
}

void Server::AddWindow(Toplevel* window) {
  windows_.push_back(window);
  focus_.Add(window);
}

void Server::RemoveWindow(Toplevel* window) {
  std::erase(windows_, window);
  focus_.Remove(window);
}

void Server::ForgetSurface(Surface* surface) {
  frames_.Forget(surface);
  seat_->Forget(surface);
}

}  // namespace kavrel_pepper
