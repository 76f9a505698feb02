// Tells the program of windows that come and go.
#pragma once

#include <Ecore.h>
#include <Evas.h>

#include <list>
#include <memory>
#include <string>

#include "evas_hooks.h"

namespace kavrel_pepper {

/// What an announced object belongs to, while it lives. Main thread.
class AnnouncedWindow {
 public:
  virtual ~AnnouncedWindow() = default;
  virtual void Announced() = 0;
};

/// One queue for both smart callbacks, worked off by the main loop: a program that replaces a
/// window sees the old one go before the new one comes, and no callback runs inside the handling of
/// a client's request. Callbacks may delete objects and destroy the compositor. Main thread.
class Announcer {
 public:
  explicit Announcer(Evas_Object* root) : root_(root) {}
  Announcer(const Announcer&) = delete;
  Announcer& operator=(const Announcer&) = delete;
  ~Announcer();

  /// The object is to be announced; it stays the caller's.
  void Add(Evas_Object* object, AnnouncedWindow* window);

  /// The window is gone: its object is deleted now if it was not announced yet, else after (or by)
  /// the callback. The object is no longer the caller's.
  void Withdraw(Evas_Object* object);

  /// The program deleted the object, which is the end of it.
  void Forget(Evas_Object* object);

  /// Announces the end of all windows now, and deletes the objects that are left.
  void Finish();

 private:
  struct Entry {
    Entry(Announcer* announcer_, Evas_Object* object_, AnnouncedWindow* window_)
        : announcer(announcer_), object(object_), window(window_) {
      hooks.Watch(object);
      hooks.Add<&Entry::Deleted>(EVAS_CALLBACK_DEL, this);
    }

    void Deleted(void*) { announcer->Forget(object); }  // destroys this entry

    Announcer* announcer;
    Evas_Object* object;
    AnnouncedWindow* window;  // null: to be withdrawn
    ObjectHooks hooks;
  };
  using Entries = std::list<std::unique_ptr<Entry>>;

  Entries::iterator Find(Evas_Object* object);
  void Schedule();
  static void RunJob(void* data);
  void Run();
  bool RunNext();
  void Emit(const char* name, Evas_Object* object);

  Evas_Object* root_;
  Entries waiting_;    // to be announced or withdrawn, in that order
  Entries announced_;  // and alive
  Ecore_Job* job_ = nullptr;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

/// Title and application id, kept by the object itself. Null removes.
void SetTitle(Evas_Object* object, const std::string* title);
void SetAppId(Evas_Object* object, const std::string* app_id);
const char* TitleOf(Evas_Object* object);
const char* AppIdOf(Evas_Object* object);

}  // namespace kavrel_pepper
