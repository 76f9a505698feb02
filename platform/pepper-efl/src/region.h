// Sets of pixels, and the protocol's region objects.
#pragma once

#include <pixman.h>

#include <cstdint>
#include <span>
#include <wayland-server.h>

namespace kavrel_pepper {

class Server;

/// A set of pixels as rectangles. Arguments may be anything a client sends.
class Region {
 public:
  Region();
  Region(int x, int y, int width, int height);
  Region(const Region& other);
  Region& operator=(const Region& other);
  ~Region();

  void Add(int x, int y, int width, int height);
  void Add(const Region& other);
  void Subtract(int x, int y, int width, int height);
  void ClipTo(int width, int height);
  void Clear();

  bool empty() const;
  bool Contains(int x, int y) const;
  bool ContainsRectangle(int width, int height) const;  ///< the one at the origin
  std::span<const pixman_box32_t> boxes() const;

  /// Replaces many rectangles by the one around them, for uses in which more is not wrong.
  void LimitTo(int most_rectangles);

 private:
  pixman_region32_t region_;
};

/// wl_compositor.create_region.
void CreateRegion(wl_client* client, int version, std::uint32_t id);

/// The pixels of a wl_region.
const Region& RegionOf(wl_resource* resource);

}  // namespace kavrel_pepper
