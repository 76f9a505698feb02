#include "toplevel.h"

#include <algorithm>
#include <utility>
#include <xdg-shell-server-protocol.h>

#include "popup.h"
#include "quotas.h"
#include "server.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr struct xdg_toplevel_interface kToplevel = {
    .destroy = DestroyResource,
    .set_parent = Request<&Toplevel::SetParent>,
    .set_title = Request<&Toplevel::SetTitle>,
    .set_app_id = Request<&Toplevel::SetAppId>,
    .show_window_menu = IgnoreRequest<wl_resource*, std::uint32_t, int, int>,
    .move = IgnoreRequest<wl_resource*, std::uint32_t>,
    .resize = IgnoreRequest<wl_resource*, std::uint32_t, std::uint32_t>,
    .set_max_size = Request<&Toplevel::SetMaxSize>,
    .set_min_size = Request<&Toplevel::SetMinSize>,
    .set_maximized = Request<&Toplevel::StateAsked>,
    .unset_maximized = Request<&Toplevel::StateAsked>,
    .set_fullscreen = [](wl_client* client, wl_resource* resource,
                         wl_resource*) { Request<&Toplevel::StateAsked>(client, resource); },
    .unset_fullscreen = Request<&Toplevel::StateAsked>,
    .set_minimized = IgnoreRequest<>,
};

/// Marks the time in which changes of the object are our own.
class Placing {
 public:
  explicit Placing(bool& flag) : flag_(flag) { flag_ = true; }
  Placing(const Placing&) = delete;
  Placing& operator=(const Placing&) = delete;
  ~Placing() { flag_ = false; }

 private:
  bool& flag_;
};

// Cuts between characters, so that a valid text stays valid.
std::string Cut(const char* text) {
  std::string cut = text;
  if (cut.size() <= kMaxTextBytes) return cut;
  std::size_t end = kMaxTextBytes;
  while (end > kMaxTextBytes - 4 && (static_cast<unsigned char>(cut[end]) & 0xc0) == 0x80) --end;
  cut.resize(end);
  return cut;
}

const std::string* AddressOf(const std::optional<std::string>& text) {
  return text ? &*text : nullptr;
}

}  // namespace

Toplevel* CreateToplevel(XdgSurface& xdg_surface, std::uint32_t id) {
  wl_resource* resource = MakeSibling(xdg_surface.resource(), &xdg_toplevel_interface, id);
  if (resource == nullptr) return nullptr;
  return GiveToResource(std::make_unique<Toplevel>(resource, xdg_surface), resource, &kToplevel);
}

Toplevel::Toplevel(wl_resource* resource, XdgSurface& xdg_surface)
    : resource_(resource), xdg_surface_(&xdg_surface) {}

Toplevel::~Toplevel() {
  Withdraw();
  if (xdg_surface_ != nullptr) xdg_surface_->RoleGone();
}

void Toplevel::XdgSurfaceGone() {
  Withdraw();
  xdg_surface_ = nullptr;
}

Surface* Toplevel::surface() {
  return xdg_surface_ != nullptr ? xdg_surface_->surface() : nullptr;
}

Server& Toplevel::server() {
  return surface()->server();
}

Evas_Object* Toplevel::object() {
  return surface() != nullptr ? surface()->object() : nullptr;
}

bool Toplevel::IsVisible() {
  return object() != nullptr && evas_object_visible_get(object());
}

int Toplevel::layer() {
  return object() != nullptr ? evas_object_layer_get(object()) : 0;
}

// ---- configure

void Toplevel::SendConfigure() {
  const Box size = wished_.value_or(server().RootBox());
  const std::uint32_t states[] = {XDG_TOPLEVEL_STATE_FULLSCREEN, XDG_TOPLEVEL_STATE_ACTIVATED};
  wl_array sent = {.size = (active_ ? 2U : 1U) * sizeof states[0],
                   .alloc = 0,
                   .data = const_cast<std::uint32_t*>(states)};
  xdg_toplevel_send_configure(resource_, std::max(1, size.width), std::max(1, size.height), &sent);
}

