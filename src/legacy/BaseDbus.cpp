#include "BaseDbus.h"

#include <optional>
#include <utility>

#include "../common/assertion.h"
#include "CallbackGuard.h"
#include "ChannelLog.h"
#include "MessageCodec.h"
#include "Util.h"

namespace kavreldbus {
namespace {

namespace glib = kavrel::glib;
using glib::Variant;
using kavrel::Here;
using kavrel::SourceLine;

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kPrimaryOwner = 1;
constexpr int kDefaultTimeout = -1;

// What a NameOwnerChanged signal says; the texts belong to the signal's body.
struct OwnerChange {
  const char* name = "";
  const char* before = "";
  const char* after = "";
};

// False, and one line, when the body is not three texts.
bool ReadOwnerChange(GVariant* parameters, OwnerChange& change, SourceLine where) {
  if (parameters == nullptr || !g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sss)"))) {
    CHANNEL_ERROR(where, "NameOwnerChanged dropped: body of type %s, must be (sss)\n",
                  parameters == nullptr ? "none" : g_variant_get_type_string(parameters));
    return false;
  }
  g_variant_get(parameters, "(&s&s&s)", &change.name, &change.before, &change.after);
  return true;
}

// A handshake name is said when somebody else lets go of it.
bool IsReleaseByAnother(const OwnerChange& change, const std::string& own_name) {
  return *change.after == '\0' && change.before != own_name;
}

// One call of the bus itself that answers with a number; null on failure.
Variant CallBus(GDBusConnection* connection, const char* method, GVariant* arguments,
                glib::Error& error) {
  return Variant(g_dbus_connection_call_sync(
      connection, kBusName, kBusPath, kBusName, method, arguments, G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout, nullptr, error.Out()));
}

// The body for `message`. Null, and `error` set, when it cannot travel.
Variant EncodeMessage(const CMessage& message, glib::Error& error) {
  std::string problem;
  Variant body = MessageCodec::Encode(message, problem);
  if (body == nullptr) error.Set(G_IO_ERROR_INVALID_DATA, problem);
  return body;
}

}  // namespace

PTMutexDBus::PTMutexDBus() {
  pthread_mutex_init(&mutex_, nullptr);
}

PTMutexDBus::~PTMutexDBus() {
  pthread_mutex_destroy(&mutex_);
}

const GDBusInterfaceVTable CBaseDbus::m_vTable = {
    &CBaseDbus::m_MethodCallback, nullptr, nullptr, {}};

CBaseDbus::CBaseDbus(std::string hostName, std::string pluginName)
    : m_HostName(std::move(hostName)), m_PluginName(std::move(pluginName)) {
  CHANNEL_INFO(Here(), "Constructor - host name: %s , plugin name: %s \n", m_HostName.c_str(),
               m_PluginName.c_str());
  m_ParseIntrospection(Here());
  m_ObjectPath = util::CombinateFormatedString(FORMAT_DBUS_OBJ_NAME_PREFIX, m_HostName, true) +
                 "/" + m_PluginName;
  m_InterfaceName = util::CombinateFormatedString(FORMAT_DBUS_OBJ_IFACE, m_HostName, true);
  CHANNEL_INFO(Here(), "Getting connection to DBUS\n");
  if (!m_Connect(Here())) return;
  CHANNEL_INFO(Here(), "Working with unique name %s\n", m_UniqueName.c_str());
  CHANNEL_INFO(Here(), "Registering Object and Interface on path %s\n", m_ObjectPath.c_str());
  m_Export(Here());
  CHANNEL_INFO(Here(), "Monitoring name: [%s] waiting for communication partner\n",
               m_HandshakeName("").c_str());
  m_SubscribeToHandshake();
  CHANNEL_INFO(Here(), "Notify others using name %s\n", m_HandshakeName("").c_str());
  m_State = kAnnounced;
  std::string syn = m_HandshakeName(DBUS_SYN_SUFFIX);
  m_BroadcastName(syn);
}

void CBaseDbus::m_ParseIntrospection(SourceLine where) {
  const std::string text = util::CombinateFormatedString(FORMAT_INTERFACE_XML, m_HostName, true);
  m_NodeInfo.reset(g_dbus_node_info_new_for_xml(text.c_str(), nullptr));
  CHANNEL_INFO(where, "XML parsed\n");
}

