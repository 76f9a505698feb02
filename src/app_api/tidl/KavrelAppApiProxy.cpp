#include "KavrelAppApiProxy.h"

#include <algorithm>
#include <array>
#include <utility>

#include "../../common/abandon.h"

#define LOG_TAG "RPC_PORT_PROXY"

namespace rpc_port {
namespace KavrelAppApiProxy {
namespace proxy {

using kavrel::Here;
using kavrel::kLogError;
using kavrel::kLogWarning;
using kavrel::SourceLine;
using kavrel::app_api::kCallbackId;
using kavrel::app_api::kInterfaceVersion;
using kavrel::app_api::kIsOutValue;
using kavrel::app_api::kPortName;
using kavrel::app_api::kResultId;
using kavrel::app_api::Parcel;
using kavrel::app_api::PlatformText;
using kavrel::app_api::ReadItem;
using kavrel::app_api::WriteItem;
namespace methods = kavrel::app_api::methods;

namespace {

// What rpc-port's connect answers, as far as it has an exception of its own.
constexpr int kInvalidParameter = -22;
constexpr int kPermissionDenied = -13;
constexpr int kInputOutputError = -5;

PlatformText TagOf(rpc_port_parcel_header_h header) {
  char* tag = nullptr;
  if (rpc_port_parcel_header_get_tag(header, &tag) != 0) return nullptr;
  return PlatformText(tag);
}

bool ReadCallbackHeader(rpc_port_parcel_h parcel, int& id, int& seq_id, bool& once) {
  return ReadItem(parcel, id) && ReadItem(parcel, seq_id) && ReadItem(parcel, once);
}

}  // namespace

// --- Callbacks

std::atomic<int> KavrelAppApi::CallbackBase::seq_num_{0};

std::string KavrelAppApi::CallbackBase::GetTag() const {
  return std::to_string(id_) + "::" + std::to_string(seq_id_);
}

rpc_port_parcel_h operator<<(rpc_port_parcel_h parcel, const KavrelAppApi::CallbackBase& callback) {
  WriteItem(parcel, callback.id_);
  WriteItem(parcel, callback.seq_id_);
  WriteItem(parcel, callback.once_);
  return parcel;
}

rpc_port_parcel_h operator>>(rpc_port_parcel_h parcel, KavrelAppApi::CallbackBase& callback) {
  ReadCallbackHeader(parcel, callback.id_, callback.seq_id_, callback.once_);
  return parcel;
}

void KavrelAppApi::DisposeCallback(const std::string& tag) {
  const auto found = std::find_if(callbacks_.begin(), callbacks_.end(),
                                  [&](const auto& callback) { return callback->GetTag() == tag; });
  if (found != callbacks_.end()) callbacks_.erase(found);
}

// --- Life of the connection

KavrelAppApi::KavrelAppApi(IEventListener* listener, const std::string& target_appid)
    : listener_(listener), target_appid_(target_appid) {
  if (rpc_port_proxy_create(&proxy_) != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to create proxy");
    throw InvalidIOException();
  }
  rpc_port_proxy_add_connected_event_cb(proxy_, &OnConnectedCB, this);
  rpc_port_proxy_add_disconnected_event_cb(proxy_, &OnDisconnectedCB, this);
  rpc_port_proxy_add_rejected_event_cb(proxy_, &OnRejectedCB, this);
  rpc_port_proxy_add_received_event_cb(proxy_, &OnReceivedCB, this);
}

KavrelAppApi::~KavrelAppApi() {
  if (proxy_ != nullptr) rpc_port_proxy_destroy(proxy_);
}

void KavrelAppApi::Connect(bool sync) {
  const auto connect = sync ? &rpc_port_proxy_connect_sync : &rpc_port_proxy_connect;
  const int result = connect(proxy_, target_appid_.c_str(), kPortName);
  if (result == 0) return;
  KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to connect KavrelAppApi");
  switch (result) {
    case kInvalidParameter:
      throw InvalidIDException();
    case kPermissionDenied:
      throw PermissionDeniedException();
    case kInputOutputError:
      throw InvalidIOException();
    default:
      return;  // the object stays as it was; its calls then say that they are not connected
  }
}

void KavrelAppApi::Disconnect() {
  if (rpc_port_disconnect(port_) == 0) return;
  KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to disconnect KavrelAppApi");
  throw InvalidIDException();
}

// --- Events of rpc-port

void KavrelAppApi::OnConnectedCB(const char* /*endpoint*/, const char* /*port_name*/,
                                 rpc_port_h port, void* user_data) {
  auto* self = static_cast<KavrelAppApi*>(user_data);
  rpc_port_h callback_port = nullptr;
  rpc_port_proxy_get_port(self->proxy_, RPC_PORT_PORT_CALLBACK, &callback_port);
  self->port_ = port;
  self->callback_port_ = callback_port;
  self->listener_->OnConnected();
}

// The ports stay: a call after a disconnection is to fail at its send, not as one that was never
// connected.
void KavrelAppApi::OnDisconnectedCB(const char* /*endpoint*/, const char* /*port_name*/,
                                    void* user_data) {
  auto* self = static_cast<KavrelAppApi*>(user_data);
  self->callbacks_.clear();
  self->listener_->OnDisconnected();
}

void KavrelAppApi::OnRejectedCB(const char* /*endpoint*/, const char* /*port_name*/,
                                void* user_data) {
  static_cast<KavrelAppApi*>(user_data)->listener_->OnRejected();
}

void KavrelAppApi::OnReceivedCB(const char* /*endpoint*/, const char* /*port_name*/,
                                void* user_data) {
  auto* self = static_cast<KavrelAppApi*>(user_data);
  rpc_port_parcel_h handle = nullptr;
  if (rpc_port_parcel_create_from_port(&handle, self->callback_port_) != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to create parcel from port");
    return;
  }
  const Parcel parcel = Parcel::Adopt(handle);
  int command = -1;
  if (ReadItem(parcel.get(), command) && command == kCallbackId) {
    self->ProcessReceivedEvent(parcel.get());
  }
}

void KavrelAppApi::ProcessReceivedEvent(rpc_port_parcel_h parcel) {
  int id = 0;
  int seq_id = 0;
  bool once = false;
  if (!ReadCallbackHeader(parcel, id, seq_id, once)) return;
  const auto found = std::find_if(callbacks_.begin(), callbacks_.end(), [&](const auto& callback) {
    return callback->GetId() == id && callback->GetSeqId() == seq_id;
  });
  if (found == callbacks_.end()) return;
  // The callback may dispose of itself or of others, so it is looked up again afterwards.
  CallbackBase* const callback = found->get();
  const bool is_once = callback->IsOnce();
  callback->OnCallbackReceived(parcel);
  if (is_once) {
    callbacks_.remove_if([callback](const auto& entry) { return entry.get() == callback; });
  }
}

// --- One call: request, send, result

KavrelAppApi::Request KavrelAppApi::BeginRequest(SourceLine where) {
  if (port_ == nullptr) {
    KAVREL_LOG(kLogError, LOG_TAG, where, "Not connected");
    throw NotConnectedSocketException();
  }
  Request request{Parcel::Create(), -1};
  rpc_port_parcel_header_h header = request.parcel ? request.parcel.Header() : nullptr;
  if (header == nullptr) {
    KAVREL_LOG(kLogError, LOG_TAG, where, "Failed to create parcel");
    throw InvalidIOException();
  }
  rpc_port_parcel_header_set_tag(header, kInterfaceVersion);
  rpc_port_parcel_header_get_seq_num(header, &request.sequence);
  KAVREL_LOG(kLogWarning, LOG_TAG, where, "[Version] \"%s\", [Sequence] %d", kInterfaceVersion,
             request.sequence);
  return request;
}

void KavrelAppApi::Send(SourceLine where, const Request& request) {
  const int result = rpc_port_parcel_send(request.parcel.get(), port_);
  if (result == 0) return;
  KAVREL_LOG(kLogError, LOG_TAG, where, "Failed to send parcel. result(%d)", result);
  throw InvalidIOException();
}

void KavrelAppApi::ConsumeCommand(rpc_port_parcel_h* parcel, rpc_port_h port) {
  *parcel = nullptr;
  rpc_port_parcel_h handle = nullptr;
  while (rpc_port_parcel_create_from_port(&handle, port) == 0) {
    Parcel received = Parcel::Adopt(handle);
    int command = -1;
    if (ReadItem(handle, command) && command == kResultId) {
      *parcel = received.Release();
      return;
    }
  }
}

// A result without a tag comes from a service that stamps nothing: it is taken at its word.
bool KavrelAppApi::Answers(SourceLine where, const Parcel& result, const Request& request) {
  rpc_port_parcel_header_h header = result.Header();
  const PlatformText tag = TagOf(header);
  if (tag == nullptr || *tag == '\0') return true;
  KAVREL_LOG(kLogWarning, LOG_TAG, where, "[Version] %s", tag.get());
  int sequence = -1;
  rpc_port_parcel_header_get_seq_num(header, &sequence);
  if (sequence == request.sequence) return true;
  KAVREL_LOG(kLogError, LOG_TAG, where, "Invalid protocol. %d", sequence);
  return false;
}

Parcel KavrelAppApi::AwaitResult(SourceLine where, Request& request) {
  while (true) {
    rpc_port_parcel_h handle = nullptr;
    ConsumeCommand(&handle, port_);
    if (handle == nullptr) {
      // The request parcel stays allocated on this path alone: which parcels are destroyed, and
      // when, is part of the contract with rpc-port.
      kavrel::Abandon(request.parcel.Release());
      KAVREL_LOG(kLogError, LOG_TAG, where, "Invalid protocol");
      throw InvalidProtocolException();
    }
    Parcel result = Parcel::Adopt(handle);
    if (Answers(where, result, request)) return result;
  }
}

namespace {

// The fields of a result, read whole before any of them reaches the caller.
template <class R, class... P>
struct ResultFields {
  std::array<int, (std::size_t{kIsOutValue<P>} + ... + 0)> out_values{};
  R result{};

