// A plug-in's side of its host's auxiliary channel: it sends events, and sees whether the host is
// there.
#pragma once

#include <string>

#include "../common/glib.h"

/// Thread: the watch's handlers are called on the main context that is the default of the thread
/// that registers them. Sending is safe on any thread.
///
/// Blocking: making a client logs in to the bus (at most 25 s); destroying it waits until its last
/// events have left the process (at most 5 s).
class CAuxDbusClient {
 public:
  using AppearedHandler = void (*)(GDBusConnection*, const char* name, const char* owner, void*);
  using VanishedHandler = void (*)(GDBusConnection*, const char* name, void*);

  /// Without a bus the client sends nothing, and each attempt is logged.
  explicit CAuxDbusClient(std::string channel);
  CAuxDbusClient(const CAuxDbusClient&) = delete;
  CAuxDbusClient& operator=(const CAuxDbusClient&) = delete;

  /// Does not stop the watch: UnregisterDbusNameHandler() comes first, or the handlers go on being
  /// called.
  virtual ~CAuxDbusClient();

  /// Watches the host's name. One of the two is called soon, whether or not the host is there, and
  /// then at each change. When the bus itself is lost "vanished" gets a null connection, unless it
  /// was the last one called. An earlier watch is not stopped, and can no longer be.
  void RegisterDbusNameHandler(AppearedHandler appeared, VanishedHandler vanished, void* userData);

  /// Stops the watch, if there is one; on the thread that registered it no handler is called after.
  void UnregisterDbusNameHandler();

  /// Broadcasts one event. It does not wait for the host: with none running the event is lost. A
  /// null text is not sent.
  void SendNotification(const char* text, int value, bool flag);

 private:
  kavrel::glib::Connection m_Connection;
  kavrel::glib::NameWatch m_Watch;
  std::string m_Name;
};
