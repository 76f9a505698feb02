// The C interface.
#include <lwipc.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "log.h"
#include "pepper-efl.h"
#include "server.h"

namespace kavrel_pepper {
namespace {

/// What the handle stands for: the server, until the program destroys it or its root window goes.
/// Main thread.
class Compositor {
 public:
  Compositor(Evas_Object* root, std::unique_ptr<Server> server) : server_(std::move(server)) {
    hooks_.Watch(root);
    hooks_.Add<&Compositor::RootDeleted>(EVAS_CALLBACK_DEL, this);
  }
  Compositor(const Compositor&) = delete;
  Compositor& operator=(const Compositor&) = delete;
  ~Compositor() { End(); }

 private:
  void RootDeleted(void*) { End(); }

  void End() {
    hooks_.Clear();
    if (server_ != nullptr) Server::End(std::move(server_));
  }

  std::unique_ptr<Server> server_;
  ObjectHooks hooks_;
};

// A name within the runtime directory, and within what a socket's address can hold.
bool IsUsableName(const char* name) {
  constexpr std::size_t kMost = 64;
  if (name == nullptr || std::strchr(name, '/') != nullptr || name[0] == '.') return false;
  const std::size_t length = ::strnlen(name, kMost + 1);
  return length >= 1 && length <= kMost;
}

void RaiseReady(const std::string& name) {
  const std::string event = "/tmp/" + name + "_ready";
  if (const int result = LwipcEventDone(event.c_str()); result < 0) {
    LogError("%s was not raised: %s", event.c_str(), std::strerror(-result));
  }
}

Compositor* Create(Evas_Object* root, const char* name) {
  if (root == nullptr || evas_object_evas_get(root) == nullptr) {
    LogError("no compositor without a root window");
    return nullptr;
  }
  if (!IsUsableName(name)) {
    LogError("compositor name \"%s\": 1 to 64 characters without '/', the first not '.'",
             name != nullptr ? Printable(name).c_str() : "(null)");
    return nullptr;
  }
  std::unique_ptr<Server> server = Server::Create(root, name);
  if (server == nullptr) return nullptr;
  auto compositor = std::make_unique<Compositor>(root, std::move(server));
  RaiseReady(name);
  LogInfo("compositor \"%s\" accepts clients", name);
  return compositor.release();
}

}  // namespace
}  // namespace kavrel_pepper

void* pepper_efl_compositor_create(Evas_Object* root_window, const char* socket_name) {
  try {
    return kavrel_pepper::Create(root_window, socket_name);
  } catch (...) {
    kavrel_pepper::LogError("no compositor: out of memory");
    return nullptr;
  }
}

void pepper_efl_compositor_destroy(void* compositor) {
  try {
    delete static_cast<kavrel_pepper::Compositor*>(compositor);
  } catch (...) {
    kavrel_pepper::LogError("out of memory while the compositor ended");
  }
}

const char* pepper_efl_object_title_get(Evas_Object* object) {
  return kavrel_pepper::TitleOf(object);
}

const char* pepper_efl_object_app_id_get(Evas_Object* object) {
  return kavrel_pepper::AppIdOf(object);
}
