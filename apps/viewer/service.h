// The 53 operations of the remote interface, carried out on the television. One service object
// stands for one connected client; all of them command the same television.
#pragma once

#include <kavrel/tidl/KavrelAppApiStub.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "operation_log.h"
#include "television.h"

namespace viewer {

namespace stub = rpc_port::KavrelAppApiStub::stub;

/// The clients that are connected. Belongs to the viewer's main thread.
class ClientList {
 public:
  void Add(const std::string& instance, const std::string& sender) { senders_[instance] = sender; }
  void Remove(const std::string& instance) { senders_.erase(instance); }
  /// Their application ids, one for each connection.
  std::vector<std::string> Senders() const;

 private:
  std::map<std::string, std::string> senders_;  // by connection
};

/// Belongs to the viewer's main thread, where its operations are called.
class Service final : public stub::KavrelAppApi::ServiceBase {
 public:
  /// `television`, `log` and `clients` outlive the service.
  Service(std::string sender, std::string instance, Television& television, OperationLog& log,
          ClientList& clients);

  void OnClientConnected() override { clients_.Add(GetInstance(), GetSender()); }
  void OnClientDisconnected() override { clients_.Remove(GetInstance()); }

  void ChangeSource(std::string type, std::string number, std::string label,
                    std::string caller) override;
  bool GetSelectionWindowInfo(int& left, int& top, int& width, int& height) override;
  bool GetSelectionWindowMoveRange(int& least_left, int& least_top, int& greatest_left,
                                   int& greatest_top) override;
  bool StoreSelectionWindowInfo(int left, int top) override;
  bool MoveSelectionWindowTo(int left, int top) override;
  bool ChangeSelectionWindowZoomLevel(int level) override;
  bool GetWindowSize(int& size) override;
  bool SetWindowSize(int size) override;
  void SendMbrKey(int device_type, int device_number, int action, std::string key,
                  std::vector<std::string> options) override;
  void ShowChannelBanner(int show) override;
  void ShowCaption(int show, std::string text) override;
  void ShowSourceBanner(int show, std::string source, std::string label,
                        std::string detail) override;
  void ShowMTSBanner(int show, std::string mode) override;
  void ShowRatingBanner(int show, std::string rating, std::string reason) override;
  void ShowNosignalBanner(int show, std::string text) override;
  void ShowPVRInfo(int show, std::string text) override;
  void ShowSleepTimerPopup(int show) override;
  void ShowAutoPowerOffPopup(int show) override;
  void ShowFanErrorPopup(int show) override;
  void ShowProjectorHsmErrorPopup(int show) override;
  void ShowQdDisplayNoti(int show, std::string text) override;
  void ShowPellwinBrightnessReducePopup(int show) override;
  void ShowHotelNoChannelPopup(int show) override;
  void ShowHospitalNoChannelPopup(int show) override;
  void ShowInsufficientMemoryPopup(int show) override;
  void ShowSignZoomSetup(int show) override;
  void ShowReturnPrevChannelPopup(int show) override;
  void ShowNoSignalPowerOffTimerPopup(int show) override;
  void ShowKeyGuideBanner(int show, int page) override;
  void ShowGameModeBanner(int show, bool game_mode) override;
  void ShowOCLViewForMLED(int show, std::string text) override;
  void SendCommand(std::string command, std::string argument) override;
  void EnableBanner(std::string banner, std::string caller) override;
  void DisableBanner(std::string banner, std::string caller) override;
  void SendInitCommand(std::string argument) override;
  void SendHideBanner(std::string banner, std::string caller) override;
  void SetLanguage(std::string language) override;
  void PluginCmd(std::string plugin, std::string command) override;
  void SetTVSHint(std::string hint) override;
  void NotificationCommand(std::string notification, int action) override;
  void TuneChannel(std::string number, std::string name, std::string source,
                   std::string caller) override;
  void TuneChannelMain(std::string number, std::string caller) override;
  void TuneChannelMajor(int major_number, int minor_number, std::string caller) override;
  void TuneChannelPip(std::string number, std::string caller) override;
  void SvcIdTune(std::string service_id, std::string transport_stream_id, std::string network_id,
                 std::string caller) override;
  void ShowLoading(std::string text) override;
  void SendDiscreteCommand(std::string command, std::string argument) override;
  void SendAutoRemoconKey(std::string key, std::string device, std::string action,
                          std::string option, std::string caller) override;
  void SendStorageCommand(std::string command) override;
  void SetHbbTVState(std::string state) override;
  void VoiceAppRequestTune(std::string channel) override;
  void ExitTTX(std::string reason) override;
  int CheckStateForVistane(int& state) override;

 private:
  // Carries out `act` and logs it with the operation's arguments, out values and result.
  template <class Method, class Act, class... Arguments>
  typename Method::Result Serve(const Act& act, Arguments&... arguments);
  // Shows or hides a banner, with texts for it.
  template <class Method, class... Details>
  void ServeBanner(Banner banner, int show, const Details&... details);

  Television& television_;
  OperationLog& log_;
  ClientList& clients_;
};

/// Makes a service for every client that connects. Belongs to the viewer's main thread.
class ServiceFactory final : public stub::KavrelAppApi::ServiceBase::Factory {
 public:
  ServiceFactory(Television& television, OperationLog& log, ClientList& clients)
      : television_(television), log_(log), clients_(clients) {}

  std::unique_ptr<stub::KavrelAppApi::ServiceBase> MakeService(std::string sender,
                                                               std::string instance) override;

 private:
  Television& television_;
  OperationLog& log_;
  ClientList& clients_;
};

}  // namespace viewer
