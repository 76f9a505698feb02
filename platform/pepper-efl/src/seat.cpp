#include "seat.h"

#include "server.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

/// wl_seat of one client. Main thread.
class SeatObject {
 public:
  SeatObject(Seat& seat, wl_resource* resource) : seat_(seat), resource_(resource) {}

  void GetPointer(std::uint32_t id) {
    if (wl_resource* device = MakeSibling(resource_, &wl_pointer_interface, id)) {
      seat_.pointer().AddDevice(device);
    }
  }
  void GetKeyboard(std::uint32_t id) {
    if (wl_resource* device = MakeSibling(resource_, &wl_keyboard_interface, id)) {
      seat_.keyboard().AddDevice(device);
    }
  }
  void GetTouch(std::uint32_t id) {
    if (wl_resource* device = MakeSibling(resource_, &wl_touch_interface, id)) {
      seat_.touch().AddDevice(device);
    }
  }

 private:
  Seat& seat_;
  wl_resource* resource_;
};

constexpr struct wl_seat_interface kSeat = {
    .get_pointer = Request<&SeatObject::GetPointer>,
    .get_keyboard = Request<&SeatObject::GetKeyboard>,
    .get_touch = Request<&SeatObject::GetTouch>,
    .release = DestroyResource,
};

}  // namespace

void DeviceResources::Add(wl_resource* resource, const void* implementation) {
  resources_.push_back(resource);
  wl_resource_set_implementation(resource, implementation, this, &DeviceResources::Gone);
}

void DeviceResources::Gone(wl_resource* resource) {
  if (auto* self = From<DeviceResources>(resource)) std::erase(self->resources_, resource);
}

DeviceResources::~DeviceResources() {
  for (wl_resource* resource : resources_) wl_resource_set_user_data(resource, nullptr);
}

Seat::Seat(wl_display* display) : keyboard_(display), pointer_(display), touch_(display) {}

void Seat::Forget(Surface* surface) {
  keyboard_.Forget(surface);
  pointer_.Forget(surface);
  touch_.Forget(surface);
}

void Seat::Bind(wl_client* client, void* server, std::uint32_t version, std::uint32_t id) {
  Seat& seat = static_cast<Server*>(server)->seat();
  wl_resource* resource = MakeResource(client, &wl_seat_interface, static_cast<int>(version), id);
  if (resource == nullptr) return;
  try {
    GiveToResource(std::make_unique<SeatObject>(seat, resource), resource, &kSeat);
  } catch (...) {
    return wl_client_post_no_memory(client);
  }
  std::uint32_t capabilities = WL_SEAT_CAPABILITY_POINTER | WL_SEAT_CAPABILITY_TOUCH;
  if (seat.keyboard().exists()) capabilities |= WL_SEAT_CAPABILITY_KEYBOARD;
  wl_seat_send_capabilities(resource, capabilities);
  if (version >= WL_SEAT_NAME_SINCE_VERSION) wl_seat_send_name(resource, "seat0");
}

}  // namespace kavrel_pepper
