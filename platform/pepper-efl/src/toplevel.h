// xdg_toplevel: a window, which the program gets as an object.
#pragma once

#include <optional>
#include <string>

#include "announcer.h"
#include "xdg_shell.h"

namespace kavrel_pepper {

/// Belongs to its xdg_toplevel resource. The program places, shows and deletes its object as it
/// likes; everything below it in the window's tree follows. Main thread.
class Toplevel final : public XdgRole, public AnnouncedWindow {
 public:
  Toplevel(wl_resource* resource, XdgSurface& xdg_surface);
  ~Toplevel() override;

  Surface* surface();
  Evas_Object* object();
  bool IsVisible();
  int layer();

  /// Whether the window has the keyboard, as its client shall know.
  void SetActive(bool active);
  /// The server announces the end of all windows and deletes their objects.
  void ServerEnds() { Withdraw(); }
  /// The root window has another size.
  void RootResized();

  // XdgRole
  void SendConfigure() override;
  void Configured() override;
  void Committed() override;
  void ContentGone() override;
  void PictureDeleted() override;
  void LayOut() override;
  SurfacePoint PickInWindow(double x, double y) override;
  Toplevel* Window() override { return this; }
  void XdgSurfaceGone() override;

  // AnnouncedWindow
  void Announced() override;

  // Requests.
  void SetTitle(const char* title);
  void SetAppId(const char* app_id);
  void SetParent(wl_resource* parent);
  void SetMaxSize(int width, int height);
  void SetMinSize(int width, int height);
  void StateAsked();

 private:
  Server& server();
  void Map();
  void Withdraw();
  void Announce();
  void CheckSize(int width, int height);
  void FollowContent();
  void StackTree();
  void ObjectMoved(void*);
  void ObjectResized(void*);
  void ObjectShown(void*);
  void ObjectHidden(void*);
  void ObjectFocused(void*);

  wl_resource* resource_;
  XdgSurface* xdg_surface_;
  std::optional<std::string> title_;
  std::optional<std::string> app_id_;
  bool mapped_ = false;
  bool announced_ = false;  // or queued to be
  bool active_ = false;
  bool closing_ = false;       // to be told so
  bool placing_ = false;       // we, not the program, change the object
  std::optional<Box> wished_;  // the size the program gave the object
  Box content_;                // the window's size when it was last looked at
};

/// xdg_surface.get_toplevel. Null after telling the client when there is no memory.
Toplevel* CreateToplevel(XdgSurface& xdg_surface, std::uint32_t id);

}  // namespace kavrel_pepper
