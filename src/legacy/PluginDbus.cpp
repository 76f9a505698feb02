#include "PluginDbus.h"

#include <utility>

#include "ChannelLog.h"

namespace kavreldbus {

CPluginDbus::CPluginDbus(std::string hostName, std::string pluginName)
    : CBaseDbus(std::move(hostName), std::move(pluginName)) {}

CPluginDbus::~CPluginDbus() = default;

void CPluginDbus::SetPluginDubsMsgCB(std::function<bool(CMessage&)> callback) {
  m_Callback = callback ? std::make_shared<const Callback>(std::move(callback)) : nullptr;
}

bool CPluginDbus::m_Call(CMessage& msg) {
  const auto callback = m_Callback;
  return callback != nullptr && (*callback)(msg);
}

bool CPluginDbus::t_HandleMessage(CMessage& msg) {
  CHANNEL_INFO(kavrel::Here(), "message to plugin:%s\n", PluginName().c_str());
  return m_Call(msg);
}

bool CPluginDbus::t_HandleNotification(CMessage& msg) {
  return m_Call(msg);
}

}  // namespace kavreldbus
