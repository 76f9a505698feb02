#include "ViewerPlugin.h"

#include <lwipc.h>

#include <cstdint>
#include <new>
#include <string_view>
#include <utility>

#include "../common/assertion.h"
#include "CallbackGuard.h"
#include "ChannelLog.h"
#include "Util.h"

using kavrel::Assert;
using kavrel::Here;
using kavrel::SourceLine;
using kavreldbus::CPluginDbus;

namespace {

constexpr std::string_view kHostWithStatesAndMessages = "kavrel";
constexpr const char* kReadyEvent = "/tmp/%s-host_ready";
/// A press that took longer to get here is dropped: the user has long pressed something else.
constexpr std::uint64_t kOldestPressMillis = 1000;

/// The note is wrong, and known by it.
constexpr const char* kNoChannel = "m_ePluginType is NULL";
constexpr const char* kNoListener = "listener is NULL";

int StateCode(std::string_view state) {
  if (state == "BACKGROUND") return 0;
  if (state == "RESUME") return 1;
  if (state == "RESUME_FOCUS") return 2;
  if (state == "PAUSE") return 3;
  return -1;
}

int DeviceCode(std::string_view device) {
  if (device.empty()) return -1;
  if (device == "IR") return 0;
  if (device == "SR") return 1;
  if (device == "VR") return 2;
  if (device == "PANEL_KEY") return 3;
  return 4;
}

}  // namespace

CViewerPlugin::CViewerPlugin(VIEWER_PLUGIN_TYPE type, std::string pluginName, std::string hostName)
    : m_Type(type), m_PluginName(std::move(pluginName)), m_HostName(std::move(hostName)) {
  m_AuxClient.reset(new (std::nothrow) CAuxDbusClient(m_HostName));
  if (!m_AuxClient) {
    CHANNEL_ERROR(Here(), "Failed to create auxiliary dbus for plugin: %s!\n",
                  m_PluginName.c_str());
    return;
  }
  try {
    m_Connect(Here());
  } catch (...) {
    // The client by itself lets the watch of the host's name, which calls this object, stand.
    m_AuxClient->UnregisterDbusNameHandler();
    throw;
  }
}

void CViewerPlugin::m_Connect(SourceLine where) {
  m_AuxClient->RegisterDbusNameHandler(&CViewerPlugin::m_AuxDbusNameAppearedCallback,
                                       &CViewerPlugin::m_AuxDbusNameVanishedCallback, this);
  m_Channel.reset(new (std::nothrow) CPluginDbus(m_HostName, m_PluginName));
  if (!m_Channel) {
    CHANNEL_ERROR(where, "Failed to create dbus for plugin: %s!\n", m_PluginName.c_str());
    return;
  }
  m_AuxClient->SendNotification(m_PluginName.c_str(), m_Type, true);
  m_Channel->SetPluginDubsMsgCB([this](CMessage& message) { return HandleMessage(message); });
}

CViewerPlugin::~CViewerPlugin() {
  if (m_AuxClient) {
    m_AuxClient->UnregisterDbusNameHandler();
    m_AuxClient->SendNotification(m_PluginName.c_str(), m_Type, false);
    m_AuxClient.reset();
  }
  m_Channel.reset();
}

void CViewerPlugin::RegisterKeyInputListener(IKeyInputListener* listener) {
  Assert(listener != nullptr, Here(), kNoListener);
  m_KeyListener = listener;
}

void CViewerPlugin::RegisterViewerStateChangeListener(IViewerStateChangeListener* listener) {
  Assert(listener != nullptr, Here(), kNoListener);
  m_StateListener = listener;
}

void CViewerPlugin::RegisterViewerMessageListener(IViewerMessageListener* listener) {
  Assert(listener != nullptr, Here(), kNoListener);
  m_MessageListener = listener;
}

void CViewerPlugin::UnregisterKeyInputListener() {
  m_KeyListener = nullptr;
}

void CViewerPlugin::UnregisterViewerStateChangeListener() {
  m_StateListener = nullptr;
}

void CViewerPlugin::UnregisterViewerMessageListener() {
  m_MessageListener = nullptr;
}

bool CViewerPlugin::RegsiterKeyRepository(CKeyRepository& keys) {
  return m_SendRepositoryKey("register_key", keys);
}

bool CViewerPlugin::ClearKeyRepository() {
  return m_SendName("clear_key");
}

bool CViewerPlugin::RegisterExclusiveKeyRepository(CKeyRepository& keys) {
  return m_SendRepositoryKey("register_exclusive_key", keys);
}

bool CViewerPlugin::UnregisterExclusiveKeyRepository(CKeyRepository& keys) {
  return m_SendRepositoryKey("unregister_exclusive_key", keys);
}

bool CViewerPlugin::ClearExclusiveKeyRepository() {
  return m_SendName("clear_exclusive_key");
}

void CViewerPlugin::Show() {
  Assert(m_Channel != nullptr, Here(), kNoChannel);
  m_SendName("show");
}

void CViewerPlugin::Hide() {
  Assert(m_Channel != nullptr, Here(), kNoChannel);
  m_SendName("hide");
}

void CViewerPlugin::Enable(std::string what) {
  Assert(m_Channel != nullptr, Here(), kNoChannel);
  m_SendSwitch("enable", what);
}