bool CBaseDbus::m_Connect(SourceLine where) {
  glib::Error error;
  m_Connection = ConnectToSystemBus(error);
  if (m_Connection == nullptr) {
    CHANNEL_ERROR(where, "Error while connecting to system bus [%d] %s\n\n", error.code(),
                  error.message());
    return false;
  }
  m_UniqueName = OrNone(g_dbus_connection_get_unique_name(m_Connection.get()));
  m_LossWatch = LossWatch(m_Connection.get(), [this] { m_ConnectionLost(); });
  return true;
}

void CBaseDbus::m_Export(SourceLine where) {
  if (m_NodeInfo == nullptr) return;
  glib::Error error;
  m_Registration = glib::RegisterObject(m_Connection.get(), m_ObjectPath.c_str(), m_NodeInfo.get(),
                                        &m_vTable, this, error);
  if (m_Registration) return;
  CHANNEL_ERROR(where, "Error:[%d] while registering object: %s\n", error.code(), error.message());
}

void CBaseDbus::m_SubscribeToHandshake() {
  m_SynSubscription = m_SubscribeToName(DBUS_SYN_SUFFIX, &CBaseDbus::m_SynNameOwnerChangedCallback);
  m_SynAckSubscription =
      m_SubscribeToName(DBUS_SYNACK_SUFFIX, &CBaseDbus::m_SynAckNameOwnerChangedCallback);
  m_AckSubscription = m_SubscribeToName(DBUS_ACK_SUFFIX, &CBaseDbus::m_AckNameOwnerChangedCallback);
}

glib::Subscription CBaseDbus::m_SubscribeToName(const char* suffix, GDBusSignalCallback callback) {
  const std::string name = m_HandshakeName(suffix);
  const glib::SignalFilter filter{.sender = kBusName,
                                  .interface = kBusName,
                                  .member = "NameOwnerChanged",
                                  .path = kBusPath,
                                  .arg0 = name.c_str()};
  return glib::SubscribeToSignals(m_Connection.get(), filter, callback, this);
}

std::string CBaseDbus::m_HandshakeName(const char* suffix) const {
  return util::CombinateFormatedString(FORMAT_DBUS_PREFIX, m_HostName, true) + "." + m_PluginName +
         suffix;
}

CBaseDbus::~CBaseDbus() {
  CHANNEL_INFO(Here(), "\n");
  kavrel::Assert(m_Mutex.TryLock(), Here(),
                 "a channel must not be destroyed in its connected or disconnected callback");
  m_Mutex.Unlock();
  m_State = kNoPartner;
  m_LossWatch.Reset();
  m_SynSubscription.Reset();
  m_SynAckSubscription.Reset();
  m_AckSubscription.Reset();
  m_PartnerWatch.Reset();
  m_SetPartner(nullptr);
  m_PartnerSignals.Reset();
  m_NodeInfo.reset();
  if (!m_Registration.Reset()) CHANNEL_ERROR(Here(), "Assertion failed\n");
  if (m_Connection != nullptr) FlushConnection(m_Connection.get());
  m_Connection.reset();
}

bool CBaseDbus::t_HandleMessage(CMessage& /*msg*/) {
  return true;
}

bool CBaseDbus::t_HandleNotification(CMessage& /*msg*/) {
  CHANNEL_INFO(Here(), "Default handler\n");
  return false;
}

void CBaseDbus::SetConnectionChangedCallback(void (*connected)(void*), void (*disconnected)(void*),
                                             void* userData) {
  m_Connected = connected;
  m_Disconnected = disconnected;
  m_UserData = userData;
}

std::shared_ptr<const CBaseDbus::Partner> CBaseDbus::m_CurrentPartner() const {
  const std::lock_guard guard(m_PartnerGuard);
  return m_Partner;
}

void CBaseDbus::m_SetPartner(std::shared_ptr<const Partner> partner) {
  const std::lock_guard guard(m_PartnerGuard);
  m_Partner.swap(partner);
}

// ---- Handshake

void CBaseDbus::m_BroadcastName(std::string& name) {
  CHANNEL_INFO(Here(), "m_BroadcastName: %s\n", name.c_str());
  if (m_RequestName(name, Here())) m_ReleaseName(name, Here());
}

