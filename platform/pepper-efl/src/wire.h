// The edge to libwayland: C callbacks into methods of the objects behind the resources.
#pragma once

#include <memory>
#include <wayland-server.h>

namespace kavrel_pepper {

/// The object behind a resource; null once it has gone and left the resource inert.
template <class T>
T* From(wl_resource* resource) {
  return resource != nullptr ? static_cast<T*>(wl_resource_get_user_data(resource)) : nullptr;
}

template <auto Method>
struct RequestCall;

template <class T, class... Arguments, void (T::*Method)(Arguments...)>
struct RequestCall<Method> {
  static void Call(wl_client* client, wl_resource* resource, Arguments... arguments) {
    T* self = From<T>(resource);
    if (self == nullptr) return;
    try {
      (self->*Method)(arguments...);
    } catch (...) {
      wl_client_post_no_memory(client);
    }
  }
};

/// A request handler that calls `Method` of the object behind the resource. An inert resource is
/// ignored; what the method throws (out of memory) ends the client.
template <auto Method>
inline constexpr auto Request = &RequestCall<Method>::Call;

/// The handler of every request that only destroys its object.
inline void DestroyResource(wl_client*, wl_resource* resource) {
  wl_resource_destroy(resource);
}

/// The handler of a request without effect here.
template <class... Arguments>
void IgnoreRequest(wl_client*, wl_resource*, Arguments...) {}

template <class T>
void DeleteObject(wl_resource* resource) {
  delete From<T>(resource);
}

/// Makes the resource `id`, with `implementation`, of an object that it owns from then on. Returns
/// null after telling the client when there is no memory.
template <class T>
T* GiveToResource(std::unique_ptr<T> object, wl_resource* resource, const void* implementation) {
  wl_resource_set_implementation(resource, implementation, object.get(), DeleteObject<T>);
  return object.release();
}

inline wl_resource* MakeResource(wl_client* client, const wl_interface* interface, int version,
                                 std::uint32_t id) {
  wl_resource* resource = wl_resource_create(client, interface, version, id);
  if (resource == nullptr) wl_client_post_no_memory(client);
  return resource;
}

inline wl_resource* MakeSibling(wl_resource* sibling, const wl_interface* interface,
                                std::uint32_t id) {
  return MakeResource(wl_resource_get_client(sibling), interface, wl_resource_get_version(sibling),
                      id);
}

/// A listener of a Wayland signal that calls back an object; disconnected when it goes.
template <class Owner, void (Owner::*Method)(void*)>
class Listener {
 public:
  explicit Listener(Owner* owner) : owner_(owner) {
    listener_.notify = &Listener::Notify;
    wl_list_init(&listener_.link);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() { Disconnect(); }

  wl_listener* get() { return &listener_; }

  void Disconnect() {
    wl_list_remove(&listener_.link);
    wl_list_init(&listener_.link);
  }

 private:
  static void Notify(wl_listener* listener, void* data) {
    auto* self = reinterpret_cast<Listener*>(reinterpret_cast<char*>(listener) -
                                             offsetof(Listener, listener_));
    try {
      (self->owner_->*Method)(data);
    } catch (...) {
      // Only memory can have run out; the object lives on without the notice.
    }
  }

  wl_listener listener_{};
  Owner* owner_;
};

}  // namespace kavrel_pepper