void CViewerPlugin::Disable(std::string what) {
  Assert(m_Channel != nullptr, Here(), kNoChannel);
  m_SendSwitch("disable", what);
}

bool CViewerPlugin::SendMessage(CMessage& message, int async) {
  Assert(m_Channel != nullptr, Here(), kNoChannel);
  const std::string event = util::CombinateFormatedString(kReadyEvent, m_HostName, false);
  if (LwipcIsDone(event.c_str()) < 1) {
    CHANNEL_ERROR(Here(), "host: %s is not ready\n", m_HostName.c_str());
    return false;
  }
  if (!FlagConnection()) {
    CHANNEL_ERROR(Here(), "connection not set\n");
    return false;
  }
  return m_Channel->SendMessage(message, async);
}

bool CViewerPlugin::FlagConnection() {
  return m_Channel != nullptr && m_Channel->IsConnectionReady();
}

void CViewerPlugin::SetConnectionChangedCallback(void (*connected)(void*),
                                                 void (*disconnected)(void*), void* userData) {
  m_Disconnected = disconnected;
  m_DisconnectedData = userData;
  if (m_Channel) m_Channel->SetConnectionChangedCallback(connected, disconnected, userData);
}

bool CViewerPlugin::m_SendRepositoryKey(const char* messageName, const CKeyRepository& keys) {
  const int size = keys.Size();
  CHANNEL_INFO(Here(), "nSize = %d\n", size);
  if (size < 1) {
    CHANNEL_ERROR(Here(), "Size is 0\n");
    return false;
  }
  CMessage message;
  message.AddValue(messageName, m_PluginName.c_str());
  for (int index = 0; index < size; ++index) {
    message.AddValue("key", keys.GetKey(index).c_str());
  }
  return SendMessage(message, 1);
}

bool CViewerPlugin::m_SendName(const char* messageName) {
  CMessage message;
  message.AddValue(messageName, m_PluginName.c_str());
  return SendMessage(message, 1);
}

void CViewerPlugin::m_SendSwitch(const char* messageName, const std::string& what) {
  CMessage message;
  message.AddValue(messageName, what.c_str());
  message.AddValue("source", m_PluginName.c_str());
  SendMessage(message, 1);
}

// Nothing may follow a listener's call: the plug-in may have been destroyed in it.
bool CViewerPlugin::HandleMessage(CMessage& message) {
  const std::string key = message.GetValue("key");
  const std::string state = message.GetValue("state");
  if (!key.empty() && m_KeyListener != nullptr) return m_HandleKey(key, message, Here());
  if (m_HostName != kHostWithStatesAndMessages) return true;
  if (!state.empty() && m_StateListener != nullptr) {
    CHANNEL_INFO(Here(), "viewer state change\n");
    m_StateListener->OnViewerStateChanged(StateCode(state));
  } else if (m_MessageListener != nullptr) {
    CHANNEL_INFO(Here(), "viewer msg\n");
    m_MessageListener->OnViewerMessage(message);
  }
  return true;
}

bool CViewerPlugin::m_HandleKey(const std::string& keyName, const CMessage& message,
                                SourceLine where) {
  CHANNEL_INFO(where, "key\n");
  const std::string type = message.GetValue("type");
  const int device = DeviceCode(message.GetValue("device"));
  const std::uint64_t time = std::stoull(message.GetValue("time"), nullptr, 10);
  // Unsigned: a time in the future counts as long ago.
  const std::uint64_t age = util::GetCurrentTimeInMillis() - time;
  CHANNEL_INFO(where, "timediff : %llu\n", static_cast<unsigned long long>(age));
  if (type == "pressed" && age > kOldestPressMillis) {
    CHANNEL_INFO(where, "skipping key, keytype: %s\n", type.c_str());
    return true;
  }
  if (type == "pressed") return m_KeyListener->OnKeyPressed(keyName, device);
  if (type == "released") return m_KeyListener->OnKeyReleased(keyName, device);
  return false;
}

void CViewerPlugin::m_AuxDbusNameAppearedCallback(GDBusConnection*, const char* name, const char*,
                                                  void* plugin) {
  CHANNEL_INFO(Here(), "dbus name %s acquired\n", kavreldbus::OrNone(name));
  Assert(plugin != nullptr, Here(), "pThis != NULL");
  const auto* const self = static_cast<CViewerPlugin*>(plugin);
  CHANNEL_INFO(Here(), "%s\n", self->m_PluginName.c_str());
  kavreldbus::RunToItsEnd(Here(), [&] {
    self->m_AuxClient->SendNotification(self->m_PluginName.c_str(), self->m_Type, true);
  });
}

// The callback may destroy the plug-in.
void CViewerPlugin::m_AuxDbusNameVanishedCallback(GDBusConnection*, const char* name,
                                                  void* plugin) {
  CHANNEL_INFO(Here(), "dbus name %s vanished\n", kavreldbus::OrNone(name));
  Assert(plugin != nullptr, Here(), "pThis != NULL");
  const auto* const self = static_cast<CViewerPlugin*>(plugin);
  if (self->m_Disconnected != nullptr) self->m_Disconnected(self->m_DisconnectedData);
}
