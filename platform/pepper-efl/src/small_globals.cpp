#include "small_globals.h"

#include <xdg-decoration-unstable-v1-server-protocol.h>

#include "wire.h"

namespace kavrel_pepper {
namespace {

// ---- Clipboard and drag. Toolkits will not start without them. There is no clipboard between the
// windows of a television: sources are told at once that nobody takes their data.

constexpr struct wl_data_source_interface kDataSource = {
    .offer = IgnoreRequest<const char*>,
    .destroy = DestroyResource,
    .set_actions = IgnoreRequest<std::uint32_t>,
};

void CancelSource(wl_resource* source) {
  if (source != nullptr) wl_data_source_send_cancelled(source);
}

constexpr struct wl_data_device_interface kDataDevice = {
    .start_drag = [](wl_client*, wl_resource*, wl_resource* source, wl_resource*, wl_resource*,
                     std::uint32_t) { CancelSource(source); },
    .set_selection = [](wl_client*, wl_resource*, wl_resource* source,
                        std::uint32_t) { CancelSource(source); },
    .release = DestroyResource,
};

void MakeInert(wl_resource* parent, const wl_interface* interface, std::uint32_t id,
               const void* implementation) {
  wl_resource* resource = MakeSibling(parent, interface, id);
  if (resource == nullptr) return;
  wl_resource_set_implementation(resource, implementation, nullptr, nullptr);
}

constexpr struct wl_data_device_manager_interface kDataDeviceManager = {
    .create_data_source =
        [](wl_client*, wl_resource* manager, std::uint32_t id) {
          MakeInert(manager, &wl_data_source_interface, id, &kDataSource);
        },
    .get_data_device =
        [](wl_client*, wl_resource* manager, std::uint32_t id, wl_resource*) {
          MakeInert(manager, &wl_data_device_interface, id, &kDataDevice);
        },
};

// ---- Decorations. Windows fill their objects and have none; "the server draws them" is how
// clients are told not to draw any.

void SendServerSide(wl_resource* decoration) {
  zxdg_toplevel_decoration_v1_send_configure(decoration,
                                             ZXDG_TOPLEVEL_DECORATION_V1_MODE_SERVER_SIDE);
}

constexpr struct zxdg_toplevel_decoration_v1_interface kDecoration = {
    .destroy = DestroyResource,
    .set_mode = [](wl_client*, wl_resource* decoration,
                   std::uint32_t) { SendServerSide(decoration); },
    .unset_mode = [](wl_client*, wl_resource* decoration) { SendServerSide(decoration); },
};

constexpr struct zxdg_decoration_manager_v1_interface kDecorationManager = {
    .destroy = DestroyResource,
    .get_toplevel_decoration =
        [](wl_client*, wl_resource* manager, std::uint32_t id, wl_resource*) {
          wl_resource* decoration =
              MakeSibling(manager, &zxdg_toplevel_decoration_v1_interface, id);
          if (decoration == nullptr) return;
          wl_resource_set_implementation(decoration, &kDecoration, nullptr, nullptr);
          SendServerSide(decoration);
        },
};

void Bind(wl_client* client, const wl_interface* interface, std::uint32_t version, std::uint32_t id,
          const void* implementation) {
  wl_resource* resource = MakeResource(client, interface, static_cast<int>(version), id);
  if (resource == nullptr) return;
  wl_resource_set_implementation(resource, implementation, nullptr, nullptr);
}

}  // namespace

void BindDataDeviceManager(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
  Bind(client, &wl_data_device_manager_interface, version, id, &kDataDeviceManager);
}

void BindDecorationManager(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
  Bind(client, &zxdg_decoration_manager_v1_interface, version, id, &kDecorationManager);
}

}  // namespace kavrel_pepper
