// Owners of what GIO hands out.
#pragma once

#include <gio/gio.h>

#include <memory>

namespace kavrelctl {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  void operator()(GError* error) const { g_error_free(error); }
};

template <class T>
using Owned = std::unique_ptr<T, Unref>;

}  // namespace kavrelctl
