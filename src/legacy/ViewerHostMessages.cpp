// The registry of plug-ins, and what plug-ins say. Every name and every message is another
// process's word: sizes are limited before anything is kept.
#include <utility>

#include "../common/assertion.h"
#include "ChannelLog.h"
#include "ViewerHost.h"

using kavrel::Assert;
using kavrel::Here;
using kavrel::SourceLine;
using kavreldbus::CHostDbus;

namespace {

constexpr unsigned kHighestType = 6;
constexpr unsigned kFirstTypeThatLeaves = 4;
constexpr unsigned kTypesThatLeave = 3;

bool ConcernsKeys(const std::string& key) {
  return key == "register_key" || key == "clear_key" || key == "register_exclusive_key" ||
         key == "unregister_exclusive_key" || key == "clear_exclusive_key";
}

// Entry 0 of what concerns keys names a plug-in. A message that a channel received ends with the
// name of that channel's plug-in, which may be another one.
void WarnOfForeignName(const CMessage& message, SourceLine where) {
  const int last = message.Size() - 1;
  if (message.GetKey(last) != "name" || message.GetValue(last) == message.GetValue(0)) return;
  KAVREL_LOG(kavrel::kLogWarning, kavreldbus::kLogTag, where, "plugin %.256s speaks for %.256s\n",
             message.GetValue(last).c_str(), message.GetValue(0).c_str());
}

}  // namespace

bool CViewerHost::m_AuxDbusSignalCallback(const char* pluginName, int pluginType, bool added,
                                          void* host) {
  CHANNEL_INFO(Here(), "notify plugin add or remove\n");
  if (host == nullptr) return false;
  auto* const self = static_cast<CViewerHost*>(host);
  if (added) {
    self->m_AddPlugin(pluginName, pluginType);
  } else {
    self->m_RemovePlugin(pluginName, pluginType);
  }
  return true;
}

void CViewerHost::m_AddPlugin(const char* pluginName, int pluginType) {
  if (static_cast<unsigned>(pluginType) > kHighestType) {
    CHANNEL_ERROR(Here(), "type %d is out of range\n", pluginType);
    return;
  }
  CHANNEL_INFO(Here(), "add plugin, type: %d, name: %.256s\n", pluginType, pluginName);
  PluginList& plugins = m_Plugins[static_cast<std::size_t>(pluginType)];
  for (const tagHostPluginInfo& hostIter : plugins) {
    if (hostIter.pluginName != pluginName) continue;
    Assert(hostIter.pTargetHostDbus != nullptr, Here(), "hostIter->pTargetHostDbus != NULL");
    CHANNEL_INFO(Here(), "host dbus for %.256s already exists\n", pluginName);
    return;
  }
  if (!m_HasRoomForPlugin(pluginName, pluginType, Here())) return;
  const bool known = m_GetHostPluginByName(pluginName) != nullptr;
  auto channel = std::make_unique<CHostDbus>(m_HostName, pluginName);
  channel->SetHostDbusMsgCb(&CViewerHost::m_HostDbusMessageCallback, this);
  plugins.push_back({pluginType, pluginName, std::move(channel), CKeyRepository()});
  if (!known) m_LayerEarlyWindow(pluginName);
}

// Windows and announcements travel on ways of their own. A window that came first found no plug-in
// to take its layer from.
void CViewerHost::m_LayerEarlyWindow(const char* pluginName) {
  if (Evas_Object* const object = GetPluginObject(pluginName)) m_SetProperties(pluginName, object);
}

bool CViewerHost::m_HasRoomForPlugin(const std::string& pluginName, int pluginType,
                                     SourceLine where) const {
  if (pluginName.size() > kMaxNameLength) {
    CHANNEL_ERROR(where, "plugin refused: its name has %zu bytes, at most %zu are allowed\n",
                  pluginName.size(), kMaxNameLength);
    return false;
  }
  std::size_t count = 0;
  for (const PluginList& plugins : m_Plugins) count += plugins.size();
  if (count < kMaxPlugins) return true;
  CHANNEL_ERROR(where, "plugin %s of type %d refused: %zu are registered, no more are allowed\n",
                pluginName.c_str(), pluginType, count);
  return false;
}

