// The listening side of a host's auxiliary channel: one well-known name on the system bus, by which
// plug-ins see that the host is there, and one kind of signal - a text, a number, a flag - that
// anybody who may send it can broadcast without a handshake.
#pragma once

#include <string>

#include "../common/glib.h"

/// Thread: belongs to the main context that is the default of the thread that makes it; events are
/// dispatched there while its loop runs, and the server is destroyed there. Nothing blocks but the
/// destructor, which gives the name back (at most 25 s with a bus that does not answer).
///
/// Who may send is the bus's policy: without one, any local user's events arrive.
class CAuxDbusServer {
 public:
  /// Starts owning the name of `channel` (its '-' left out). It is owned a moment later, when the
  /// bus has been connected to; nobody is told when that fails.
  explicit CAuxDbusServer(std::string channel);
  CAuxDbusServer(const CAuxDbusServer&) = delete;
  CAuxDbusServer& operator=(const CAuxDbusServer&) = delete;
  virtual ~CAuxDbusServer();

  /// Sets what takes events, in the place of what was set before; null takes none. `cb` gets the
  /// text, valid during the call, the number, the flag (true for exactly 1) and `userData`; what it
  /// returns does not matter. It must not throw; it may destroy the server.
  void SetAuxDbusSignalCb(bool (*cb)(const char*, int, bool, void*), void* userData);

 protected:
  static void m_OnDbusAcquiredCb(GDBusConnection* connection, const char* name, void* server);
  static void m_OnSignalCallCb(GDBusConnection* connection, const char* sender,
                               const char* objectPath, const char* interfaceName,
                               const char* signalName, GVariant* parameters, void* server);

 private:
  std::string m_Name;
  kavrel::glib::NameOwnership m_Ownership;
  kavrel::glib::Subscription m_Subscription;
  bool (*m_Callback)(const char*, int, bool, void*) = nullptr;
  void* m_UserData = nullptr;
};
