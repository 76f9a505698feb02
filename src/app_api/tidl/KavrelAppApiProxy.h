// The client end of the remote interface KavrelAppApi: one object is one connection to a viewer.
//
// The names, the order of fields and of virtual operations, the exceptions and the log texts of
// this class are contract. Each operation becomes one parcel - method id, then the arguments in the
// order of the method table - and, where the table gives a result, waits for the parcel that
// answers it.
//
// Threads: the operations may be called from any thread; one recursive lock an object keeps one
// request at a time on the wire, from its send to the end of its reply. Events arrive on the thread
// on which rpc-port delivers them; they touch the callbacks without the lock, so DisposeCallback
// belongs to that thread too.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <rpc-port.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "../../common/fork_count.h"
#include "../../common/log.h"
#include "Parcel.h"

namespace rpc_port {
namespace KavrelAppApiProxy {
namespace proxy {

class Exception {};
/// The main port has never been set.
class NotConnectedSocketException : public Exception {};
/// A parcel could not be made or sent, or the connection failed with an input/output error.
class InvalidIOException : public Exception {};
/// No result could be had for a request.
class InvalidProtocolException : public Exception {};
/// rpc-port took a name or a port for invalid.
class InvalidIDException : public Exception {};
/// The service refused the connection.
class PermissionDeniedException : public Exception {};

class KavrelAppApi {
 public:
  /// Told of the connection's events, on the thread on which rpc-port delivers them.
  class IEventListener {
   public:
    virtual void OnConnected() = 0;
    virtual void OnDisconnected() = 0;
    virtual void OnRejected() = 0;

   protected:
    ~IEventListener() = default;
  };

  /// Something the service may call back. Identified by kind (id) and instance (seq id).
  class CallbackBase {
   public:
    CallbackBase(int id, bool once) : id_(id), seq_id_(seq_num_++), once_(once) {}
    virtual ~CallbackBase() = default;

    /// `parcel` is positioned after the callback header.
    virtual void OnCallbackReceived(rpc_port_parcel_h parcel) = 0;

    int GetId() const { return id_; }
    int GetSeqId() const { return seq_id_; }
    bool IsOnce() const { return once_; }
    /// "<id>::<seq id>"
    std::string GetTag() const;

   private:
    friend rpc_port_parcel_h operator<<(rpc_port_parcel_h parcel, const CallbackBase& callback);
    friend rpc_port_parcel_h operator>>(rpc_port_parcel_h parcel, CallbackBase& callback);

    static std::atomic<int> seq_num_;

    int id_;
    int seq_id_;
    bool once_;
  };

  /// Makes the rpc-port proxy and registers for its events; connects nothing yet. `listener` is not
  /// owned and must outlive the object. Throws InvalidIOException.
  KavrelAppApi(IEventListener* listener, const std::string& target_appid);
  KavrelAppApi(const KavrelAppApi&) = delete;
  KavrelAppApi& operator=(const KavrelAppApi&) = delete;
  /// Destroys the rpc-port proxy; neither disconnects first nor tells the listener.
  virtual ~KavrelAppApi();

  /// Connects to the target's service; with `sync` both ports are set when it returns. Throws
  /// InvalidIDException, PermissionDeniedException or InvalidIOException; any other failure is only
  /// logged.
  void Connect(bool sync);
  /// Asks rpc-port to end the connection; what follows is done by the disconnected event. Throws
  /// InvalidIDException.
  void Disconnect();
  /// Destroys the first callback with this tag, if there is one.
  void DisposeCallback(const std::string& tag);

