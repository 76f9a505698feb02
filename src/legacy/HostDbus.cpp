#include "HostDbus.h"

#include <utility>

#include "ChannelLog.h"

namespace kavreldbus {

using kavrel::Here;

CHostDbus::CHostDbus(std::string hostName, std::string pluginName)
    : CBaseDbus(std::move(hostName), std::move(pluginName)) {
  CHANNEL_INFO(Here(), "\n");
}

CHostDbus::~CHostDbus() = default;

void CHostDbus::SetHostDbusMsgCb(bool (*cb)(CMessage&, void*), void* userData) {
  m_Callback = cb;
  m_CallbackData = userData;
}

bool CHostDbus::t_HandleMessage(CMessage& msg) {
  CHANNEL_INFO(Here(), "message to host:%s\n", HostName().c_str());
  if (m_Callback == nullptr) return false;
  msg.AddValue("name", PluginName().c_str());
  return m_Callback(msg, m_CallbackData);
}

bool CHostDbus::t_HandleNotification(CMessage& msg) {
  CHANNEL_INFO(Here(), "send notification to host\n");
  if (m_Callback == nullptr) return false;
  return m_Callback(msg, m_CallbackData);
}

}  // namespace kavreldbus
