// Registrations: who is to be told of changes of which key, on which main context.
#pragma once

#include <glib.h>
#include <vconf.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "control.h"
#include "key.h"
#include "store.h"
#include "wake_listener.h"

namespace kavrel_vconf {

class Service;
class Watcher;

/// One callback of one key. Changed by the thread that delivers, save `active`.
struct Registration {
  vconf_callback_fn callback = nullptr;
  void* user_data = nullptr;
  Version last;  // the last one that the owner knows
  std::atomic<bool> active = true;
};

/// One key on one context. Lists are replaced, never changed, so that a delivery walks the list as
/// it was when it began whatever callbacks do meanwhile.
struct WatchedKey {
  using Registrations = std::vector<std::shared_ptr<Registration>>;
  std::string name;
  std::uint64_t hash = 0;
  Family family = Family::kMemory;
  std::shared_ptr<const Registrations> registrations = std::make_shared<const Registrations>();
  std::uint64_t seen_word = 1;  // the key's word at the last look; 1: look again

  Key AsKey() const { return Key{{name, hash}, family}; }
};

/// Any thread. One for a process; never destroyed.
class Registry {
 public:
  explicit Registry(Service* service) : service_(service) {}

  int Add(const Key& key, vconf_callback_fn callback, void* user_data);
  int Remove(const Key& key, vconf_callback_fn callback);
  void AbandonInForkedChild();

 private:
  using Watchers = std::map<GMainContext*, std::shared_ptr<Watcher>>;
  class DropIfEmpty;

  bool IsRegistered(const Key& key, vconf_callback_fn callback) const;
  static int Register(Watcher* watcher, const Key& key, vconf_callback_fn callback,
                      void* user_data);
  std::unique_ptr<WakeListener> TakeListener();
  void Keep(std::unique_ptr<WakeListener> listener) noexcept;

  Service* const service_;
  std::mutex mutex_;  // guards the watchers and all their lists; not held during callbacks
  Watchers watchers_;
  std::array<std::unique_ptr<WakeListener>, 4> spare_;  // kept from watchers that ended
};

}  // namespace kavrel_vconf
