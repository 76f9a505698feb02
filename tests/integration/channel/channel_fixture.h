// What the channel's tests stand on: a bus, a log, a loop to iterate, and ends whose insides show.
#pragma once

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bus_peer.h"
#include "dlog_capture.h"
#include "legacy/HostDbus.h"
#include "legacy/PluginDbus.h"
#include "private_bus.h"

namespace kavrel_test {

/// Runs the default main context until `done`; false when that takes longer than anything healthy.
[[nodiscard]] inline bool IterateUntil(const std::function<bool()>& done) {
  bool late = false;
  const guint limit = g_timeout_add(
      static_cast<guint>(kGenerous.count()),
      [](void* flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_CONTINUE;
      },
      &late);
  while (!late && !done()) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(limit);
  return !late;
}

/// Dispatches what is waiting, without waiting for more.
inline void IteratePending() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

inline CMessage MessageOf(const Pairs& pairs) {
  CMessage message;
  for (const auto& [key, value] : pairs) message.AddValue(key.c_str(), value.c_str());
  return message;
}

inline Pairs PairsOf(const CMessage& message) {
  Pairs pairs;
  for (int i = 0; i < message.Size(); ++i) {
    pairs.emplace_back(message.GetKey(i), message.GetValue(i));
  }
  return pairs;
}

/// Names a parameterised test by its place: for values that do not make a name.
template <class Value>
std::string Numbered(const testing::TestParamInfo<Value>& instance) {
  return std::to_string(instance.index);
}

/// Counts what an end tells its owner.
struct Changes {
  int connected = 0;
  int disconnected = 0;

  void Follow(kavreldbus::CBaseDbus& end) {
    end.SetConnectionChangedCallback(
        [](void* self) { ++static_cast<Changes*>(self)->connected; },
        [](void* self) { ++static_cast<Changes*>(self)->disconnected; }, this);
  }
};

/// An end with its protected parts in reach.
template <class Base>
class Open : public Base {
 public:
  using Base::Base;
  using Base::m_AckNameOwnerChangedCallback;
  using Base::m_MethodCallback;
  using Base::m_NameOwnerChangedCallback;
  using Base::m_PartnerNameVanishedCallback;
  using Base::m_SendAsyncMessage;
  using Base::m_SendSyncMessage;
  using Base::m_SignalCallback;
  using Base::m_SynAckNameOwnerChangedCallback;
  using Base::m_SynNameOwnerChangedCallback;
  using Base::State;
};
using OpenBase = Open<kavreldbus::CBaseDbus>;
using OpenHost = Open<kavreldbus::CHostDbus>;
using OpenPlugin = Open<kavreldbus::CPluginDbus>;

inline constexpr const char* kHost = "kavrel";
inline constexpr const char* kPlugin = "hello";
inline constexpr const char* kBaseName = "org.zarnet.kavrel.hello";
inline constexpr const char* kInterface = "org.zarnet.kavrel.DbusCommunication";
inline constexpr const char* kPath = "/org/zarnet/kavrel/CommunicationChannel/hello";

/// A test with a bus and the log of this process.
class ChannelTest : public testing::Test {
 protected:
  /// The error lines so far, without their places.
  std::vector<std::string> Errors() const {
    std::vector<std::string> texts;
    for (const LogEntry& entry : log_.entries()) {
      if (entry.priority == kLogError) texts.push_back(entry.text);
    }
    return texts;
  }
  std::size_t CountLines(const std::string& text) const {
    std::size_t count = 0;
    for (const LogEntry& entry : log_.entries()) {
      if (entry.text.find(text) != std::string::npos) ++count;
    }
    return count;
  }

  DlogCapture log_;
  PrivateBus bus_;
};

/// This process's name on the bus.
inline std::string OwnUniqueName() {
  GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
  std::string name = g_dbus_connection_get_unique_name(connection);
  g_object_unref(connection);
  return name;
}

}  // namespace kavrel_test