void Toplevel::SetActive(bool active) {
  if (std::exchange(active_, active) != active && xdg_surface_ != nullptr) {
    xdg_surface_->WantConfigure();
  }
}

void Toplevel::RootResized() {
  if (!wished_ && xdg_surface_ != nullptr) xdg_surface_->WantConfigure();
}

// Every window fills what the program gives it; a client that asks for a state learns that again.
void Toplevel::StateAsked() {
  if (xdg_surface_ != nullptr) xdg_surface_->WantConfigure();
}

// ---- content

void Toplevel::Committed() {
  if (object() == nullptr) return;
  if (!mapped_) {
    Map();
  } else {
    FollowContent();
  }
}

void Toplevel::Map() {
  mapped_ = true;
  content_ = xdg_surface_->Geometry();
  evas_object_resize(object(), content_.width, content_.height);
  ObjectHooks& hooks = surface()->picture()->hooks();
  hooks.Add<&Toplevel::ObjectMoved>(EVAS_CALLBACK_MOVE, this);
  hooks.Add<&Toplevel::ObjectMoved>(EVAS_CALLBACK_RESTACK, this);
  hooks.Add<&Toplevel::ObjectResized>(EVAS_CALLBACK_RESIZE, this);
  hooks.Add<&Toplevel::ObjectShown>(EVAS_CALLBACK_SHOW, this);
  hooks.Add<&Toplevel::ObjectHidden>(EVAS_CALLBACK_HIDE, this);
  hooks.Add<&Toplevel::ObjectFocused>(EVAS_CALLBACK_FOCUS_IN, this);
  server().AddWindow(this);
  LayOut();
  Announce();
}

// A window that the program never resized has the size of its content.
void Toplevel::FollowContent() {
  const Box now = xdg_surface_->Geometry();
  const Box before = std::exchange(content_, now);
  const bool resized = now.width != before.width || now.height != before.height;
  if (resized && !wished_) {
    const Placing placing(placing_);
    evas_object_resize(object(), now.width, now.height);
  }
  if (resized || now.x != before.x || now.y != before.y) LayOut();
}

void Toplevel::ContentGone() {
  Withdraw();
}

void Toplevel::Withdraw() {
  if (!std::exchange(mapped_, false)) return;
  server().RemoveWindow(this);
  wished_.reset();
  closing_ = false;
  const bool was_announced = std::exchange(announced_, false);
  if (surface()->picture() == nullptr) return;
  Evas_Object* object = surface()->picture()->GiveAway();
  if (object == nullptr) return;
  if (was_announced) {
    server().announcer().Withdraw(object);
  } else {
    evas_object_del(object);
  }
}

// The program has done with the window; only the client can end it for good. It is asked to after
// it has answered the last configure: Elementary crashes over one that comes together with the end.
void Toplevel::PictureDeleted() {
  announced_ = false;
  active_ = false;
  server().RemoveWindow(this);
  server().seat().pointer().Forget(surface());
  surface()->Place({}, false);
  xdg_surface_->DismissPopups();
  closing_ = true;
  if (!xdg_surface_->StopConfiguring()) Configured();
}

void Toplevel::Configured() {
  if (std::exchange(closing_, false)) xdg_toplevel_send_close(resource_);
}

// ---- announcement

void Toplevel::Announce() {
  if (!mapped_ || announced_ || !title_ || object() == nullptr) return;
  kavrel_pepper::SetTitle(object(), AddressOf(title_));
  kavrel_pepper::SetAppId(object(), AddressOf(app_id_));
  announced_ = true;
  server().announcer().Add(object(), this);
}

void Toplevel::Announced() {
  if (IsVisible()) server().focus().Take(this);
}

