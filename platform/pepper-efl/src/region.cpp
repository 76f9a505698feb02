#include "region.h"

#include <algorithm>
#include <cstdint>

#include "quotas.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

struct Box {
  int x, y;
  unsigned width, height;
};

int Cut(std::int64_t value) {
  return static_cast<int>(std::clamp<std::int64_t>(value, -kMaxCoordinate, kMaxCoordinate));
}

Box CutBox(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height) {
  const int left = Cut(x), top = Cut(y);
  const int right = std::max(left, Cut(x + width)), bottom = std::max(top, Cut(y + height));
  return {left, top, static_cast<unsigned>(right - left), static_cast<unsigned>(bottom - top)};
}

/// One wl_region. Main thread.
class RegionObject {
 public:
  explicit RegionObject(wl_resource* resource) : resource_(resource) {}

  void Add(int x, int y, int width, int height) {
    region.Add(x, y, width, height);
    CheckSize();
  }
  void Subtract(int x, int y, int width, int height) {
    region.Subtract(x, y, width, height);
    CheckSize();
  }

  Region region;

 private:
  void CheckSize() {
    if (region.boxes().size() <= kMaxRegionRectangles) return;
    wl_client_post_implementation_error(wl_resource_get_client(resource_),
                                        "a region of more than %d rectangles",
                                        kMaxRegionRectangles);
  }

  wl_resource* resource_;
};

constexpr struct wl_region_interface kRegion = {
    .destroy = DestroyResource,
    .add = Request<&RegionObject::Add>,
    .subtract = Request<&RegionObject::Subtract>,
};

}  // namespace

Region::Region() {
  pixman_region32_init(&region_);
}

Region::Region(int x, int y, int width, int height) : Region() {
  Add(x, y, width, height);
}

Region::Region(const Region& other) : Region() {
  *this = other;
}

Region& Region::operator=(const Region& other) {
  if (this != &other) pixman_region32_copy(&region_, &other.region_);
  return *this;
}

Region::~Region() {
  pixman_region32_fini(&region_);
}

void Region::Add(int x, int y, int width, int height) {
  const Box box = CutBox(x, y, width, height);
  if (box.width == 0 || box.height == 0) return;
  pixman_region32_union_rect(&region_, &region_, box.x, box.y, box.width, box.height);
}

void Region::Add(const Region& other) {
  pixman_region32_union(&region_, &region_, &other.region_);
}

void Region::Subtract(int x, int y, int width, int height) {
  const Region box(x, y, width, height);
  pixman_region32_subtract(&region_, &region_, &box.region_);
}

void Region::ClipTo(int width, int height) {
  const Region box(0, 0, width, height);
  pixman_region32_intersect(&region_, &region_, &box.region_);
}

void Region::Clear() {
  pixman_region32_clear(&region_);
}

bool Region::empty() const {
  return pixman_region32_not_empty(&region_) == 0;
}

bool Region::Contains(int x, int y) const {
  return pixman_region32_contains_point(&region_, x, y, nullptr) != 0;
}

bool Region::ContainsRectangle(int width, int height) const {
  const pixman_box32_t box = {0, 0, width, height};
  return pixman_region32_contains_rectangle(&region_, &box) == PIXMAN_REGION_IN;
}

std::span<const pixman_box32_t> Region::boxes() const {
  int count = 0;
  const pixman_box32_t* first = pixman_region32_rectangles(&region_, &count);
  return {first, static_cast<std::size_t>(count)};
}

void Region::LimitTo(int most_rectangles) {
  if (pixman_region32_n_rects(&region_) <= most_rectangles) return;
  const pixman_box32_t around = *pixman_region32_extents(&region_);
  Clear();
  Add(around.x1, around.y1, around.x2 - around.x1, around.y2 - around.y1);
}

void CreateRegion(wl_client* client, int version, std::uint32_t id) {
  wl_resource* resource = MakeResource(client, &wl_region_interface, version, id);
  if (resource == nullptr) return;
  GiveToResource(std::make_unique<RegionObject>(resource), resource, &kRegion);
}

const Region& RegionOf(wl_resource* resource) {
  return From<RegionObject>(resource)->region;
}

}  // namespace kavrel_pepper
