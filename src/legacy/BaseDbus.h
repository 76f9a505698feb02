// The channel between a viewer host and one plug-in: two processes that name the same pair find
// each other on the system bus and then exchange messages.
//
// Neither end owns a name for longer than it takes to say something. An end speaks by owning a
// handshake name and releasing it at once; the bus tells everybody who watches that name which
// connection let go of it, and that is the whole message. Each end first watches the pair's three
// names, then says SYN:
//
//     X (first)                          bus                          Y (later)
//     watch SYN, SYN_ACK, ACK
//     state 1, SYN  ------------------->  (nobody listens)
//                                                       watch SYN, SYN_ACK, ACK
//                                         <-----------------------  SYN, state 1
//     take Y on: watch, proxy, signals
//     SYN_ACK  ------------------------------------------------->
//     state 2                                            take X on: watch, proxy, signals
//                                         <-----------------------  ACK
//                                                        state 3, connected callback
//     state 3, connected callback
//
// Taking on happens once: with a partner at hand every further SYN or SYN_ACK is ignored until that
// partner's connection leaves the bus. Two ends that both watch before either says SYN take each
// other on from their SYNs, and both stay in state 2: not "ready", yet both send and receive.
//
// Names and order of the classes' operations are contract; virtual operations are appended, never
// inserted.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "../common/glib.h"
#include "../common/log.h"
#include "Message.h"
#include "SystemBus.h"

namespace kavreldbus {

/// One default POSIX mutex: not recursive. Any thread.
class PTMutexDBus {
 public:
  PTMutexDBus();
  PTMutexDBus(const PTMutexDBus&) = delete;
  PTMutexDBus& operator=(const PTMutexDBus&) = delete;
  ~PTMutexDBus();

  int Lock() { return pthread_mutex_lock(&mutex_); }
  int Unlock() { return pthread_mutex_unlock(&mutex_); }
  bool TryLock() { return pthread_mutex_trylock(&mutex_) == 0; }

 private:
  pthread_mutex_t mutex_;
};

/// Holds a PTMutexDBus for as long as it lives, on one thread.
class PTAutoLockDBus {
 public:
  explicit PTAutoLockDBus(PTMutexDBus& mutex) : mutex_(mutex) { mutex_.Lock(); }
  PTAutoLockDBus(const PTAutoLockDBus&) = delete;
  PTAutoLockDBus& operator=(const PTAutoLockDBus&) = delete;
  virtual ~PTAutoLockDBus() { mutex_.Unlock(); }

 private:
  PTMutexDBus& mutex_;
};

/// Both ends of the channel; they differ only in where an incoming message goes.
///
/// Thread: an end belongs to the main context that is the default of the thread that makes it. All
/// that arrives is dispatched there, nothing arrives unless that context's loop runs, and the end
/// is destroyed on that thread. Sending and IsConnectionReady() are safe on any thread.
///
/// Blocking: making an end logs in to the bus (at most 25 s) and says SYN, and each later step of
/// the handshake is said on the loop's thread; a step is two calls of the bus, each at most 25 s. A
/// waiting send takes at most 25 s. With a bus that answers all of it takes well under 1 ms.
///
/// Destroying an end inside t_HandleMessage or t_HandleNotification, or in what they call, is fine.
class CBaseDbus {
 public:
  static constexpr const char* FORMAT_DBUS_PREFIX = "org.zarnet.%s";
  static constexpr const char* FORMAT_DBUS_OBJ_IFACE = "org.zarnet.%s.DbusCommunication";
  static constexpr const char* FORMAT_DBUS_OBJ_NAME_PREFIX = "/org/zarnet/%s/CommunicationChannel";
  static constexpr const char* FORMAT_INTERFACE_XML =
      "<node>  <interface name='org.zarnet.%s.DbusCommunication'>    <method name='Send'>"
      "      <arg type='a(ss)' name='data' direction='in'/>"
      "      <arg type='b' name='response' direction='out'/>"
      "    </method>  </interface></node>";
  static constexpr const char* DBUS_OBJ_METHOD = "Send";
  static constexpr const char* DBUS_SIG_NAME = "SendSignal";
  static constexpr const char* DBUS_SYN_SUFFIX = "_SYN";
  static constexpr const char* DBUS_SYNACK_SUFFIX = "_SYN_ACK";
  static constexpr const char* DBUS_ACK_SUFFIX = "_ACK";
  static const GDBusInterfaceVTable m_vTable;

  /// Connects, exports the end and says SYN; a partner that is there already answers as soon as the
  /// loop runs. Without a bus the end is dead for good: never ready, every send false.
  ///
  /// @param hostName    name of the host; its '-' do not show in names on the bus
  /// @param pluginName  name of the plug-in, used as it is. One that cannot be part of an object
  ///                    path (a '-') or of a bus name (a digit at its start) makes an end that
  ///                    never hears its partner; the log says so.
  CBaseDbus(std::string hostName, std::string pluginName);
  CBaseDbus(const CBaseDbus&) = delete;
  CBaseDbus& operator=(const CBaseDbus&) = delete;

  /// Ends the channel without a word; the partner notices when this process's connection closes.
  /// What was sent before still leaves the process, which is waited for, at most 5 s.
  /// Aborts the process inside a connected or disconnected callback of this end.
  virtual ~CBaseDbus();

 protected:
  /// Takes an incoming "Send"; what it returns is the answer. This one returns true.
  virtual bool t_HandleMessage(CMessage& msg);
  /// Takes an incoming signal; nobody looks at what it returns. This one logs and returns false.
  virtual bool t_HandleNotification(CMessage& msg);

