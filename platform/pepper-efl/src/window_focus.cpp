#include "window_focus.h"

#include <algorithm>
#include <utility>

#include "popup.h"
#include "server.h"
#include "toplevel.h"

namespace kavrel_pepper {

void WindowFocus::Take(Toplevel* window) {
  if (window == active_) return;
  DismissGrabs();
  Activate(window);
}

void WindowFocus::Leave(Toplevel* window) {
  if (window != active_) return;
  DismissGrabs();
  Toplevel* next = nullptr;
  for (Toplevel* other : windows_) {
    if (other == window || !other->IsVisible()) continue;
    if (next == nullptr || other->layer() >= next->layer()) next = other;
  }
  Activate(next);
}

void WindowFocus::Remove(Toplevel* window) {
  std::erase(windows_, window);
  Leave(window);
}

void WindowFocus::Activate(Toplevel* window) {
  Toplevel* before = std::exchange(active_, window);
  Update();
  if (before != nullptr) before->SetActive(false);
  if (window != nullptr) window->SetActive(true);
}

void WindowFocus::GrabFor(Popup* popup) {
  if (active_ == nullptr || popup->Window() != active_) return popup->Dismiss();
  grabs_.push_back(popup);
  Update();
}

void WindowFocus::PopupGone(Popup* popup) {
  if (std::erase(grabs_, popup) > 0) Update();
}

void WindowFocus::DismissGrabs() {
  for (Popup* popup : std::exchange(grabs_, {})) popup->Dismiss();
}

void WindowFocus::Pressed(Surface* surface) {
  SurfaceRole* role = surface != nullptr ? surface->role() : nullptr;
  Toplevel* window = role != nullptr ? role->Window() : nullptr;
  const bool in_popup =
      surface != nullptr && std::any_of(grabs_.begin(), grabs_.end(), [&](Popup* p) {
        return p->surface() != nullptr && p->surface()->client() == surface->client() &&
               surface->role_kind() != RoleKind::kToplevel;
      });
  if (!in_popup) DismissGrabs();
  if (window != nullptr && window->IsVisible()) Take(window);
}

void WindowFocus::Update() {
  Surface* surface = active_ != nullptr ? active_->surface() : nullptr;
  if (!grabs_.empty()) surface = grabs_.back()->surface();
  server_.seat().keyboard().Focus(surface);
}

}  // namespace kavrel_pepper
