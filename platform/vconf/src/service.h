// The service as one process sees it: its two stores and its registrations.
#pragma once

#include <vconf.h>

#include "key.h"
#include "registry.h"
#include "store.h"

namespace kavrel_vconf {

/// Any thread. Made by the first use and never destroyed: threads may use it until the process
/// ends. A forked child makes its own, because neither LMDB nor a registration survives a fork.
class Service {
 public:
  static Service& Instance();

  Store& StoreOf(const Key& key) { return StoreOf(key.family); }
  Store& StoreOf(Family family) { return family == Family::kMemory ? memory_ : durable_; }
  Registry& registry() { return registry_; }

  /// Finishes what is under way in the background.
  static void AtExit();

 private:
  Service() : memory_(Family::kMemory), durable_(Family::kDurable), registry_(this) {}
  static void AfterForkInChild();

  static const int watches_forks_;
  Store memory_;
  Store durable_;
  Registry registry_;
};

/// What the key holds now, through what this thread keeps.
Store::Look LookAt(const Key& key);

/// Writes through to what this thread keeps. 0 or a negative errno value.
int Change(const Key& key, const Value& value);

}  // namespace kavrel_vconf
