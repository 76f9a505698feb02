// Who gets a key: the stack of those who want it exclusively, and the way of one key event.
#include <Elementary.h>

#include <algorithm>

#include "ChannelLog.h"
#include "Util.h"
#include "ViewerHost.h"

using kavrel::Here;
using kavrel::SourceLine;
using kavreldbus::CHostDbus;

namespace {

/// The viewer itself, as requester of exclusive keys.
constexpr const char* kViewer = "kavrel";

const char* KeyTypeText(int keyType) {
  return keyType == 0 ? "pressed" : "released";
}

const char* DeviceText(int inputDevice) {
  switch (inputDevice) {
    case 0:
      return "IR";
    case 1:
      return "PANEL_KEY";
    case 2:
      return "SR";
    case 3:
      return "VR";
    default:
      return "OTHERS";
  }
}

}  // namespace

bool CViewerHost::DispatchInput(const std::string& keyName, int keyType, int inputDevice,
                                std::string& consumer) {
  const std::string owner = m_Owner(keyName);
  CHANNEL_INFO(Here(), " plugin: %.256s, key: %.256s,type:%d\n", owner.c_str(), keyName.c_str(),
               keyType);
  if (owner == kViewer) return false;
  if (!owner.empty()) {
    if (const tagHostPluginInfo* const plugin = m_GetHostPluginByName(owner)) {
      m_SendPluginKey(*plugin->pTargetHostDbus, keyName, keyType, inputDevice);
      CHANNEL_INFO(Here(), "%.256s key of type %d is consumed by %.256s through grabbing\n",
                   keyName.c_str(), keyType, plugin->pluginName.c_str());
      return true;
    }
  }
  for (const PluginList& plugins : m_Plugins) {
    for (const tagHostPluginInfo& plugin : plugins) {
      if (!plugin.keyRepository.IsRegistered(keyName)) continue;
      m_SendPluginKey(*plugin.pTargetHostDbus, keyName, keyType, inputDevice);
      consumer = plugin.pluginName;
      CHANNEL_INFO(Here(), "%.256s key of type %d is consumed by %.256s\n", keyName.c_str(),
                   keyType, plugin.pluginName.c_str());
      return true;
    }
  }
  CHANNEL_INFO(Here(), "no plugin consumed\n");
  return false;
}

std::string CViewerHost::m_Owner(const std::string& keyName) const {
  const auto entry = m_ExclusiveKeys.find(keyName);
  return entry == m_ExclusiveKeys.end() ? std::string() : entry->second.back();
}

void CViewerHost::m_SendPluginKey(CHostDbus& channel, const std::string& keyName, int keyType,
                                  int inputDevice) {
  CMessage message;
  message.AddValue("key", keyName.c_str());
  message.AddValue("type", KeyTypeText(keyType));
  message.AddValue("device", DeviceText(inputDevice));
  message.AddValue("time", std::to_string(util::GetCurrentTimeInMillis()).c_str());
  channel.SendMessage(message, 1);
}

void CViewerHost::ProcessRegisteredExclusiveKey(const std::string& keyName,
                                                const std::string& requester) {
  CHANNEL_ERROR(Here(), "key: %.256s, requester: %.256s\n", keyName.c_str(), requester.c_str());
  if (!m_HasRoomForClaim(keyName, requester, Here())) return;
  RequesterList& requesters = m_ExclusiveKeys[keyName];
  requesters.remove(requester);
  requesters.push_back(requester);
  m_GrabKey(keyName);
}

bool CViewerHost::m_HasRoomForClaim(const std::string& keyName, const std::string& requester,
                                    SourceLine where) const {
  if (keyName.size() > kMaxNameLength || requester.size() > kMaxNameLength) {
    CHANNEL_ERROR(where, "exclusive key refused: a name has more than %zu bytes\n", kMaxNameLength);
    return false;
  }
  const auto entry = m_ExclusiveKeys.find(keyName);
  if (entry == m_ExclusiveKeys.end()) {
    if (m_ExclusiveKeys.size() < kMaxExclusiveKeys) return true;
  } else {
    const RequesterList& claims = entry->second;
    if (claims.size() < kMaxRequesters ||
        std::find(claims.begin(), claims.end(), requester) != claims.end()) {
      return true;
    }
  }
  CHANNEL_ERROR(where, "exclusive key %s refused: %zu keys of %zu requesters each are allowed\n",
                keyName.c_str(), kMaxExclusiveKeys, kMaxRequesters);
  return false;
}

void CViewerHost::ProcessUnregisteredExclusiveKey(const std::string& keyName,
                                                  const std::string& requester) {
  CHANNEL_INFO(Here(), "keyname = %.256s, requester = %.256s\n", keyName.c_str(),
               requester.c_str());
  const auto entry = m_ExclusiveKeys.find(keyName);
  if (entry == m_ExclusiveKeys.end()) return;
  RequesterList& requesters = entry->second;
  requesters.remove(requester);
  CHANNEL_INFO(Here(), "remove requester: %.256s, list size: %zu\n", requester.c_str(),
               requesters.size());
  if (!requesters.empty()) return;
  CHANNEL_INFO(Here(), "ungrab key %.256s\n", keyName.c_str());
  m_UngrabKey(keyName);
  m_ExclusiveKeys.erase(entry);
}

void CViewerHost::m_ClearExclusiveKey(CMessage& message) {
  const std::string requester = message.GetValue(0);
  for (auto entry = m_ExclusiveKeys.begin(); entry != m_ExclusiveKeys.end();) {
    entry->second.remove(requester);
    if (!entry->second.empty()) {
      ++entry;
      continue;
    }
    CHANNEL_INFO(Here(), "remove %.256s for key %.256s\n", requester.c_str(), entry->first.c_str());
    m_UngrabKey(entry->first);
    entry = m_ExclusiveKeys.erase(entry);
  }
}

// What a grab answers does not matter: it is only a wish to a key router, which not every display
// has. A host without a window has nothing to grab on.
void CViewerHost::m_GrabKey(const std::string& keyName) {
  if (m_RootWindow == nullptr) return;
  elm_win_keygrab_set(m_RootWindow, keyName.c_str(), static_cast<Evas_Modifier_Mask>(0),
                      static_cast<Evas_Modifier_Mask>(0), 0, ELM_WIN_KEYGRAB_EXCLUSIVE);
}

void CViewerHost::m_UngrabKey(const std::string& keyName) {
  if (m_RootWindow == nullptr) return;
  elm_win_keygrab_unset(m_RootWindow, keyName.c_str(), static_cast<Evas_Modifier_Mask>(0),
                        static_cast<Evas_Modifier_Mask>(0));
}
