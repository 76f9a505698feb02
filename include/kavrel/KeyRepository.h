/* A set of remote-control keys, in the order in which they were added.
 *
 *     CKeyRepository keys;
 *     keys.AddKey("XF86Red");
 *     keys.AddKey("Return");
 *     plugin->RegsiterKeyRepository(keys);
 *
 * A key is named as the viewer's keyboard names it (EFL's key names: "Return", "XF86Red"); names
 * are compared byte by byte. Look-ups are linear: it is meant for a handful of keys.
 */
#pragma once

#include <kavrel/export.h>

#include <string>
#include <vector>

/// A value like any other: copied and moved freely. One thread at a time. Every change and look-up
/// is logged, a refusal too; nothing fails.
class KAVREL_EXPORT CKeyRepository {
 public:
  /// An empty set.
  CKeyRepository();
  CKeyRepository(const CKeyRepository& other);
  CKeyRepository(CKeyRepository&& other) noexcept;
  CKeyRepository& operator=(const CKeyRepository& other);
  CKeyRepository& operator=(CKeyRepository&& other) noexcept;
  virtual ~CKeyRepository();

  /// Adds the key at the end, unless it is held already. An empty name is as good as any.
  void AddKey(const std::string& keyName);

  /// Takes the key out; the others keep their order. An unknown one changes nothing.
  void RemoveKey(const std::string& keyName);

  /// Takes all keys out.
  void RemoveAllKey();

  /// Whether the key is held.
  bool IsRegistered(const std::string& keyName) const;

  /// The key at `index`, counted from 0; empty when there is none.
  std::string GetKey(int index) const;

  /// How many keys are held.
  int Size() const;

 private:
  std::vector<std::string> keys_;
};
