#include "fake_channel.h"

#include <utility>
#include <vector>

#include "journal.h"
#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusServer.h"
#include "legacy/HostDbus.h"
#include "legacy/PluginDbus.h"

namespace framework_test {

FakeChannels& Channels() {
  static FakeChannels channels;
  return channels;
}

std::string Show(const CMessage& message) {
  std::string text;
  for (int index = 0; index < message.Size(); ++index) {
    if (index > 0) text += '|';
    const bool time = message.GetKey(index) == "time";
    text += message.GetKey(index) + '=' + (time ? "*" : message.GetValue(index));
  }
  return text;
}

CMessage Message(const std::vector<std::pair<std::string, std::string>>& pairs) {
  CMessage message;
  for (const auto& [key, value] : pairs) message.AddValue(key.c_str(), value.c_str());
  return message;
}

}  // namespace framework_test

using framework_test::Channels;
using framework_test::Note;

namespace kavreldbus {

PTMutexDBus::PTMutexDBus() {
  pthread_mutex_init(&mutex_, nullptr);
}

PTMutexDBus::~PTMutexDBus() {
  pthread_mutex_destroy(&mutex_);
}

void LossWatch::Reset() {}

CBaseDbus::CBaseDbus(std::string hostName, std::string pluginName)
    : m_HostName(std::move(hostName)), m_PluginName(std::move(pluginName)) {
  m_State = Channels().ready ? kReady : kAnnounced;
}

CBaseDbus::~CBaseDbus() {
  Note("channel - " + m_HostName + ' ' + m_PluginName);
}

bool CBaseDbus::t_HandleMessage(CMessage&) {
  return true;
}

bool CBaseDbus::t_HandleNotification(CMessage&) {
  return false;
}

bool CBaseDbus::SendMessage(CMessage& msg, int async) {
  Note("send " + m_PluginName + " async " + std::to_string(async) + ' ' +
       framework_test::Show(msg));
  return Channels().send_result;
}

void CBaseDbus::SetConnectionChangedCallback(void (*connected)(void*), void (*disconnected)(void*),
                                             void* userData) {
  Note("connection callbacks " + m_PluginName);
  m_Connected = connected;
  m_Disconnected = disconnected;
  m_UserData = userData;
}

CHostDbus::CHostDbus(std::string hostName, std::string pluginName)
    : CBaseDbus(std::move(hostName), std::move(pluginName)) {
  Note("host end + " + HostName() + ' ' + PluginName());
}

CHostDbus::~CHostDbus() = default;

void CHostDbus::SetHostDbusMsgCb(bool (*cb)(CMessage&, void*), void* userData) {
  Note("host end callback " + PluginName());
  Channels().from_plugin[PluginName()] = [=](CMessage& message) { return cb(message, userData); };
  Channels().from_plugin_function = cb;
}

bool CHostDbus::t_HandleMessage(CMessage&) {
  return m_Callback != nullptr && m_CallbackData != nullptr;
}

bool CHostDbus::t_HandleNotification(CMessage&) {
  return false;
}

CPluginDbus::CPluginDbus(std::string hostName, std::string pluginName)
    : CBaseDbus(std::move(hostName), std::move(pluginName)) {
  Note("plug-in end + " + HostName() + ' ' + PluginName());
}

CPluginDbus::~CPluginDbus() = default;

void CPluginDbus::SetPluginDubsMsgCB(std::function<bool(CMessage&)> callback) {
  Note("plug-in end callback " + PluginName());
  Channels().from_host[PluginName()] = std::move(callback);
}

bool CPluginDbus::t_HandleMessage(CMessage&) {
  return true;
}

bool CPluginDbus::t_HandleNotification(CMessage&) {
  return false;
}

}  // namespace kavreldbus

CAuxDbusServer::CAuxDbusServer(std::string channel) : m_Name(std::move(channel)) {
  Note("aux server + " + m_Name);
}

CAuxDbusServer::~CAuxDbusServer() {
  Note("aux server -");
}

void CAuxDbusServer::SetAuxDbusSignalCb(bool (*cb)(const char*, int, bool, void*), void* userData) {
  Note("aux server callback");
  Channels().announced = [=](const char* name, int type, bool added) {
    return cb(name, type, added, userData);
  };
  Channels().announced_function = cb;
}

CAuxDbusClient::CAuxDbusClient(std::string channel) : m_Name(std::move(channel)) {
  Note("aux client + " + m_Name);
}

CAuxDbusClient::~CAuxDbusClient() {
  Note("aux client -");
}

void CAuxDbusClient::RegisterDbusNameHandler(AppearedHandler appeared, VanishedHandler vanished,
                                             void* userData) {
  Note("aux client watch");
  Channels().name_appeared = [=](const char* name) { appeared(nullptr, name, ":1.1", userData); };
  Channels().name_vanished = [=](const char* name) { vanished(nullptr, name, userData); };
}

void CAuxDbusClient::UnregisterDbusNameHandler() {
  Note("aux client watch ends");
}

void CAuxDbusClient::SendNotification(const char* text, int value, bool flag) {
  Note(std::string("announce ") + text + ' ' + std::to_string(value) + (flag ? " true" : " false"));
}
