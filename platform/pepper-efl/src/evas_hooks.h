// The edge to EFL: callbacks of objects and of the canvas into methods, removed with their owner.
#pragma once

#include <Evas.h>

#include <utility>
#include <vector>

namespace kavrel_pepper {

template <auto Method>
struct ObjectEvent;

template <class T, void (T::*Method)(void*)>
struct ObjectEvent<Method> {
  static void Call(void* data, Evas*, Evas_Object*, void* information) {
    try {
      (static_cast<T*>(data)->*Method)(information);
    } catch (...) {
      // Only memory can have run out; the event is lost and the program goes on.
    }
  }
};

/// The event callbacks that one owner has on one Evas object. Main thread.
class ObjectHooks {
 public:
  ObjectHooks() = default;
  ObjectHooks(const ObjectHooks&) = delete;
  ObjectHooks& operator=(const ObjectHooks&) = delete;
  ~ObjectHooks() { Clear(); }

  void Watch(Evas_Object* object) {
    Clear();
    object_ = object;
  }

  template <auto Method, class T>
  void Add(Evas_Callback_Type type, T* owner) {
    Add(type, &ObjectEvent<Method>::Call, owner);
  }

  void Add(Evas_Callback_Type type, Evas_Object_Event_Cb call, void* owner) {
    hooks_.push_back({type, call, owner});
    evas_object_event_callback_add(object_, type, call, owner);
  }

  /// Allowed inside a callback of the object, its deletion included; not afterwards.
  void Clear() {
    for (const Hook& hook : hooks_) {
      evas_object_event_callback_del_full(object_, hook.type, hook.call, hook.owner);
    }
    hooks_.clear();
    object_ = nullptr;
  }

 private:
  struct Hook {
    Evas_Callback_Type type;
    Evas_Object_Event_Cb call;
    void* owner;
  };

  Evas_Object* object_ = nullptr;
  std::vector<Hook> hooks_;
};

}  // namespace kavrel_pepper
