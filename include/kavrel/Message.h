/** @file
 * What a host and a plug-in say to each other: an ordered list of key and value.
 *
 *     CMessage message;
 *     message.AddValue("command", "open");       // by convention, entry 0 names the message
 *     message.AddValue("page", "100");
 *     plugin->SendMessage(message, 1);
 *     ...
 *     if (received.GetKey(0) == "command" && received.GetValue("page") == "100") ...
 *
 * Pairs keep the order in which they were added, and a key may stand in a message more than once:
 * looking a key up finds its first pair; the others are reached by index. An absent key and a key
 * with an empty value look the same to GetValue(key); GetKey(index) tells them apart.
 *
 * Texts travel as UTF-8. A message with a text that is not UTF-8, with more than 65,536 pairs or of
 * more than 32 MiB can be built but not sent: the send fails and the log says why.
 */
#pragma once

#include <kavrel/export.h>

#include <string>
#include <utility>
#include <vector>

namespace kavreldbus {
class MessageCodec;
}

/// A list of key and value. A value like any other: copied and moved freely, and it owns its texts.
/// One thread at a time.
class KAVREL_EXPORT CMessage {
 public:
  /// An empty message.
  CMessage();
  /// @{
  /// Copies and moves.
  CMessage(const CMessage& other);
  CMessage(CMessage&& other) noexcept;
  CMessage& operator=(const CMessage& other);
  CMessage& operator=(CMessage&& other) noexcept;
  /// @}
  virtual ~CMessage();

  /// Appends the pair; one with the same key stays where it is.
  ///
  /// @param key    copied; with a null one nothing happens; an empty one is as good as any
  /// @param value  likewise
  void AddValue(const char* key, const char* value);

  /// How many pairs there are.
  int Size() const;

  /// Key of a pair.
  ///
  /// @param index  counted from 0
  /// @return the key; empty when there is no such pair
  std::string GetKey(int index) const;

  /// Value of a pair.
  ///
  /// @param index  counted from 0
  /// @return the value; empty when there is no such pair
  std::string GetValue(int index) const;

  /// Value of the first pair with a key.
  ///
  /// @param key  compared byte by byte
  /// @return the value; empty when there is no such pair and when `key` is null
  std::string GetValue(const char* key) const;

 private:
  friend class kavreldbus::MessageCodec;
  using Pair = std::pair<std::string, std::string>;

  const Pair* At(int index) const;

  std::vector<Pair> pairs_;
};
