// Global objects that clients need to find but that have no state here.
#pragma once

#include <cstdint>
#include <wayland-server.h>

namespace kavrel_pepper {

void BindDataDeviceManager(wl_client* client, void* server, std::uint32_t version,
                           std::uint32_t id);
void BindDecorationManager(wl_client* client, void* server, std::uint32_t version,
                           std::uint32_t id);

}  // namespace kavrel_pepper