bool CBaseDbus::m_RequestName(const std::string& name, SourceLine where) {
  glib::Error error;
  Variant reply;
  if (g_utf8_validate(name.c_str(), -1, nullptr)) {
    reply = CallBus(m_Connection.get(), "RequestName",
                    g_variant_new("(su)", name.c_str(), kDoNotQueue), error);
  } else {
    error.Set(G_IO_ERROR_INVALID_ARGUMENT, "the name is not UTF-8");
  }
  if (error) {
    CHANNEL_ERROR(where, "Error:[%d] during request name call: %s\n", error.code(),
                  error.message());
  }
  if (reply == nullptr) {
    CHANNEL_ERROR(where, "Cannot get response for name request\n");
    return false;
  }
  guint32 code = 0;
  g_variant_get(reply.get(), "(u)", &code);
  if (code != kPrimaryOwner) {
    CHANNEL_ERROR(where, "Cannot own name due to return code = %d\n", static_cast<int>(code));
    return false;
  }
  CHANNEL_INFO(where, "Become primary owner for name. Releasing it.\n");
  return true;
}

void CBaseDbus::m_ReleaseName(const std::string& name, SourceLine where) {
  glib::Error error;
  const Variant reply =
      CallBus(m_Connection.get(), "ReleaseName", g_variant_new("(s)", name.c_str()), error);
  if (reply == nullptr) CHANNEL_ERROR(where, "Release failed due to empty response.\n");
}

bool CBaseDbus::m_NameOwnerChangedCallback(GDBusConnection* connection, GVariant* parameters,
                                           void* channel) {
  OwnerChange change;
  if (!ReadOwnerChange(parameters, change, Here())) return false;
  CHANNEL_INFO(Here(),
               "m_NameOwnerChangedCallback:signal notification name:[%s] with unique name changed "
               "from '%s' => '%s' \n",
               change.name, change.before, change.after);
  if (channel == nullptr || connection == nullptr) {
    CHANNEL_ERROR(Here(), "Empty user_data or connection not valid.\n");
    return false;
  }
  auto& self = *static_cast<CBaseDbus*>(channel);
  if (!IsReleaseByAnother(change, self.m_UniqueName)) return false;
  if (self.m_PartnerWatch || self.m_PartnerSignals) {
    CHANNEL_INFO(Here(), "Already monitored unique name %s\n", change.before);
    return false;
  }
  try {
    self.m_TakeOn(change.before, Here());
  } catch (...) {
    // Half taken on it would never be taken on again.
    self.m_PartnerWatch.Reset();
    self.m_PartnerSignals.Reset();
    throw;
  }
  return true;
}

void CBaseDbus::m_TakeOn(const char* uniqueName, SourceLine where) {
  CHANNEL_INFO(where, "Monitor unique name %s\n", uniqueName);
  m_PartnerWatch = glib::WatchName(m_Connection.get(), uniqueName, nullptr,
                                   &CBaseDbus::m_PartnerNameVanishedCallback, this);
  CHANNEL_INFO(where, "Partner is available and has unique name %s\n", uniqueName);
  auto partner = std::make_shared<Partner>();
  partner->unique_name = uniqueName;
  CHANNEL_INFO(where, "Create proxy for %s on obj %s\n", uniqueName, m_ObjectPath.c_str());
  glib::Error error;
  partner->proxy = glib::MakeProxy(m_Connection.get(), uniqueName, m_ObjectPath.c_str(),
                                   m_InterfaceName.c_str(), error);
  if (partner->proxy == nullptr) {
    CHANNEL_ERROR(where, "Error while registering proxy  %s\n", error.message());
  }
  CHANNEL_INFO(where, "Subscribe for signals from %s on object %s.\n", uniqueName,
               m_ObjectPath.c_str());
  const glib::SignalFilter filter{
      .sender = uniqueName, .interface = m_InterfaceName.c_str(), .path = m_ObjectPath.c_str()};
  m_PartnerSignals =
      glib::SubscribeToSignals(m_Connection.get(), filter, &CBaseDbus::m_SignalCallback, this);
  partner->signals_subscribed = static_cast<bool>(m_PartnerSignals);
  m_SetPartner(std::move(partner));
}

