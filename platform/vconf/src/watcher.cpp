#include "watcher.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "barrier.h"
#include "keynode.h"
#include "log.h"
#include "read_cache.h"
#include "service.h"

namespace kavrel_vconf {
namespace {

// Finding more changes than this at one look means being outrun.
constexpr std::uint64_t kManyChanges = 8;
constexpr std::int64_t kShortestPauseUs = 1000;
constexpr std::int64_t kLongestPauseUs = 7000;

constexpr std::int64_t kRetryUs = 100'000;

// How often to look whatever the listener says; negative: never.
std::int64_t PollInterval(WakeListener::Reach reach) {
  switch (reach) {
    case WakeListener::Reach::kEverything:
      return -1;
    case WakeListener::Reach::kWakeUps:
      return 1'000'000;
    default:
      return kRetryUs;
  }
}

// The sooner of two times to come; negative ones never come.
std::int64_t Sooner(std::int64_t a, std::int64_t b) {
  if (a < 0) return b;
  return b < 0 ? a : std::min(a, b);
}

struct WatcherSource {
  GSource base;
  std::shared_ptr<Watcher>* watcher;
};

// A callback may run the main context itself, within which nothing is to be delivered. GLib would
// see to that by taking the descriptor out of the poll set for every delivery and waking itself up
// twice: four system calls more than the delivery takes. So GLib is told that this source may be
// called within itself, and the descriptor is taken out only when that really happens.
gboolean DispatchSource(GSource* source, GSourceFunc, gpointer) {
  const std::shared_ptr<Watcher> watcher = *reinterpret_cast<WatcherSource*>(source)->watcher;
  if (watcher->IsInherited()) return G_SOURCE_REMOVE;
  if (!watcher->BeginDelivery()) return G_SOURCE_CONTINUE;
  try {
    watcher->Dispatch();
  } catch (const std::exception& error) {
    VCONF_LOG_ERROR("a delivery failed: %s", error.what());
    watcher->LookAgainLater();
  }
  watcher->EndDelivery();
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

template <typename List, typename IsOver>
std::shared_ptr<const List> Without(const List& list, IsOver is_over) {
  auto shorter = std::make_shared<List>(list);
  shorter->erase(std::remove_if(shorter->begin(), shorter->end(), is_over), shorter->end());
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

void Watcher::Attach() {
  auto self = std::make_unique<std::shared_ptr<Watcher>>(shared_from_this());
  source_ = g_source_new(&source_functions, sizeof(WatcherSource));
  reinterpret_cast<WatcherSource*>(source_)->watcher = self.release();
  g_source_set_static_name(source_, "vconf");
  g_source_set_can_recurse(source_, TRUE);
  Unmute();
  g_source_attach(source_, context_.get());
}

void Watcher::Mute() {
  if (poll_tag_ != nullptr) g_source_remove_unix_fd(source_, std::exchange(poll_tag_, nullptr));
  g_source_set_ready_time(source_, -1);
}

void Watcher::Unmute() {
  if (poll_tag_ != nullptr || listener_->fd() < 0) return;
  poll_tag_ = g_source_add_unix_fd(source_, listener_->fd(), G_IO_IN);
}

bool Watcher::BeginDelivery() {
  if (!std::exchange(is_delivering_, true)) return true;
  is_muted_ = true;
  const std::lock_guard lock(*mutex_);
  if (source_ != nullptr) Mute();
  return false;
}

void Watcher::EndDelivery() {
  is_delivering_ = false;
  if (!std::exchange(is_muted_, false)) return;
  const std::lock_guard lock(*mutex_);
  if (source_ != nullptr) Unmute();
}

std::unique_ptr<WakeListener> Watcher::Detach() {
  if (source_ != nullptr) {
    g_source_destroy(source_);
    g_source_unref(std::exchange(source_, nullptr));
    poll_tag_ = nullptr;
  }
  return std::move(listener_);
}

int Watcher::Prepare(const Key& key) {
  Watched& watched = WatchedOf(key.family);
  return watched.in_use ? 0 : Begin(key.family);
}

int Watcher::Begin(Family family) {
  Watched& watched = WatchedOf(family);
  int error = 0;
  service_->StoreOf(family).Control(&error);
  if (error != 0) return error;
  const WakeListener::Reach reach = Listen(family);
  // Listening comes before the page: whatever replaces the files from now on is noticed.
  ControlPage* control = service_->StoreOf(family).Control(&error);
  if (error != 0) return error;
  if (control != watched.control) watched = Watched();
  watched.control = control;
  watched.reach = reach;
  watched.in_use = true;
  return 0;
}

WakeListener::Reach Watcher::Listen(Family family) {
  const bool was_open = listener_->fd() >= 0;
  const std::string path = WakePath(family);
  const WakeListener::Reach reach = listener_->Listen(path);
  if (reach != WakeListener::Reach::kEverything && WatchedOf(family).reach != reach) {
    VCONF_LOG_WARNING("cannot listen to %s fully (%s): looking every %d ms", path.c_str(),
                      std::strerror(errno), static_cast<int>(PollInterval(reach) / 1000));
  }
  if (!was_open && source_ != nullptr) Unmute();
  return reach;
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
  return std::any_of(registrations.begin(), registrations.end(), [callback](const auto& entry) {
    return entry->active && entry->callback == callback;
  });
}

void Watcher::Add(const Key& key, std::shared_ptr<Registration> registration) {
  std::shared_ptr<WatchedKey> watched_key = Find(key);
  std::shared_ptr<const Keys> keys = keys_;
  if (watched_key == nullptr) {
    watched_key = std::make_shared<WatchedKey>();
    watched_key->name = key.name;
    watched_key->hash = key.hash;
    watched_key->family = key.family;
    keys = With(*keys_, watched_key);
  }
  auto registrations = With(*watched_key->registrations, std::move(registration));
  if (source_ == nullptr) Attach();
  // Nothing below can fail.
  watched_key->registrations = std::move(registrations);
  watched_key->seen_word = 1;
  keys_ = std::move(keys);
  // Whatever happened before, the context's own thread looks and goes to sleep properly.
  g_source_set_ready_time(source_, 0);
}

void Watcher::Remove(const Key& key, vconf_callback_fn callback) {
  const std::shared_ptr<WatchedKey> watched_key = Find(key);
  if (watched_key == nullptr) return;
  for (const auto& registration : *watched_key->registrations) {
    if (!registration->active || registration->callback != callback) continue;
    registration->active = false;
    return Tidy(watched_key.get());
  }
}

// What is over stays in the lists when there is no memory for shorter ones, and goes with the next
// that is over.
void Watcher::Tidy(WatchedKey* watched_key) {
  try {
    watched_key->registrations =
        Without(*watched_key->registrations, [](const auto& entry) { return !entry->active; });
    keys_ = Without(*keys_, [](const auto& entry) { return entry->registrations->empty(); });
  } catch (const std::bad_alloc&) {
    VCONF_LOG_WARNING("no memory to forget a watcher of \"%s\"", watched_key->name.c_str());
  }
}

void Watcher::Dispatch() {
  std::shared_ptr<const Keys> keys;
  {
    const std::lock_guard lock(*mutex_);
    if (source_ == nullptr) return;
    for (Watched& watched : watched_) NoteSpeed(&watched);
    keys = keys_;
  }
  for (const auto& key : *keys) Deliver(key);
  // Callbacks come first, what the kernel wants done afterwards: a change whose event is taken here
  // unseen is found by the look before the sleep.
  const std::lock_guard lock(*mutex_);
  if (source_ == nullptr) return;
  TakeEvents();
  PlanNextLook();
}

void Watcher::TakeEvents() {
  WakeListener::Events events;
  if (listener_->fd() >= 0) events = listener_->Drain();
  // Whoever woke us may not have noted it yet: our ticket is used up all the same.
  if (events.any) {
    for (Watched& watched : watched_) watched.ticket = 0;
  }
  FollowReplacedStores(events.removed);
}

void Watcher::FollowReplacedStores(bool files_changed) {
  for (const Family family : {Family::kMemory, Family::kDurable}) {
    const Watched& watched = WatchedOf(family);
    if (watched.control == nullptr || !MayBeReplaced(family, files_changed)) continue;
    // When it cannot be opened now, the old page stays and PlanNextLook has us try again.
    const ControlPage* const before = watched.control;
    if (Begin(family) == 0 && watched.control == before) continue;
    for (const auto& key : *keys_) {
      if (key->family == family) key->seen_word = 1;
    }
  }
}

bool Watcher::MayBeReplaced(Family family, bool files_changed) {
  const Watched& watched = WatchedOf(family);
  if (files_changed || watched.IsRetired() || watched.reach == WakeListener::Reach::kNothing) {
    return true;
  }
  if (watched.reach == WakeListener::Reach::kEverything) return false;
  int error = 0;  // nobody tells of removed files: look
  return service_->StoreOf(family).Control(&error) != watched.control;
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
    key->seen_word = WatchedOf(key->family).control->WordOf(key->hash).load();
    registrations = key->registrations;
  }
  Store::Look look = LookAt(key->AsKey());
  if (look.error != 0 && look.error != -ENOENT) NoteFailure(key.get());
  if (look.error != 0) return;
  const auto version = look.version();
  _keynode_t node{key->name, std::move(look.value)};
  for (const auto& registration : *registrations) {
    if (!registration->active || registration->last == version) continue;
    registration->last = version;
    Call(*registration, &node);
  }
}

void Watcher::NoteFailure(WatchedKey* key) {
  const std::lock_guard lock(*mutex_);
  key->seen_word = 1;
  look_failed_ = true;
}

void Watcher::LookAgainLater() {
  const std::lock_guard lock(*mutex_);
  if (source_ != nullptr) TakeEvents();
  for (const auto& key : *keys_) key->seen_word = 1;
  if (source_ != nullptr) g_source_set_ready_time(source_, g_get_monotonic_time() + kRetryUs);
}

void Watcher::NoteSpeed(Watched* watched) {
  if (watched->control == nullptr) return;
  const std::uint64_t sequence = watched->control->sequence.load(std::memory_order_relaxed);
  const std::uint64_t changes = sequence - std::exchange(watched->seen_sequence, sequence);
  const bool outrun = changes > kManyChanges && changes < sequence;
  watched->pause_us =
      outrun ? std::clamp(watched->pause_us * 2, kShortestPauseUs, kLongestPauseUs) : 0;
}

void Watcher::PlanNextLook() {
  std::int64_t pause = -1;
  for (Watched& watched : watched_) {
    if (watched.control == nullptr) continue;
    pause = Sooner(pause, PollInterval(watched.reach));
    if (watched.IsRetired()) pause = Sooner(pause, kRetryUs);
    if (watched.pause_us > 0) {
      pause = Sooner(pause, watched.pause_us);
    } else if (watched.ticket <= watched.control->woken.load(std::memory_order_relaxed)) {
      watched.ticket = watched.control->asleep.fetch_add(1, std::memory_order_seq_cst) + 1;
    }
  }
  FullBarrier();
  const auto changed = [this](const auto& key) {
    return WatchedOf(key->family).pause_us == 0 && HasChanged(*key);
  };
  if (std::exchange(look_failed_, false)) {
    pause = Sooner(pause, kRetryUs);
  } else if (std::any_of(keys_->begin(), keys_->end(), changed)) {
    pause = 0;
  }
  g_source_set_ready_time(source_, pause > 0 ? g_get_monotonic_time() + pause : pause);
}

bool Watcher::IsInherited() const {
  return service_ != &Service::Instance();
}

void Watcher::AbandonInForkedChild() {
  listener_->Close();
}

}  // namespace kavrel_vconf