  bool ReadFrom(rpc_port_parcel_h parcel) {
    return std::all_of(out_values.begin(), out_values.end(),
                       [parcel](int& value) { return ReadItem(parcel, value); }) &&
           ReadItem(parcel, result);
  }

  void StoreInto(std::remove_reference_t<P>&... arguments) const {
    auto next = out_values.begin();
    (StoreOne<P>(arguments, next), ...);
  }

 private:
  template <class T, class Iterator>
  static void StoreOne(std::remove_reference_t<T>& argument, Iterator& next) {
    if constexpr (kIsOutValue<T>) argument = *next++;
  }
};

template <class T>
bool WriteArgument(rpc_port_parcel_h parcel, const std::remove_reference_t<T>& argument) {
  if constexpr (kIsOutValue<T>) {
    return true;
  } else {
    return WriteItem(parcel, argument);
  }
}

}  // namespace

template <class R, class... P>
R KavrelAppApi::CallAs(SourceLine where, int method_id, R (* /*signature*/)(P...),
                       std::remove_reference_t<P>&... arguments) {
  // Declared first so that the parcels are gone before the next call may send.
  std::unique_lock<std::recursive_mutex> lock(lock_, std::defer_lock);
  Request request = BeginRequest(where);
  const rpc_port_parcel_h parcel = request.parcel.get();
  if (!WriteItem(parcel, method_id) || !(WriteArgument<P>(parcel, arguments) && ...)) {
    KAVREL_LOG(kLogError, LOG_TAG, where, "Failed to write parcel");
    throw InvalidIOException();
  }
  // The lock may be held by a thread that a forked child does not have.
  if (!made_here_) {
    KAVREL_LOG(kLogError, LOG_TAG, where, "Refused: the handle is that of the parent process");
    throw InvalidIOException();
  }
  lock.lock();
  Send(where, request);
  if constexpr (!std::is_void_v<R>) {
    const Parcel result = AwaitResult(where, request);
    ResultFields<R, P...> fields;
    if (!fields.ReadFrom(result.get())) {
      KAVREL_LOG(kLogError, LOG_TAG, where, "Invalid protocol");
      throw InvalidProtocolException();
    }
    fields.StoreInto(arguments...);
    return fields.result;
  }
}

template <class Method, class... Arguments>
typename Method::Result KavrelAppApi::Call(SourceLine where, Arguments&... arguments) {
  return CallAs(where, Method::kId, static_cast<typename Method::Signature*>(nullptr),
                arguments...);
}

// --- The methods of the table

void KavrelAppApi::ChangeSource(std::string a1, std::string a2, std::string a3, std::string a4) {
  Call<methods::ChangeSource>(Here(), a1, a2, a3, a4);
}

bool KavrelAppApi::GetSelectionWindowInfo(int& out1, int& out2, int& out3, int& out4) {
  return Call<methods::GetSelectionWindowInfo>(Here(), out1, out2, out3, out4);
}

bool KavrelAppApi::GetSelectionWindowMoveRange(int& out1, int& out2, int& out3, int& out4) {
  return Call<methods::GetSelectionWindowMoveRange>(Here(), out1, out2, out3, out4);
}

bool KavrelAppApi::StoreSelectionWindowInfo(int a1, int a2) {
  return Call<methods::StoreSelectionWindowInfo>(Here(), a1, a2);
}

bool KavrelAppApi::MoveSelectionWindowTo(int a1, int a2) {
  return Call<methods::MoveSelectionWindowTo>(Here(), a1, a2);
}

bool KavrelAppApi::ChangeSelectionWindowZoomLevel(int a1) {
  return Call<methods::ChangeSelectionWindowZoomLevel>(Here(), a1);
}

bool KavrelAppApi::GetWindowSize(int& out1) {
  return Call<methods::GetWindowSize>(Here(), out1);
}

bool KavrelAppApi::SetWindowSize(int a1) {
  return Call<methods::SetWindowSize>(Here(), a1);
}

void KavrelAppApi::SendMbrKey(int a1, int a2, int a3, std::string a4, std::vector<std::string> a5) {
  Call<methods::SendMbrKey>(Here(), a1, a2, a3, a4, a5);
}

void KavrelAppApi::ShowChannelBanner(int a1) {
  Call<methods::ShowChannelBanner>(Here(), a1);
}

void KavrelAppApi::ShowCaption(int a1, std::string a2) {
  Call<methods::ShowCaption>(Here(), a1, a2);
}

void KavrelAppApi::ShowSourceBanner(int a1, std::string a2, std::string a3, std::string a4) {
  Call<methods::ShowSourceBanner>(Here(), a1, a2, a3, a4);
}

void KavrelAppApi::ShowMTSBanner(int a1, std::string a2) {
  Call<methods::ShowMTSBanner>(Here(), a1, a2);
}

void KavrelAppApi::ShowRatingBanner(int a1, std::string a2, std::string a3) {
  Call<methods::ShowRatingBanner>(Here(), a1, a2, a3);
}

void KavrelAppApi::ShowNosignalBanner(int a1, std::string a2) {
  Call<methods::ShowNosignalBanner>(Here(), a1, a2);
}

void KavrelAppApi::ShowPVRInfo(int a1, std::string a2) {
  Call<methods::ShowPVRInfo>(Here(), a1, a2);
}

void KavrelAppApi::ShowSleepTimerPopup(int a1) {
  Call<methods::ShowSleepTimerPopup>(Here(), a1);
}

void KavrelAppApi::ShowAutoPowerOffPopup(int a1) {
  Call<methods::ShowAutoPowerOffPopup>(Here(), a1);
}

void KavrelAppApi::ShowFanErrorPopup(int a1) {
  Call<methods::ShowFanErrorPopup>(Here(), a1);
}

void KavrelAppApi::ShowProjectorHsmErrorPopup(int a1) {
  Call<methods::ShowProjectorHsmErrorPopup>(Here(), a1);
}

void KavrelAppApi::ShowQdDisplayNoti(int a1, std::string a2) {
  Call<methods::ShowQdDisplayNoti>(Here(), a1, a2);
}

void KavrelAppApi::ShowPellwinBrightnessReducePopup(int a1) {
  Call<methods::ShowPellwinBrightnessReducePopup>(Here(), a1);
}

void KavrelAppApi::ShowHotelNoChannelPopup(int a1) {
  Call<methods::ShowHotelNoChannelPopup>(Here(), a1);
}

void KavrelAppApi::ShowHospitalNoChannelPopup(int a1) {
  Call<methods::ShowHospitalNoChannelPopup>(Here(), a1);
}

void KavrelAppApi::ShowInsufficientMemoryPopup(int a1) {
  Call<methods::ShowInsufficientMemoryPopup>(Here(), a1);
}

void KavrelAppApi::ShowSignZoomSetup(int a1) {
  Call<methods::ShowSignZoomSetup>(Here(), a1);
}

void KavrelAppApi::ShowReturnPrevChannelPopup(int a1) {
  Call<methods::ShowReturnPrevChannelPopup>(Here(), a1);
}

void KavrelAppApi::ShowNoSignalPowerOffTimerPopup(int a1) {
  Call<methods::ShowNoSignalPowerOffTimerPopup>(Here(), a1);
}

void KavrelAppApi::ShowKeyGuideBanner(int a1, int a2) {
  Call<methods::ShowKeyGuideBanner>(Here(), a1, a2);
}

void KavrelAppApi::ShowGameModeBanner(int a1, bool a2) {
  Call<methods::ShowGameModeBanner>(Here(), a1, a2);
}

void KavrelAppApi::ShowOCLViewForMLED(int a1, std::string a2) {
  Call<methods::ShowOCLViewForMLED>(Here(), a1, a2);
}

void KavrelAppApi::SendCommand(std::string a1, std::string a2) {
  Call<methods::SendCommand>(Here(), a1, a2);
}

void KavrelAppApi::EnableBanner(std::string a1, std::string a2) {
  Call<methods::EnableBanner>(Here(), a1, a2);
}

void KavrelAppApi::DisableBanner(std::string a1, std::string a2) {
  Call<methods::DisableBanner>(Here(), a1, a2);
}

void KavrelAppApi::SendInitCommand(std::string a1) {
  Call<methods::SendInitCommand>(Here(), a1);
}

void KavrelAppApi::SendHideBanner(std::string a1, std::string a2) {
  Call<methods::SendHideBanner>(Here(), a1, a2);
}

void KavrelAppApi::SetLanguage(std::string a1) {
  Call<methods::SetLanguage>(Here(), a1);
}

void KavrelAppApi::PluginCmd(std::string a1, std::string a2) {
  Call<methods::PluginCmd>(Here(), a1, a2);
}

void KavrelAppApi::SetTVSHint(std::string a1) {
  Call<methods::SetTVSHint>(Here(), a1);
}

void KavrelAppApi::NotificationCommand(std::string a1, int a2) {
  Call<methods::NotificationCommand>(Here(), a1, a2);
}

void KavrelAppApi::TuneChannel(std::string a1, std::string a2, std::string a3, std::string a4) {
  Call<methods::TuneChannel>(Here(), a1, a2, a3, a4);
}

void KavrelAppApi::TuneChannelMain(std::string a1, std::string a2) {
  Call<methods::TuneChannelMain>(Here(), a1, a2);
}

void KavrelAppApi::TuneChannelMajor(int a1, int a2, std::string a3) {
  Call<methods::TuneChannelMajor>(Here(), a1, a2, a3);
}

void KavrelAppApi::TuneChannelPip(std::string a1, std::string a2) {
  Call<methods::TuneChannelPip>(Here(), a1, a2);
}

void KavrelAppApi::SvcIdTune(std::string a1, std::string a2, std::string a3, std::string a4) {
  Call<methods::SvcIdTune>(Here(), a1, a2, a3, a4);
}

void KavrelAppApi::ShowLoading(std::string a1) {
  Call<methods::ShowLoading>(Here(), a1);
}

void KavrelAppApi::SendDiscreteCommand(std::string a1, std::string a2) {
  Call<methods::SendDiscreteCommand>(Here(), a1, a2);
}

void KavrelAppApi::SendAutoRemoconKey(std::string a1, std::string a2, std::string a3,
                                      std::string a4, std::string a5) {
  Call<methods::SendAutoRemoconKey>(Here(), a1, a2, a3, a4, a5);
}

void KavrelAppApi::SendStorageCommand(std::string a1) {
  Call<methods::SendStorageCommand>(Here(), a1);
}

void KavrelAppApi::SetHbbTVState(std::string a1) {
  Call<methods::SetHbbTVState>(Here(), a1);
}

void KavrelAppApi::VoiceAppRequestTune(std::string a1) {
  Call<methods::VoiceAppRequestTune>(Here(), a1);
}

void KavrelAppApi::ExitTTX(std::string a1) {
  Call<methods::ExitTTX>(Here(), a1);
}

int KavrelAppApi::CheckStateForVistane(int& out1) {
  return Call<methods::CheckStateForVistane>(Here(), out1);
}

}  // namespace proxy
}  // namespace KavrelAppApiProxy
}  // namespace rpc_port