 public:
  /// Sends `msg` to the partner. With `async` 0 waits for the partner's answer and returns it;
  /// false also means that it was not delivered. Otherwise hands it to the bus, with no answer
  /// wanted, and returns true; false when there is no partner yet or the message cannot travel.
  ///
  /// Waiting on the loop's thread while the partner waits for this end lasts until the time-out.
  bool SendMessage(CMessage& msg, int async);

  /// Sends `msg` to the partner as a signal. True when it was handed to the bus.
  bool SendNotification(CMessage& msg);

  /// Whether the handshake has come to its end and the partner is there.
  bool IsConnectionReady() const { return m_State == kReady; }

  /// Sets what is called when the channel becomes ready, and when the partner is gone or the bus is
  /// lost; both may be null. Call it on the end's thread, or before its loop runs.
  ///
  /// Both run with the end's lock held. They may send; IsConnectionReady() is true in both. They
  /// must not destroy the end, which aborts the process, nor run the main loop.
  void SetConnectionChangedCallback(void (*connected)(void*), void (*disconnected)(void*),
                                    void* userData);

 protected:
  bool m_SendSyncMessage(CMessage& msg);
  /// With a null `callback` the message asks for no answer, and nothing stays pending when the
  /// partner never gives one.
  bool m_SendAsyncMessage(CMessage& msg, GAsyncReadyCallback callback, void* userData);
  /// Says one step of the handshake: owns `name` and releases it.
  void m_BroadcastName(std::string& name);

  /// What SYN and SYN_ACK have in common: takes the sender on as partner when it is another
  /// connection and there is no partner yet. Called with the lock held; true when it was taken on.
  static bool m_NameOwnerChangedCallback(GDBusConnection* connection, GVariant* parameters,
                                         void* channel);

  static void m_MethodCallback(GDBusConnection* connection, const char* sender,
                               const char* objectPath, const char* interfaceName,
                               const char* methodName, GVariant* parameters,
                               GDBusMethodInvocation* invocation, void* channel);
  void m_Answer(kavrel::glib::Invocation& call, GVariant* parameters, const char* sender,
                kavrel::SourceLine where);
  static void m_SignalCallback(GDBusConnection* connection, const char* sender,
                               const char* objectPath, const char* interfaceName,
                               const char* signalName, GVariant* parameters, void* channel);
  static void m_SynNameOwnerChangedCallback(GDBusConnection* connection, const char* sender,
                                            const char* objectPath, const char* interfaceName,
                                            const char* signalName, GVariant* parameters,
                                            void* channel);
  static void m_SynAckNameOwnerChangedCallback(GDBusConnection* connection, const char* sender,
                                               const char* objectPath, const char* interfaceName,
                                               const char* signalName, GVariant* parameters,
                                               void* channel);
  static void m_AckNameOwnerChangedCallback(GDBusConnection* connection, const char* sender,
                                            const char* objectPath, const char* interfaceName,
                                            const char* signalName, GVariant* parameters,
                                            void* channel);
  static void m_PartnerNameVanishedCallback(GDBusConnection* connection, const char* name,
                                            void* channel);

  const std::string& HostName() const { return m_HostName; }
  const std::string& PluginName() const { return m_PluginName; }
  int State() const { return m_State; }

 private:
  enum { kNoPartner = 0, kAnnounced = 1, kPartnerTakenOn = 2, kReady = 3 };

  /// What a sender on any thread needs to know of the partner; never changed once made.
  struct Partner {
    std::string unique_name;  // empty once the partner has vanished
    kavrel::glib::Proxy proxy;
    bool signals_subscribed = false;
  };

  std::string m_HandshakeName(const char* suffix) const;
  bool m_Connect(kavrel::SourceLine where);
  void m_ParseIntrospection(kavrel::SourceLine where);
  void m_Export(kavrel::SourceLine where);
  void m_SubscribeToHandshake();
  kavrel::glib::Subscription m_SubscribeToName(const char* suffix, GDBusSignalCallback callback);
  bool m_RequestName(const std::string& name, kavrel::SourceLine where);
  void m_ReleaseName(const std::string& name, kavrel::SourceLine where);
  void m_TakeOn(const char* uniqueName, kavrel::SourceLine where);
  void m_LosePartner(kavrel::SourceLine where);
  void m_ConnectionLost();
  std::shared_ptr<const Partner> m_CurrentPartner() const;
  void m_SetPartner(std::shared_ptr<const Partner> partner);
  bool m_CanCall(const Partner* partner, kavrel::SourceLine where) const;
  bool m_Emit(const Partner& partner, GVariant* body, kavrel::glib::Error& error) const;

  std::string m_HostName;
  std::string m_PluginName;
  std::string m_UniqueName;
  std::string m_ObjectPath;
  std::string m_InterfaceName;
  std::shared_ptr<const Partner> m_Partner;  // guarded by m_PartnerGuard; null while there is none
  mutable std::mutex m_PartnerGuard;         // held only to read or set the pointer
  kavrel::glib::NodeInfo m_NodeInfo;
  kavrel::glib::Registration m_Registration;
  kavrel::glib::Subscription m_SynSubscription;
  kavrel::glib::Subscription m_SynAckSubscription;
  kavrel::glib::Subscription m_AckSubscription;
  kavrel::glib::NameWatch m_PartnerWatch;
  kavrel::glib::Subscription m_PartnerSignals;
  LossWatch m_LossWatch;
  std::atomic<int> m_State = kNoPartner;
  kavrel::glib::Connection m_Connection;
  PTMutexDBus m_Mutex;
  void (*m_Connected)(void*) = nullptr;
  void (*m_Disconnected)(void*) = nullptr;
  void* m_UserData = nullptr;
  std::shared_ptr<const bool> m_Alive = std::make_shared<const bool>(true);  // gone with the end
};

}  // namespace kavreldbus
