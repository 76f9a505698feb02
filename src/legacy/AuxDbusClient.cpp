#include "AuxDbusClient.h"

#include <utility>

#include "AuxDbusNames.h"
#include "ChannelLog.h"
#include "SystemBus.h"

namespace glib = kavrel::glib;
using kavrel::Here;

CAuxDbusClient::CAuxDbusClient(std::string channel) : m_Name(std::move(channel)) {
  glib::Error error;
  m_Connection = kavreldbus::ConnectToSystemBus(error);
  if (m_Connection != nullptr) return;
  CHANNEL_ERROR(Here(), "Error [%d]: [%s] occurs while connecting to system bus\n\n", error.code(),
                error.message());
}

CAuxDbusClient::~CAuxDbusClient() {
  m_Watch.Release();
  if (m_Connection != nullptr) kavreldbus::FlushConnection(m_Connection.get());
}

void CAuxDbusClient::RegisterDbusNameHandler(AppearedHandler appeared, VanishedHandler vanished,
                                             void* userData) {
  CHANNEL_INFO(Here(), "\n");
  const std::string name = kavreldbus::AuxName(m_Name);
  m_Watch.Release();
  m_Watch = glib::WatchNameOnSystemBus(name.c_str(), appeared, vanished, userData);
  if (!m_Watch) CHANNEL_ERROR(Here(), "\"%s\" is not a name of a bus\n", name.c_str());
}

void CAuxDbusClient::UnregisterDbusNameHandler() {
  m_Watch.Reset();
}

void CAuxDbusClient::SendNotification(const char* text, int value, bool flag) {
  if (m_Connection == nullptr) {
    CHANNEL_ERROR(Here(), "No connection setup\n");
    return;
  }
  if (text == nullptr) {
    CHANNEL_ERROR(Here(), "No message send\n");
    return;
  }
  glib::Error error;
  if (!g_utf8_validate(text, -1, nullptr)) {
    error.Set(G_IO_ERROR_INVALID_DATA, "the text is not UTF-8");
  } else {
    const auto body = glib::Sink(
        g_variant_new(kavreldbus::kAuxBodyType, text, static_cast<gint32>(value), flag ? 1 : 0));
    if (glib::EmitSignal(m_Connection.get(), nullptr, kavreldbus::AuxPath(m_Name).c_str(),
                         kavreldbus::AuxName(m_Name).c_str(), kavreldbus::kAuxSignal, body.get(),
                         error)) {
      return;
    }
  }
  CHANNEL_ERROR(Here(), "Error while sending signal [%d] %s\n", error.code(), error.message());
}
