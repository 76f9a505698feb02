#include "watcher.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "keynode.h"
#include "log.h"
#include "read_cache.h"
#include "service.h"

namespace kavrel_vconf {
namespace {

// Finding more changes than this at one look means being outrun.
constexpr std::uint64_t kManyChanges = 8;
constexpr std::int64_t kShortestPauseUs = 1000;
constexpr std::int64_t kLongestPauseUs = 4000;

// How often to look when the kernel has no file watch left for us.
constexpr std::int64_t kPollUs = 100'000;

struct WatcherSource {
  GSource base;
  std::shared_ptr<Watcher>* watcher;
};

gboolean DispatchSource(GSource* source, GSourceFunc, gpointer) {
  const std::shared_ptr<Watcher> watcher = *reinterpret_cast<WatcherSource*>(source)->watcher;
  if (watcher->IsInherited()) return G_SOURCE_REMOVE;
  try {
    watcher->Dispatch();
  } catch (const std::exception& error) {
    VCONF_LOG_ERROR("a delivery failed: %s", error.what());
  }
  return G_SOURCE_CONTINUE;
}

void FinalizeSource(GSource* source) {
  delete reinterpret_cast<WatcherSource*>(source)->watcher;
}

GSourceFuncs source_functions = {nullptr,        nullptr, DispatchSource,
                                 FinalizeSource, nullptr, nullptr};

template <typename List, typename Item>
std::shared_ptr<const List> With(const List& list, Item item) {
  auto longer = std::make_shared<List>(list);
  longer->push_back(std::move(item));
  return longer;
}

template <typename List, typename Item>
std::shared_ptr<const List> Without(const List& list, const Item& item) {
  auto shorter = std::make_shared<List>(list);
  shorter->erase(std::remove(shorter->begin(), shorter->end(), item), shorter->end());
  return shorter;
}

void Call(const Registration& registration, keynode_t* node) {
  try {
    registration.callback(node, registration.user_data);
  } catch (...) {
    VCONF_LOG_ERROR("a callback of \"%s\" threw an exception", vconf_keynode_get_name(node));
  }
}

}  // namespace

Watcher::~Watcher() {
  if (source_ != nullptr) g_source_unref(source_);
}

void Watcher::Attach(GMainContext* context) {
  source_ = g_source_new(&source_functions, sizeof(WatcherSource));
  reinterpret_cast<WatcherSource*>(source_)->watcher =
      new std::shared_ptr<Watcher>(shared_from_this());
  g_source_set_static_name(source_, "vconf");
  if (inotify_.fd() >= 0) g_source_add_unix_fd(source_, inotify_.fd(), G_IO_IN);
  g_source_attach(source_, context);
}

void Watcher::Detach() {
  g_source_destroy(source_);
  g_source_unref(std::exchange(source_, nullptr));
}

int Watcher::Prepare(const Key& key) {
  Watched& watched = WatchedOf(key.family);
  return watched.in_use ? 0 : Begin(key.family);
}

// The watch comes before the page: what replaces the files in between is then noticed.
int Watcher::Begin(Family family) {
  Watched& watched = WatchedOf(family);
  int error = 0;
  service_->StoreOf(family).Control(&error);
  if (error != 0) return error;
  const bool had_inotify = inotify_.fd() >= 0;
  if (!inotify_.Watch(WakePath(family)) && !polling_) {
    VCONF_LOG_WARNING("no file watch for %s (%s): looking every %d ms instead",
                      WakePath(family).c_str(), std::strerror(errno),
                      static_cast<int>(kPollUs / 1000));
    polling_ = true;
  }
  if (!had_inotify && inotify_.fd() >= 0 && source_ != nullptr) {
    g_source_add_unix_fd(source_, inotify_.fd(), G_IO_IN);
  }
  watched = Watched();
  watched.control = service_->StoreOf(family).Control(&error);
  watched.in_use = error == 0;
  return error;
}

std::shared_ptr<WatchedKey> Watcher::Find(const Key& key) const {
  for (const auto& watched_key : *keys_) {
    if (watched_key->name == key.name) return watched_key;
  }
  return nullptr;
}

bool Watcher::Has(const Key& key, vconf_callback_fn callback) const {
  const std::shared_ptr<WatchedKey> watched_key = Find(key);
  if (watched_key == nullptr) return false;
  const auto& registrations = *watched_key->registrations;
  return std::any_of(registrations.begin(), registrations.end(),
                     [callback](const auto& entry) { return entry->callback == callback; });
}

void Watcher::Add(const Key& key, std::shared_ptr<Registration> registration) {
  std::shared_ptr<WatchedKey> watched_key = Find(key);
  if (watched_key == nullptr) {
    watched_key = std::make_shared<WatchedKey>();
    watched_key->name = key.name;
    watched_key->hash = key.hash;
    watched_key->family = key.family;
    keys_ = With(*keys_, watched_key);
  }
  watched_key->registrations = With(*watched_key->registrations, std::move(registration));
  watched_key->seen_word = 1;
  // Whatever happened before, the context's own thread looks and goes to sleep properly.
  g_source_set_ready_time(source_, 0);
}

bool Watcher::Remove(const Key& key, vconf_callback_fn callback) {
  const std::shared_ptr<WatchedKey> watched_key = Find(key);
  if (watched_key == nullptr) return false;
  for (const auto& registration : *watched_key->registrations) {
    if (registration->callback != callback) continue;
    registration->active = false;
    watched_key->registrations = Without(*watched_key->registrations, registration);
    if (watched_key->registrations->empty()) keys_ = Without(*keys_, watched_key);
    return true;
  }
  return false;
}

void Watcher::Dispatch() {
  std::shared_ptr<const Keys> keys;
  {
    const std::lock_guard lock(*mutex_);
    if (source_ == nullptr) return;
    FollowReplacedStores(inotify_.fd() >= 0 && inotify_.Drain());
    for (Watched& watched : watched_) NoteSpeed(&watched);
    keys = keys_;
  }
  for (const auto& key : *keys) Deliver(key);
  const std::lock_guard lock(*mutex_);
  if (source_ != nullptr) PlanNextLook();
}

void Watcher::FollowReplacedStores(bool files_changed) {
  for (const Family family : {Family::kMemory, Family::kDurable}) {
    Watched& watched = WatchedOf(family);
    if (!watched.in_use || watched.control == nullptr) continue;
    if (!files_changed && watched.control->retired.load(std::memory_order_acquire) == 0) continue;
    // When it cannot be opened now, the old page stays and PlanNextLook has us try again.
    Begin(family);
    for (const auto& key : *keys_) {
      if (key->family == family) key->seen_word = 1;
    }
  }
}

bool Watcher::HasChanged(const WatchedKey& key) {
  ControlPage* control = WatchedOf(key.family).control;
  return control != nullptr &&
         control->WordOf(key.hash).load(std::memory_order_acquire) != key.seen_word;
}

void Watcher::Deliver(const std::shared_ptr<WatchedKey>& key) {
  std::shared_ptr<const WatchedKey::Registrations> registrations;
  {
    const std::lock_guard lock(*mutex_);
    if (!HasChanged(*key)) return;
    key->seen_word =
        WatchedOf(key->family).control->WordOf(key->hash).load(std::memory_order_acquire);
    registrations = key->registrations;
  }
  const Store::Look look = LookAt(key->AsKey());
  if (look.error != 0) return;
  _keynode_t node{key->name, look.value};
  for (const auto& registration : *registrations) {
    if (!registration->active || registration->last_revision == node.value.revision) continue;
    registration->last_revision = node.value.revision;
    Call(*registration, &node);
  }
}

void Watcher::NoteSpeed(Watched* watched) {
  if (watched->control == nullptr) return;
  const std::uint64_t sequence = watched->control->sequence.load(std::memory_order_relaxed);
  const std::uint64_t changes = sequence - std::exchange(watched->seen_sequence, sequence);
  const bool outrun = changes > kManyChanges && changes < sequence;
  watched->pause_us =
      outrun ? std::clamp(watched->pause_us * 2, kShortestPauseUs, kLongestPauseUs) : 0;
}

// Takes a ticket unless the last one still stands; see WakeWatchers.
void Watcher::Sleep(Watched* watched) {
  ControlPage* control = watched->control;
  if (watched->ticket > control->woken.load(std::memory_order_relaxed)) return;
  watched->ticket = control->asleep.fetch_add(1, std::memory_order_seq_cst) + 1;
}

void Watcher::PlanNextLook() {
  std::int64_t pause = polling_ ? kPollUs : -1;
  for (Watched& watched : watched_) {
    if (watched.control == nullptr) continue;
    if (watched.control->retired.load(std::memory_order_acquire) != 0) watched.pause_us = kPollUs;
    if (watched.pause_us == 0) {
      Sleep(&watched);
    } else {
      pause = pause < 0 ? watched.pause_us : std::min(pause, watched.pause_us);
    }
  }
  std::atomic_thread_fence(std::memory_order_seq_cst);
  const auto changed = [this](const auto& key) { return HasChanged(*key); };
  if (pause < 0 && std::any_of(keys_->begin(), keys_->end(), changed)) pause = 0;
  g_source_set_ready_time(source_, pause > 0 ? g_get_monotonic_time() + pause : pause);
}

bool Watcher::IsInherited() const {
  return service_ != &Service::Instance();
}

void Watcher::AbandonInForkedChild() {
  inotify_.Close();
}

}  // namespace kavrel_vconf
