/** @file
 * A set of remote-control keys, in the order in which they were added.
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

/// A set of keys. A value like any other: copied and moved freely. One thread at a time. Every
/// change and look-up is logged, a refusal too; nothing fails.
class KAVREL_EXPORT CKeyRepository {
 public:
  /// An empty set.
  CKeyRepository();
  /// @{
  /// Copies and moves.
  CKeyRepository(const CKeyRepository& other);
  CKeyRepository(CKeyRepository&& other) noexcept;
  CKeyRepository& operator=(const CKeyRepository& other);
  CKeyRepository& operator=(CKeyRepository&& other) noexcept;
  /// @}
  virtual ~CKeyRepository();

  /// Adds the key at the end, unless it is held already.
  ///
  /// @param keyName  copied; an empty name is as good as any
  void AddKey(const std::string& keyName);

  /// Takes the key out; the others keep their order.
  ///
  /// @param keyName  an unknown one changes nothing
  void RemoveKey(const std::string& keyName);

  /// Takes all keys out.
  void RemoveAllKey();

  /// Whether the key is held.
  ///
  /// @param keyName  compared byte by byte
  bool IsRegistered(const std::string& keyName) const;

  /// One key.
  ///
  /// @param index  counted from 0
  /// @return the key's name; empty when there is none at `index`
  std::string GetKey(int index) const;

  /// How many keys are held.
  int Size() const;

 private:
  std::vector<std::string> keys_;
};
