// wl_output: the program's root window as the one screen of the clients.
#pragma once

#include <vector>
#include <wayland-server.h>

#include "positioner.h"

namespace kavrel_pepper {

/// Main thread.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output();

  void Resize(int width, int height);
  static void Bind(wl_client* client, void* server, std::uint32_t version, std::uint32_t id);

 private:
  static void Gone(wl_resource* resource);
  void Send(wl_resource* resource) const;

  int width_ = 1, height_ = 1;
  std::vector<wl_resource*> resources_;
};

}  // namespace kavrel_pepper
