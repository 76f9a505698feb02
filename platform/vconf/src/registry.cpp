#include "registry.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "read_cache.h"
#include "service.h"
#include "watcher.h"

namespace kavrel_vconf {
namespace {

// The version that the caller knows: what it last saw of the key, so that a change since then is
// delivered; of a key that it never looked at, what is there now.
int FindKnownVersion(const Key& key, Version* version) {
  std::optional<Version> known;
  if (ReadCache* cache = ReadCache::OfThisThread()) known = cache->KnownVersion(key);
  if (!known) {
    const Store::Look look = LookAt(key);
    if (look.error != 0 && look.error != -ENOENT) return look.error;
    known = look.version();
  }
  *version = *known;
  return 0;
}

}  // namespace

bool Registry::IsRegistered(const Key& key, vconf_callback_fn callback) const {
  for (const auto& [context, watcher] : watchers_) {
    if (watcher->Has(key, callback)) return true;
  }
  return false;
}

/// Takes an entry without registrations out of the watchers at the end of the scope.
class Registry::DropIfEmpty {
 public:
  DropIfEmpty(Registry* registry, Watchers::iterator entry) : registry_(registry), entry_(entry) {}
  ~DropIfEmpty() {
    const std::shared_ptr<Watcher> watcher = entry_->second;
    if (watcher != nullptr && !watcher->IsEmpty()) return;
    registry_->watchers_.erase(entry_);
    if (watcher != nullptr) registry_->Keep(watcher->Detach());
  }
  DropIfEmpty(const DropIfEmpty&) = delete;
  DropIfEmpty& operator=(const DropIfEmpty&) = delete;

 private:
  Registry* registry_;
  Watchers::iterator entry_;
};

int Registry::Add(const Key& key, vconf_callback_fn callback, void* user_data) {
  ContextPointer context(g_main_context_ref_thread_default());
  const std::lock_guard lock(mutex_);
  if (IsRegistered(key, callback)) return -EEXIST;
  const auto entry = watchers_.try_emplace(context.get()).first;
  const DropIfEmpty drop(this, entry);
  if (entry->second == nullptr) {
    entry->second =
        std::make_shared<Watcher>(service_, &mutex_, std::move(context), TakeListener());
  }
  return Register(entry->second.get(), key, callback, user_data);
}

int Registry::Register(Watcher* watcher, const Key& key, vconf_callback_fn callback,
                       void* user_data) {
  // The watch stands before the look: a change after the look is noticed.
  if (int error = watcher->Prepare(key); error != 0) return error;
  auto registration = std::make_shared<Registration>();
  registration->callback = callback;
  registration->user_data = user_data;
  if (int error = FindKnownVersion(key, &registration->last); error != 0) return error;
  watcher->Add(key, std::move(registration));
  return 0;
}

int Registry::Remove(const Key& key, vconf_callback_fn callback) {
  const std::lock_guard lock(mutex_);
  for (auto entry = watchers_.begin(); entry != watchers_.end(); ++entry) {
    if (!entry->second->Has(key, callback)) continue;
    const DropIfEmpty drop(this, entry);
    entry->second->Remove(key, callback);
    return 0;
  }
  return -ENOENT;
}

std::unique_ptr<WakeListener> Registry::TakeListener() {
  for (auto& listener : spare_) {
    if (listener != nullptr) return std::exchange(listener, nullptr);
  }
  return std::make_unique<WakeListener>();
}

void Registry::Keep(std::unique_ptr<WakeListener> listener) noexcept {
  listener->Forget();
  const auto place = std::find(spare_.begin(), spare_.end(), nullptr);
  if (place != spare_.end()) *place = std::move(listener);
}

void Registry::AbandonInForkedChild() {
  for (auto& [context, watcher] : watchers_) {
    if (watcher != nullptr) watcher->AbandonInForkedChild();
  }
  for (auto& listener : spare_) {
    if (listener != nullptr) listener->Close();
  }
}

}  // namespace kavrel_vconf
