#include "registry.h"

#include <cerrno>
#include <utility>

#include "read_cache.h"
#include "service.h"
#include "watcher.h"

namespace kavrel_vconf {
namespace {

constexpr std::size_t kMostSpare = 4;

// The revision that the caller knows: what it last saw of the key, so that a change since then is
// delivered; of a key that it never looked at, what is there now.
int FindKnownRevision(const Key& key, std::uint64_t* revision) {
  std::optional<std::uint64_t> known;
  if (ReadCache* cache = ReadCache::OfThisThread()) known = cache->KnownRevision(key);
  if (!known) {
    const Store::Look look = LookAt(key);
    if (look.error != 0 && look.error != -ENOENT) return look.error;
    known = look.value.revision;
  }
  *revision = *known;
  return 0;
}

}  // namespace

bool Registry::IsRegistered(const Key& key, vconf_callback_fn callback) const {
  for (const auto& [context, watcher] : watchers_) {
    if (watcher->Has(key, callback)) return true;
  }
  return false;
}

int Registry::Add(const Key& key, vconf_callback_fn callback, void* user_data) {
  ContextPointer context(g_main_context_ref_thread_default());
  const std::lock_guard lock(mutex_);
  if (IsRegistered(key, callback)) return -EEXIST;
  const auto found = watchers_.find(context.get());
  GMainContext* const address = context.get();
  const std::shared_ptr<Watcher> watcher =
      found != watchers_.end()
          ? found->second
          : std::make_shared<Watcher>(service_, &mutex_, std::move(context), TakeListener());
  const int error = Register(watcher.get(), key, callback, user_data);
  if (found != watchers_.end()) return error;
  if (error != 0) {
    Keep(watcher->Detach());
    return error;
  }
  watchers_.emplace(address, watcher);
  return 0;
}

int Registry::Register(Watcher* watcher, const Key& key, vconf_callback_fn callback,
                       void* user_data) {
  // The watch stands before the look: a change after the look is noticed.
  if (int error = watcher->Prepare(key); error != 0) return error;
  auto registration = std::make_shared<Registration>();
  registration->callback = callback;
  registration->user_data = user_data;
  if (int error = FindKnownRevision(key, &registration->last_revision); error != 0) return error;
  watcher->Add(key, std::move(registration));
  return 0;
}

int Registry::Remove(const Key& key, vconf_callback_fn callback) {
  const std::lock_guard lock(mutex_);
  for (auto entry = watchers_.begin(); entry != watchers_.end(); ++entry) {
    const std::shared_ptr<Watcher> watcher = entry->second;
    if (!watcher->Remove(key, callback)) continue;
    if (watcher->IsEmpty()) {
      Keep(watcher->Detach());
      watchers_.erase(entry);
    }
    return 0;
  }
  return -ENOENT;
}

std::unique_ptr<WakeListener> Registry::TakeListener() {
  if (spare_.empty()) return std::make_unique<WakeListener>();
  std::unique_ptr<WakeListener> listener = std::move(spare_.back());
  spare_.pop_back();
  return listener;
}

void Registry::Keep(std::unique_ptr<WakeListener> listener) {
  listener->Forget();
  if (spare_.size() < kMostSpare) spare_.push_back(std::move(listener));
}

void Registry::AbandonInForkedChild() {
  for (auto& [context, watcher] : watchers_) watcher->AbandonInForkedChild();
  for (auto& listener : spare_) listener->Close();
}

}  // namespace kavrel_vconf
