// Deliveries to one main context: sleeps until a store changes, then calls whoever registered for
// what has changed.
//
// A change is found by comparing the key's word in the control page with the word of the last look,
// never by the wake-up itself: wake-ups may be late, doubled or merged, and still every watcher
// ends with the last value. Before sleeping a watcher takes a ticket and looks once more; a writer
// that sees a ticket newer than the last wake-up writes to the wake file, which wakes everybody at
// once. A watcher that is stopped has one pending event, however much happens.
//
// A watcher that finds many changes at a time is being outrun: it then looks again after a few
// milliseconds instead of being woken for each change, which is all that fast writers notice of
// any number of watchers.
#pragma once

#include <glib.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "registry.h"
#include "wake_listener.h"

namespace kavrel_vconf {

struct ContextUnref {
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
};
using ContextPointer = std::unique_ptr<GMainContext, ContextUnref>;

/// Made and changed on any thread under the registry's mutex; delivers on the context's thread.
class Watcher : public std::enable_shared_from_this<Watcher> {
 public:
  Watcher(Service* service, std::mutex* mutex, ContextPointer context,
          std::unique_ptr<WakeListener> listener)
      : service_(service),
        mutex_(mutex),
        context_(std::move(context)),
        listener_(std::move(listener)) {}
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  /// The functions below are called with the registry's mutex held.
  /// Ends all deliveries. Gives back the file watch for another watcher.
  std::unique_ptr<WakeListener> Detach();
  /// Begins to watch the key's store. 0 or a negative errno value.
  int Prepare(const Key& key);
  void Add(const Key& key, std::shared_ptr<Registration> registration);
  void Remove(const Key& key, vconf_callback_fn callback);
  bool Has(const Key& key, vconf_callback_fn callback) const;
  bool IsEmpty() const { return keys_->empty(); }

  /// The functions below are called by the main context, without the mutex.
  /// False within a delivery, when a callback runs the main context.
  bool BeginDelivery();
  void EndDelivery();
  void Dispatch();
  /// After a Dispatch that ended with an exception.
  void LookAgainLater();
  void AbandonInForkedChild();
  /// Whether this process is a fork of the one that registered.
  bool IsInherited() const;

 private:
  using Keys = std::vector<std::shared_ptr<WatchedKey>>;

  /// One of the two stores as this watcher sees it.
  struct Watched {
    ControlPage* control = nullptr;  // null: not watched, or nothing can change
    bool in_use = false;
    WakeListener::Reach reach = WakeListener::Reach::kEverything;
    std::uint64_t ticket = 0;  // with which we sleep; stands while it is above `woken`
    std::uint64_t seen_sequence = 0;
    std::int64_t pause_us = 0;  // how long to look away; 0: sleep until woken

    bool IsRetired() const { return control->retired.load(std::memory_order_acquire) != 0; }
  };

  Watched& WatchedOf(Family family) { return watched_[family == Family::kMemory ? 0 : 1]; }
  void Attach();
  void Mute();
  void Unmute();
  int Begin(Family family);
  WakeListener::Reach Listen(Family family);
  void TakeEvents();
  void FollowReplacedStores(bool files_changed);
  bool MayBeReplaced(Family family, bool files_changed);
  void Deliver(const std::shared_ptr<WatchedKey>& key);
  void Tidy(WatchedKey* watched_key);
  bool HasChanged(const WatchedKey& key);
  void NoteFailure(WatchedKey* key);
  void NoteSpeed(Watched* watched);
  void PlanNextLook();
  std::shared_ptr<WatchedKey> Find(const Key& key) const;

  Service* const service_;
  std::mutex* const mutex_;
  GSource* source_ = nullptr;
  void* poll_tag_ = nullptr;    // null: the listener's descriptor is not polled
  bool is_delivering_ = false;  // this and the next: for the context's thread alone
  bool is_muted_ = false;
  bool look_failed_ = false;
  // Held, lest another context get its address while registrations for this one exist.
  const ContextPointer context_;
  std::unique_ptr<WakeListener> listener_;
  std::array<Watched, 2> watched_;
  std::shared_ptr<const Keys> keys_ = std::make_shared<const Keys>();
};

}  // namespace kavrel_vconf