void CBaseDbus::m_SynNameOwnerChangedCallback(GDBusConnection* connection, const char* /*sender*/,
                                              const char* /*objectPath*/,
                                              const char* /*interfaceName*/,
                                              const char* /*signalName*/, GVariant* parameters,
                                              void* channel) {
  auto* self = static_cast<CBaseDbus*>(channel);
  std::optional<PTAutoLockDBus> lock;
  if (self != nullptr) lock.emplace(self->m_Mutex);
  CHANNEL_INFO(Here(), "m_SynNameOwnerChangedCallback\n");
  RunToItsEnd(Here(), [&] {
    if (!m_NameOwnerChangedCallback(connection, parameters, self)) return;
    std::string name = self->m_HandshakeName(DBUS_SYNACK_SUFFIX);
    self->m_BroadcastName(name);
    self->m_State = kPartnerTakenOn;
  });
}

void CBaseDbus::m_SynAckNameOwnerChangedCallback(GDBusConnection* connection,
                                                 const char* /*sender*/, const char* /*objectPath*/,
                                                 const char* /*interfaceName*/,
                                                 const char* /*signalName*/, GVariant* parameters,
                                                 void* channel) {
  auto* self = static_cast<CBaseDbus*>(channel);
  std::optional<PTAutoLockDBus> lock;
  if (self != nullptr) lock.emplace(self->m_Mutex);
  CHANNEL_INFO(Here(), "m_SynAckNameOwnerChangedCallback\n");
  RunToItsEnd(Here(), [&, where = Here()] {
    if (!m_NameOwnerChangedCallback(connection, parameters, self)) return;
    std::string name = self->m_HandshakeName(DBUS_ACK_SUFFIX);
    self->m_BroadcastName(name);
    self->m_State = kReady;
    if (self->m_Connected == nullptr) return;  // this step tells of the connection only with it
    self->m_Connected(self->m_UserData);
    CHANNEL_INFO(where, "connection established\n");
  });
}

void CBaseDbus::m_AckNameOwnerChangedCallback(GDBusConnection* connection, const char* /*sender*/,
                                              const char* /*objectPath*/,
                                              const char* /*interfaceName*/,
                                              const char* /*signalName*/, GVariant* parameters,
                                              void* channel) {
  auto* self = static_cast<CBaseDbus*>(channel);
  std::optional<PTAutoLockDBus> lock;
  if (self != nullptr) lock.emplace(self->m_Mutex);
  OwnerChange change;
  if (!ReadOwnerChange(parameters, change, Here())) return;
  CHANNEL_INFO(Here(),
               "m_ACKNameOwnerChangedCallback: signal notification name:[%s] with unique name "
               "changed from '%s' => '%s' \n",
               change.name, change.before, change.after);
  if (self == nullptr || connection == nullptr) {
    CHANNEL_ERROR(Here(), "Empty user_data or connection not valid.\n");
    return;
  }
  if (!IsReleaseByAnother(change, self->m_UniqueName)) return;
  if (!self->m_PartnerWatch || !self->m_PartnerSignals) return;
  self->m_State = kReady;
  if (self->m_Connected != nullptr) self->m_Connected(self->m_UserData);
  CHANNEL_INFO(Here(), "connection established\n");
}

void CBaseDbus::m_PartnerNameVanishedCallback(GDBusConnection* connection, const char* name,
                                              void* channel) {
  CHANNEL_INFO(Here(), "m_PartnerNameVanishedCallback dbus name:[%s]\n", OrNone(name));
  if (channel == nullptr || connection == nullptr) {
    CHANNEL_ERROR(Here(), "Empty user_data or connection not valid.\n");
    return;
  }
  auto& self = *static_cast<CBaseDbus*>(channel);
  const PTAutoLockDBus lock(self.m_Mutex);
  RunToItsEnd(Here(), [&, where = Here()] {
    const auto partner = self.m_CurrentPartner();
    if (partner != nullptr && partner->unique_name == OrNone(name)) self.m_LosePartner(where);
  });
}

