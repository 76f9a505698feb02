// What a thread has read, kept for as long as it is true. A key that nobody has changed since is
// read again without entering the store: one comparison with its word in the control page.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "key.h"
#include "store.h"

namespace kavrel_vconf {

/// Belongs to one thread. Holds a limited number of keys, and of long texts only the revision.
class ReadCache {
 public:
  /// Null while the thread is ending.
  static ReadCache* OfThisThread();

  /// The look kept for this key if it is still what the store holds, otherwise null. Valid until
  /// the next call that changes the cache.
  const Store::Look* Find(const HashedName& name) const;

  void Remember(const HashedName& name, const Store::Look& look) noexcept;

  /// What this thread last saw of the key; nothing when it has not looked (or too long ago).
  std::optional<Version> KnownVersion(const HashedName& name) const;

 private:
  void Keep(const HashedName& name, const Store::Look& look);

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const HashedName& name) const {
      return static_cast<std::size_t>(name.hash);
    }
    std::size_t operator()(const std::string& name) const {
      return static_cast<std::size_t>(HashName(name.c_str())->hash);
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const HashedName& a, const std::string& b) const { return a.name == b; }
    bool operator()(const std::string& a, const HashedName& b) const { return a == b.name; }
    bool operator()(const std::string& a, const std::string& b) const { return a == b; }
  };
  std::unordered_map<std::string, Store::Look, Hash, Equal> looks_;
};

}  // namespace kavrel_vconf
