#include "read_cache.h"

#include <cerrno>
#include <new>

namespace kavrel_vconf {
namespace {

constexpr std::size_t kMostKeys = 512;
constexpr std::size_t kLongestKeptText = 4096;

// The cache of a thread is destroyed before other thread-local objects whose destructors may still
// read keys; these then do without.
struct Owner {
  ReadCache cache;
  explicit Owner(bool* ended) : ended_(ended) {}
  ~Owner() { *ended_ = true; }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;

 private:
  bool* ended_;
};

}  // namespace

ReadCache* ReadCache::OfThisThread() {
  static thread_local bool ended = false;
  if (ended) return nullptr;
  static thread_local Owner owner(&ended);
  return &owner.cache;
}

const Store::Look* ReadCache::Find(const HashedName& name) const {
  const auto found = looks_.find(name);
  if (found == looks_.end()) return nullptr;
  const Store::Look& look = found->second;
  if (!IsSettled(look.word_value)) return nullptr;
  return look.word->load(std::memory_order_acquire) == look.word_value ? &look : nullptr;
}

void ReadCache::Remember(const HashedName& name, const Store::Look& look) noexcept {
  if (look.error != 0 && look.error != -ENOENT) return;
  try {
    Keep(name, look);
  } catch (const std::bad_alloc&) {
    looks_.clear();  // without memory everything is read from the store
  }
}

void ReadCache::Keep(const HashedName& name, const Store::Look& look) {
  auto found = looks_.find(name);
  if (found == looks_.end()) {
    if (looks_.size() >= kMostKeys) looks_.erase(looks_.begin());
    found = looks_.emplace(std::string(name.name), Store::Look()).first;
  }
  Store::Look& kept = found->second;
  kept = look;
  if (look.word == nullptr) kept.word_value = 1;
  if (kept.value.text.size() > kLongestKeptText) {
    kept.value.text = std::string();
    kept.word_value = 1;
  }
}

std::optional<Version> ReadCache::KnownVersion(const HashedName& name) const {
  const auto found = looks_.find(name);
  if (found == looks_.end()) return std::nullopt;
  return found->second.version();
}

}  // namespace kavrel_vconf