// Called with the lock held, and with a partner.
void CBaseDbus::m_LosePartner(SourceLine where) {
  const auto partner = m_CurrentPartner();
  CHANNEL_INFO(where, "Connection lost with partner id=%s\n", partner->unique_name.c_str());
  auto nameless = std::make_shared<Partner>();
  nameless->proxy = glib::Share(partner->proxy.get());
  nameless->signals_subscribed = partner->signals_subscribed;
  m_SetPartner(std::move(nameless));
  if (m_Disconnected != nullptr) m_Disconnected(m_UserData);
  if (m_PartnerWatch) {
    CHANNEL_INFO(where, "Stop watching old partner messages.\n");
    m_PartnerWatch.Reset();
  }
  m_SetPartner(nullptr);
  m_PartnerSignals.Reset();
  m_State = kNoPartner;
}

// Nobody is there any more: not the partner, and nobody who could take its place.
void CBaseDbus::m_ConnectionLost() {
  const PTAutoLockDBus lock(m_Mutex);
  if (m_CurrentPartner() != nullptr) m_LosePartner(Here());
  m_State = kNoPartner;
}

// ---- Sending

bool CBaseDbus::SendMessage(CMessage& msg, int async) {
  return async != 0 ? m_SendAsyncMessage(msg, nullptr, nullptr) : m_SendSyncMessage(msg);
}

bool CBaseDbus::m_CanCall(const Partner* partner, SourceLine where) const {
  if (m_Connection == nullptr) {
    CHANNEL_ERROR(where, "Connection not set.\n");
    return false;
  }
  if (partner == nullptr || partner->proxy == nullptr) {
    CHANNEL_ERROR(where, "Proxy not ready\n");
    return false;
  }
  return true;
}

bool CBaseDbus::m_SendSyncMessage(CMessage& msg) {
  const auto partner = m_CurrentPartner();
  if (!m_CanCall(partner.get(), Here())) return false;
  CHANNEL_INFO(Here(), "Sending sync message with %d key-value pairs\n", msg.Size());
  glib::Error error;
  const Variant body = EncodeMessage(msg, error);
  Variant reply;
  if (body != nullptr) {
    reply.reset(g_dbus_proxy_call_sync(partner->proxy.get(), DBUS_OBJ_METHOD, body.get(),
                                       G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout, nullptr,
                                       error.Out()));
  }
  if (reply == nullptr) {
    CHANNEL_ERROR(Here(), "Error while sending message [%d] %s\n", error.code(), error.message());
    return false;
  }
  if (!g_variant_is_of_type(reply.get(), G_VARIANT_TYPE("(b)"))) {
    CHANNEL_ERROR(Here(), "Reply dropped: body of type %s, must be (b)\n",
                  g_variant_get_type_string(reply.get()));
    return false;
  }
  gboolean answer = FALSE;
  g_variant_get(reply.get(), "(b)", &answer);
  CHANNEL_INFO(Here(), "Reply with %d\n", answer);
  return answer != FALSE;
}

bool CBaseDbus::m_SendAsyncMessage(CMessage& msg, GAsyncReadyCallback callback, void* userData) {
  const auto partner = m_CurrentPartner();
  if (!m_CanCall(partner.get(), Here())) return false;
  CHANNEL_INFO(Here(), "Sending async message with %d key-value pairs\n", msg.Size());
  glib::Error error;
  const Variant body = EncodeMessage(msg, error);
  if (body == nullptr) {
    CHANNEL_ERROR(Here(), "Error while sending message [%d] %s\n", error.code(), error.message());
    return false;
  }
  g_dbus_proxy_call(partner->proxy.get(), DBUS_OBJ_METHOD, body.get(), G_DBUS_CALL_FLAGS_NONE,
                    kDefaultTimeout, nullptr, callback, userData);
  return true;
}

bool CBaseDbus::SendNotification(CMessage& msg) {
  if (m_Connection == nullptr) {
    CHANNEL_ERROR(Here(), "Connection not set.\n");
    return false;
  }
  const auto partner = m_CurrentPartner();
  if (partner == nullptr || !partner->signals_subscribed) {
    CHANNEL_ERROR(Here(), "SignalSubscription not ready\n");
    return false;
  }
  CHANNEL_INFO(Here(), "Sending signal with %d key-value pairs\n", msg.Size());
  glib::Error error;
  const Variant body = EncodeMessage(msg, error);
  if (body != nullptr && m_Emit(*partner, body.get(), error)) return true;
  CHANNEL_ERROR(Here(), "Error while sending signal [%d] %s\n", error.code(), error.message());
  return false;
}

