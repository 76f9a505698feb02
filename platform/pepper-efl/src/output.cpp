#include "output.h"

#include "server.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr int kRefreshMillihertz = 60000;

constexpr struct wl_output_interface kOutput = {.release = DestroyResource};

}  // namespace

Output::~Output() {
  for (wl_resource* resource : resources_) wl_resource_set_user_data(resource, nullptr);
}

void Output::Resize(int width, int height) {
  if (width == width_ && height == height_) return;
  width_ = width;
  height_ = height;
  for (wl_resource* resource : resources_) Send(resource);
}

void Output::Send(wl_resource* resource) const {
  wl_output_send_geometry(resource, 0, 0, 0, 0, WL_OUTPUT_SUBPIXEL_UNKNOWN, "kavrel", "viewer",
                          WL_OUTPUT_TRANSFORM_NORMAL);
  wl_output_send_mode(resource, WL_OUTPUT_MODE_CURRENT | WL_OUTPUT_MODE_PREFERRED, width_, height_,
                      kRefreshMillihertz);
  if (wl_resource_get_version(resource) < WL_OUTPUT_DONE_SINCE_VERSION) return;
  wl_output_send_scale(resource, 1);
  wl_output_send_done(resource);
}

void Output::Gone(wl_resource* resource) {
  if (auto* self = From<Output>(resource)) std::erase(self->resources_, resource);
}

void Output::Bind(wl_client* client, void* server, std::uint32_t version, std::uint32_t id) {
  Output& self = static_cast<Server*>(server)->output();
  wl_resource* resource = MakeResource(client, &wl_output_interface, static_cast<int>(version), id);
  if (resource == nullptr) return;
  wl_resource_set_implementation(resource, &kOutput, nullptr, &Output::Gone);
  try {
    self.resources_.push_back(resource);
  } catch (...) {
    return wl_client_post_no_memory(client);
  }
  wl_resource_set_user_data(resource, &self);
  self.Send(resource);
}

}  // namespace kavrel_pepper
