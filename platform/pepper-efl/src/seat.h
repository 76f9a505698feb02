// wl_seat: keyboard, pointer and touch screen of the clients.
#pragma once

#include <Evas.h>

#include <map>
#include <memory>
#include <vector>

#include "keymap.h"
#include "surface.h"

namespace kavrel_pepper {

/// The device objects that clients have made. Main thread.
class DeviceResources {
 public:
  void Add(wl_resource* resource, const void* implementation);
  ~DeviceResources();

  /// Calls `call` with each object of the client.
  template <class Call>
  void ForClient(wl_client* client, Call call) const {
    for (wl_resource* resource : resources_) {
      if (wl_resource_get_client(resource) == client) call(resource);
    }
  }

 private:
  static void Gone(wl_resource* resource);
  std::vector<wl_resource*> resources_;
};

/// Gives keys to the focused surface. Main thread.
class Keyboard {
 public:
  explicit Keyboard(wl_display* display);

  bool exists() const { return keymap_ != nullptr; }
  void AddDevice(wl_resource* resource);
  void Focus(Surface* surface);
  void Forget(Surface* surface);

  void Press(const Evas_Event_Key_Down& event);
  void Release(const Evas_Event_Key_Up& event);
  /// The program has lost the keyboard and sees no releases any more.
  void ReleaseAll();

 private:
  struct FreeState {
    void operator()(xkb_state* state) const { xkb_state_unref(state); }
  };

  std::optional<Key> Find(const char* keyname, const char* key, unsigned code) const;
  void Send(const Key& key, std::uint32_t time, bool pressed);
  void SendModifiers(xkb_mod_mask_t additional);
  void SendEnter(wl_resource* device);

  wl_display* display_;
  std::unique_ptr<Keymap> keymap_;
  std::unique_ptr<xkb_state, FreeState> state_;
  std::vector<Key> pressed_;
  Surface* focus_ = nullptr;
  DeviceResources devices_;
};

/// Gives the pointer to the surface under it, or to the one in which a button was pressed until all
/// are released. Main thread.
class Pointer {
 public:
  explicit Pointer(wl_display* display) : display_(display) {}

  void AddDevice(wl_resource* resource);
  void Forget(Surface* surface);

  void Move(const SurfacePoint& under, double canvas_x, double canvas_y, std::uint32_t time);
  void Leave();
  /// True when this is the first button.
  bool Press(int button, std::uint32_t time);
  void Release(int button, std::uint32_t time);
  void Turn(bool horizontal, int steps, std::uint32_t time);
  Surface* focus() { return focus_; }

 private:
  void Enter(const SurfacePoint& under);
  void SendButton(int button, std::uint32_t time, bool pressed);

  wl_display* display_;
  Surface* focus_ = nullptr;
  int buttons_ = 0;
  DeviceResources devices_;
};

/// Gives each finger to the surface on which it was set down. Main thread.
class Touch {
 public:
  explicit Touch(wl_display* display) : display_(display) {}

  void AddDevice(wl_resource* resource);
  void Forget(Surface* surface);

  void Down(int finger, const SurfacePoint& under, std::uint32_t time);
  void Move(int finger, double canvas_x, double canvas_y, std::uint32_t time);
  void Up(int finger, std::uint32_t time);

 private:
  wl_display* display_;
  std::map<int, Surface*> fingers_;
  DeviceResources devices_;
};

/// Main thread.
class Seat {
 public:
  explicit Seat(wl_display* display);

  Keyboard& keyboard() { return keyboard_; }
  Pointer& pointer() { return pointer_; }
  Touch& touch() { return touch_; }
  void Forget(Surface* surface);

  static void Bind(wl_client* client, void* server, std::uint32_t version, std::uint32_t id);

 private:
  Keyboard keyboard_;
  Pointer pointer_;
  Touch touch_;
};

}  // namespace kavrel_pepper
