#include "AuxDbusServer.h"

#include <utility>

#include "AuxDbusNames.h"
#include "CallbackGuard.h"
#include "ChannelLog.h"
#include "SystemBus.h"

namespace glib = kavrel::glib;
using kavrel::Here;
using kavreldbus::AuxName;
using kavreldbus::AuxPath;
using kavreldbus::OrNone;

CAuxDbusServer::CAuxDbusServer(std::string channel) : m_Name(std::move(channel)) {
  const std::string name = AuxName(m_Name);
  m_Ownership = glib::OwnNameOnSystemBus(name.c_str(), &CAuxDbusServer::m_OnDbusAcquiredCb, this);
  if (!m_Ownership) CHANNEL_ERROR(Here(), "\"%s\" is not a name of a bus\n", name.c_str());
}

CAuxDbusServer::~CAuxDbusServer() {
  m_Subscription.Reset();
  m_Ownership.Reset();
}

void CAuxDbusServer::SetAuxDbusSignalCb(bool (*cb)(const char*, int, bool, void*), void* userData) {
  m_Callback = cb;
  m_UserData = userData;
}

// Runs before the name is granted, so that no event sent to the name's owner can be missed.
void CAuxDbusServer::m_OnDbusAcquiredCb(GDBusConnection* connection, const char* name,
                                        void* server) {
  CHANNEL_INFO(Here(), "bus name acquired, connection = %p\n", static_cast<void*>(connection));
  if (server == nullptr) {
    CHANNEL_ERROR(Here(), "user data is NULL!\n");
    return;
  }
  auto& self = *static_cast<CAuxDbusServer*>(server);
  kavreldbus::RunToItsEnd(Here(), [&] {
    kavreldbus::PrepareConnection(connection);
    const std::string path = AuxPath(self.m_Name);
    self.m_Subscription =
        glib::SubscribeToSignals(connection, {.interface = name, .path = path.c_str()},
                                 &CAuxDbusServer::m_OnSignalCallCb, &self);
  });
  if (!self.m_Subscription) CHANNEL_ERROR(Here(), "subscribe for signal failed\n\n");
}

void CAuxDbusServer::m_OnSignalCallCb(GDBusConnection* connection, const char* sender,
                                      const char* objectPath, const char* interfaceName,
                                      const char* signalName, GVariant* parameters, void* server) {
  CHANNEL_INFO(Here(), "sender=%s obj_path=%s iface_name=%s signal_name=%s\n", OrNone(sender),
               OrNone(objectPath), OrNone(interfaceName), OrNone(signalName));
  if (server == nullptr || connection == nullptr) {
    CHANNEL_ERROR(Here(), "Empty user_data or invalid connection.\n");
    return;
  }
  const auto& self = *static_cast<CAuxDbusServer*>(server);
  bool is_ours = false;
  kavreldbus::RunToItsEnd(Here(), [&] { is_ours = AuxPath(self.m_Name) == OrNone(objectPath); });
  if (!is_ours) return;
  if (parameters == nullptr ||
      !g_variant_is_of_type(parameters, G_VARIANT_TYPE(kavreldbus::kAuxBodyType))) {
    CHANNEL_ERROR(Here(), "Event from %s dropped: body of type %s, must be %s\n", OrNone(sender),
                  parameters == nullptr ? "none" : g_variant_get_type_string(parameters),
                  kavreldbus::kAuxBodyType);
    return;
  }
  const char* text = nullptr;
  gint32 value = 0;
  gint32 flag = 0;
  g_variant_get(parameters, "(&sii)", &text, &value, &flag);
  if (self.m_Callback == nullptr) return;
  kavreldbus::RunToItsEnd(Here(),
                          [&] { self.m_Callback(text, value, flag == 1, self.m_UserData); });
}