void Toplevel::SetTitle(const char* title) {
  title_ = Cut(title);
  if (object() != nullptr && announced_) kavrel_pepper::SetTitle(object(), AddressOf(title_));
  Announce();
}

void Toplevel::SetAppId(const char* app_id) {
  app_id_ = Cut(app_id);
  if (object() != nullptr && announced_) kavrel_pepper::SetAppId(object(), AddressOf(app_id_));
}

void Toplevel::SetParent(wl_resource* parent) {
  if (parent != resource_) return;  // the program stacks the windows, whoever their parent is
  wl_resource_post_error(resource_, XDG_TOPLEVEL_ERROR_INVALID_PARENT, "its own parent");
}

void Toplevel::SetMaxSize(int width, int height) {
  CheckSize(width, height);
}

void Toplevel::SetMinSize(int width, int height) {
  CheckSize(width, height);
}

void Toplevel::CheckSize(int width, int height) {
  if (width >= 0 && height >= 0) return;  // the size is the program's choice, whatever is wished
  wl_resource_post_error(resource_, XDG_TOPLEVEL_ERROR_INVALID_SIZE, "size %dx%d is below 0", width,
                         height);
}

// ---- the object

void Toplevel::LayOut() {
  if (object() == nullptr || placing_) return;
  const Placing placing(placing_);
  int x = 0, y = 0, width = 0, height = 0;
  evas_object_geometry_get(object(), &x, &y, &width, &height);
  const Box window = xdg_surface_->Geometry();
  Placement placement;
  placement.scale_x = static_cast<double>(std::max(1, width)) / window.width;
  placement.scale_y = static_cast<double>(std::max(1, height)) / window.height;
  placement.x = x - window.x * placement.scale_x;
  placement.y = y - window.y * placement.scale_y;
  placement.visible = evas_object_visible_get(object()) != EINA_FALSE;
  placement.layer = evas_object_layer_get(object());
  surface()->picture()->Spread(-window.x * placement.scale_x, -window.y * placement.scale_y,
                               surface()->width() * placement.scale_x,
                               surface()->height() * placement.scale_y);
  surface()->Place(placement, false);
  for (Popup* popup : xdg_surface_->popups()) popup->PlaceIn(placement, window);
  StackTree();
}

SurfacePoint Toplevel::PickInWindow(double x, double y) {
  if (object() == nullptr) return {};
  const std::vector<Popup*>& popups = xdg_surface_->popups();
  for (auto popup = popups.rbegin(); popup != popups.rend(); ++popup) {
    if (const SurfacePoint found = (*popup)->Pick(x, y); found.surface != nullptr) return found;
  }
  return surface()->Pick(x, y);
}

void Toplevel::StackTree() {
  std::vector<Evas_Object*> objects;
  surface()->ListObjects(objects);
  const auto own = std::find(objects.begin(), objects.end(), object());
  for (auto below = std::make_reverse_iterator(own); below != objects.rend(); ++below) {
    evas_object_stack_below(*below, *(below - 1));
  }
  const auto first_above = static_cast<std::size_t>(own - objects.begin()) + 1;
  for (Popup* popup : xdg_surface_->popups()) popup->ListObjects(objects);
  for (std::size_t i = first_above; i < objects.size(); ++i) {
    evas_object_stack_above(objects[i], objects[i - 1]);
  }
}

void Toplevel::ObjectMoved(void*) {
  LayOut();
}

void Toplevel::ObjectResized(void*) {
  if (placing_) return;
  Box size;
  evas_object_geometry_get(object(), nullptr, nullptr, &size.width, &size.height);
  wished_ = size;
  LayOut();
  xdg_surface_->WantConfigure();
}

void Toplevel::ObjectShown(void*) {
  LayOut();
  if (announced_) server().focus().Take(this);
}

void Toplevel::ObjectHidden(void*) {
  LayOut();
  server().focus().Leave(this);
}

void Toplevel::ObjectFocused(void*) {
  server().focus().Take(this);
}

}  // namespace kavrel_pepper