void CViewerHost::m_RemovePlugin(const char* pluginName, int pluginType) {
  CHANNEL_INFO(Here(), "remove plugin, type: %d, name: %.256s\n", pluginType, pluginName);
  if (static_cast<unsigned>(pluginType) - kFirstTypeThatLeaves >= kTypesThatLeave) {
    CHANNEL_INFO(Here(), "type %d is out of range\n", pluginType);
    return;
  }
  PluginList& plugins = m_Plugins[static_cast<std::size_t>(pluginType)];
  if (plugins.empty()) {
    CHANNEL_INFO(Here(), "plugin of type %d does not exist\n", pluginType);
    return;
  }
  for (auto plugin = plugins.begin(); plugin != plugins.end(); ++plugin) {
    if (plugin->pluginName != pluginName) continue;
    plugin->pTargetHostDbus.reset();
    plugins.erase(plugin);
    return;
  }
}

tagHostPluginInfo* CViewerHost::m_GetHostPluginByName(const std::string& pluginName) {
  for (PluginList& plugins : m_Plugins) {
    for (tagHostPluginInfo& plugin : plugins) {
      if (plugin.pluginName == pluginName) return &plugin;
    }
  }
  return nullptr;
}

// Nothing may follow m_Notify() here: the application may have destroyed the host in it.
bool CViewerHost::m_HostDbusMessageCallback(CMessage& message, void* host) {
  if (host == nullptr) return false;
  auto* const self = static_cast<CViewerHost*>(host);
  const std::string key = message.GetKey(0);
  CHANNEL_INFO(Here(), "msg size: %d, key: %.256s\n", message.Size(), key.c_str());
  if (ConcernsKeys(key)) WarnOfForeignName(message, Here());
  if (key == "register_key") {
    self->m_RegisterKeyRepository(message);
    return true;
  }
  if (key == "clear_key") {
    self->m_ClearKeyRepository(message);
    return true;
  }
  if (key == "register_exclusive_key") {
    self->m_RegisterExclusiveKey(message);
  } else if (key == "unregister_exclusive_key") {
    self->m_UnregisterExclusiveKey(message);
  } else if (key == "clear_exclusive_key") {
    self->m_ClearExclusiveKey(message);
  }
  self->m_Notify(message);
  return true;
}

void CViewerHost::m_RegisterKeyRepository(CMessage& message) {
  tagHostPluginInfo* const plugin = m_GetHostPluginByName(message.GetValue(0));
  if (plugin == nullptr) {
    CHANNEL_ERROR(Here(), "pHostPluginInfo is NULL\n");
    return;
  }
  CKeyRepository& keys = plugin->keyRepository;
  keys.RemoveAllKey();
  int left_out = 0;
  // Twice the allowed number may be looked at, for keys that are named twice; looking a key up
  // takes time with their number.
  for (int index = 1; index < message.Size(); ++index) {
    if (message.GetKey(index) != "key") continue;
    const std::string name = message.GetValue(index);
    if (keys.Size() >= kMaxKeys || index > 2 * kMaxKeys || name.size() > kMaxNameLength) {
      ++left_out;
    } else {
      keys.AddKey(name);
    }
  }
  if (left_out == 0) return;
  CHANNEL_ERROR(Here(), "%d keys of plugin %.256s left out: at most %d of %zu bytes are allowed\n",
                left_out, plugin->pluginName.c_str(), kMaxKeys, kMaxNameLength);
}

void CViewerHost::m_ClearKeyRepository(CMessage& message) {
  tagHostPluginInfo* const plugin = m_GetHostPluginByName(message.GetValue(0));
  if (plugin == nullptr) {
    CHANNEL_ERROR(Here(), "pPluginHost is NULL\n");
    return;
  }
  plugin->keyRepository.RemoveAllKey();
}

void CViewerHost::m_RegisterExclusiveKey(CMessage& message) {
  const std::string requester = message.GetValue(0);
  for (int index = 1; index < message.Size(); ++index) {
    if (message.GetKey(index) == "key") {
      ProcessRegisteredExclusiveKey(message.GetValue(index), requester);
    }
  }
}

void CViewerHost::m_UnregisterExclusiveKey(CMessage& message) {
  const std::string requester = message.GetValue(0);
  for (int index = 1; index < message.Size(); ++index) {
    if (message.GetKey(index) == "key") {
      ProcessUnregisteredExclusiveKey(message.GetValue(index), requester);
    }
  }
}