  // One operation a method of the table. All throw NotConnectedSocketException and
  // InvalidIOException; those with a result also InvalidProtocolException.
  void ChangeSource(std::string a1, std::string a2, std::string a3, std::string a4);
  bool GetSelectionWindowInfo(int& out1, int& out2, int& out3, int& out4);
  bool GetSelectionWindowMoveRange(int& out1, int& out2, int& out3, int& out4);
  bool StoreSelectionWindowInfo(int a1, int a2);
  bool MoveSelectionWindowTo(int a1, int a2);
  bool ChangeSelectionWindowZoomLevel(int a1);
  bool GetWindowSize(int& out1);
  bool SetWindowSize(int a1);
  void SendMbrKey(int a1, int a2, int a3, std::string a4, std::vector<std::string> a5);
  void ShowChannelBanner(int a1);
  void ShowCaption(int a1, std::string a2);
  void ShowSourceBanner(int a1, std::string a2, std::string a3, std::string a4);
  void ShowMTSBanner(int a1, std::string a2);
  void ShowRatingBanner(int a1, std::string a2, std::string a3);
  void ShowNosignalBanner(int a1, std::string a2);
  void ShowPVRInfo(int a1, std::string a2);
  void ShowSleepTimerPopup(int a1);
  void ShowAutoPowerOffPopup(int a1);
  void ShowFanErrorPopup(int a1);
  void ShowProjectorHsmErrorPopup(int a1);
  void ShowQdDisplayNoti(int a1, std::string a2);
  void ShowPellwinBrightnessReducePopup(int a1);
  void ShowHotelNoChannelPopup(int a1);
  void ShowHospitalNoChannelPopup(int a1);
  void ShowInsufficientMemoryPopup(int a1);
  void ShowSignZoomSetup(int a1);
  void ShowReturnPrevChannelPopup(int a1);
  void ShowNoSignalPowerOffTimerPopup(int a1);
  void ShowKeyGuideBanner(int a1, int a2);
  void ShowGameModeBanner(int a1, bool a2);
  void ShowOCLViewForMLED(int a1, std::string a2);
  void SendCommand(std::string a1, std::string a2);
  void EnableBanner(std::string a1, std::string a2);
  void DisableBanner(std::string a1, std::string a2);
  void SendInitCommand(std::string a1);
  void SendHideBanner(std::string a1, std::string a2);
  void SetLanguage(std::string a1);
  void PluginCmd(std::string a1, std::string a2);
  void SetTVSHint(std::string a1);
  void NotificationCommand(std::string a1, int a2);
  void TuneChannel(std::string a1, std::string a2, std::string a3, std::string a4);
  void TuneChannelMain(std::string a1, std::string a2);
  void TuneChannelMajor(int a1, int a2, std::string a3);
  void TuneChannelPip(std::string a1, std::string a2);
  void SvcIdTune(std::string a1, std::string a2, std::string a3, std::string a4);
  void ShowLoading(std::string a1);
  void SendDiscreteCommand(std::string a1, std::string a2);
  void SendAutoRemoconKey(std::string a1, std::string a2, std::string a3, std::string a4,
                          std::string a5);
  void SendStorageCommand(std::string a1);
  void SetHbbTVState(std::string a1);
  void VoiceAppRequestTune(std::string a1);
  void ExitTTX(std::string a1);
  int CheckStateForVistane(int& out1);

 protected:
  /// Takes the next result parcel from `port`; others are skipped. Stores it, or null when the port
  /// gives no more.
  void ConsumeCommand(rpc_port_parcel_h* parcel, rpc_port_h port);
  /// Hands a callback parcel to the callback that its header names.
  void ProcessReceivedEvent(rpc_port_parcel_h parcel);

  static void OnConnectedCB(const char* endpoint, const char* port_name, rpc_port_h port,
                            void* user_data);
  static void OnDisconnectedCB(const char* endpoint, const char* port_name, void* user_data);
  static void OnRejectedCB(const char* endpoint, const char* port_name, void* user_data);
  static void OnReceivedCB(const char* endpoint, const char* port_name, void* user_data);

 private:
  friend struct ProxyTestAccess;

  /// A request under construction and the number that its result must carry.
  struct Request {
    kavrel::app_api::Parcel parcel;
    int sequence = -1;
  };

  template <class Method, class... Arguments>
  typename Method::Result Call(kavrel::SourceLine where, Arguments&... arguments);
  template <class R, class... P>
  R CallAs(kavrel::SourceLine where, int method_id, R (*signature)(P...),
           std::remove_reference_t<P>&... arguments);
  Request BeginRequest(kavrel::SourceLine where);
  void Send(kavrel::SourceLine where, const Request& request);
  kavrel::app_api::Parcel AwaitResult(kavrel::SourceLine where, Request& request);
  static bool Answers(kavrel::SourceLine where, const kavrel::app_api::Parcel& result,
                      const Request& request);

  std::atomic<rpc_port_h> port_{nullptr};
  std::atomic<rpc_port_h> callback_port_{nullptr};
  rpc_port_proxy_h proxy_ = nullptr;
  IEventListener* listener_;
  std::recursive_mutex lock_;
  kavrel::MadeHere made_here_;
  std::list<std::unique_ptr<CallbackBase>> callbacks_;
  std::string target_appid_;
};

/// The callback header in a parcel: int32 id, int32 seq id, bool once.
rpc_port_parcel_h operator<<(rpc_port_parcel_h parcel, const KavrelAppApi::CallbackBase& callback);
rpc_port_parcel_h operator>>(rpc_port_parcel_h parcel, KavrelAppApi::CallbackBase& callback);

}  // namespace proxy
}  // namespace KavrelAppApiProxy
}  // namespace rpc_port