bool CBaseDbus::m_Emit(const Partner& partner, GVariant* body, glib::Error& error) const {
  // A signal without a destination would go to everybody.
  if (partner.unique_name.empty()) {
    error.Set(G_IO_ERROR_NOT_CONNECTED, "the partner has left the bus");
    return false;
  }
  return glib::EmitSignal(m_Connection.get(), partner.unique_name.c_str(), m_ObjectPath.c_str(),
                          m_InterfaceName.c_str(), DBUS_SIG_NAME, body, error);
}

// ---- Receiving. Once a handler has been called the end may be gone: nothing of it is used then.

void CBaseDbus::m_MethodCallback(GDBusConnection* connection, const char* sender,
                                 const char* objectPath, const char* interfaceName,
                                 const char* methodName, GVariant* parameters,
                                 GDBusMethodInvocation* invocation, void* channel) {
  glib::Invocation call(invocation);
  CHANNEL_INFO(Here(), "m_MethodCallback sender=%s obj_path=%s iface_name=%s method_name=%s\n",
               OrNone(sender), OrNone(objectPath), OrNone(interfaceName), OrNone(methodName));
  if (channel == nullptr || connection == nullptr) {
    CHANNEL_ERROR(Here(), "Empty user_data or connection not valid.\n");
    return;
  }
  auto& self = *static_cast<CBaseDbus*>(channel);
  CHANNEL_INFO(Here(), "dbus object name: %s\n", self.m_ObjectPath.c_str());
  if (self.m_ObjectPath != OrNone(objectPath)) return;
  const glib::Connection kept = glib::Share(connection);
  const std::weak_ptr<const bool> alive = self.m_Alive;
  const bool is_done =
      RunToItsEnd(Here(), [&, where = Here()] { self.m_Answer(call, parameters, sender, where); });
  if (!is_done) {  // its sender may be waiting
    g_dbus_method_invocation_return_error_literal(call.release(), G_DBUS_ERROR,
                                                  G_DBUS_ERROR_NO_MEMORY, "out of memory");
  }
  if (alive.expired()) FlushConnection(kept.get());
}

void CBaseDbus::m_Answer(glib::Invocation& call, GVariant* parameters, const char* sender,
                         SourceLine where) {
  CMessage message;
  std::string problem;
  if (!MessageCodec::Decode(parameters, message, problem)) {
    CHANNEL_ERROR(where, "Message from %s dropped: %s\n", OrNone(sender), problem.c_str());
    g_dbus_method_invocation_return_error_literal(call.release(), G_DBUS_ERROR,
                                                  G_DBUS_ERROR_INVALID_ARGS, problem.c_str());
    return;
  }
  const bool answer = t_HandleMessage(message);
  g_dbus_method_invocation_return_value(call.release(),
                                        g_variant_new("(b)", answer ? TRUE : FALSE));
}

void CBaseDbus::m_SignalCallback(GDBusConnection* connection, const char* sender,
                                 const char* objectPath, const char* interfaceName,
                                 const char* signalName, GVariant* parameters, void* channel) {
  CHANNEL_INFO(Here(), "m_SignalCallback sender=%s obj_path=%s iface_name=%s signal_name=%s\n",
               OrNone(sender), OrNone(objectPath), OrNone(interfaceName), OrNone(signalName));
  if (channel == nullptr || connection == nullptr) {
    CHANNEL_ERROR(Here(), "Empty user_data or connection not valid.\n");
    return;
  }
  auto& self = *static_cast<CBaseDbus*>(channel);
  if (self.m_ObjectPath != OrNone(objectPath)) return;
  RunToItsEnd(Here(), [&, where = Here()] {
    CMessage message;
    std::string problem;
    if (!MessageCodec::Decode(parameters, message, problem)) {
      CHANNEL_ERROR(where, "Notification from %s dropped: %s\n", OrNone(sender), problem.c_str());
      return;
    }
    self.t_HandleNotification(message);
  });
}

}  // namespace kavreldbus
