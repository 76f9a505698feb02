// A service whose every operation does nothing and answers with zeros: tests, examples and
// benchmarks override what they are about.
#pragma once

#include <kavrel/tidl/KavrelAppApiStub.h>

#include <string>
#include <utility>
#include <vector>

namespace kavrel_test {

class NullService : public rpc_port::KavrelAppApiStub::stub::KavrelAppApi::ServiceBase {
 public:
  NullService(std::string sender, std::string instance)
      : ServiceBase(std::move(sender), std::move(instance)) {}

  void OnClientConnected() override {}
  void OnClientDisconnected() override {}

  void ChangeSource(std::string /*a1*/, std::string /*a2*/, std::string /*a3*/,
                    std::string /*a4*/) override {}
  bool GetSelectionWindowInfo(int& out1, int& out2, int& out3, int& out4) override {
    out1 = 0;
    out2 = 0;
    out3 = 0;
    out4 = 0;
    return true;
  }
  bool GetSelectionWindowMoveRange(int& out1, int& out2, int& out3, int& out4) override {
    out1 = 0;
    out2 = 0;
    out3 = 0;
    out4 = 0;
    return true;
  }
  bool StoreSelectionWindowInfo(int /*a1*/, int /*a2*/) override { return true; }
  bool MoveSelectionWindowTo(int /*a1*/, int /*a2*/) override { return true; }
  bool ChangeSelectionWindowZoomLevel(int /*a1*/) override { return true; }
  bool GetWindowSize(int& out1) override {
    out1 = 0;
    return true;
  }
  bool SetWindowSize(int /*a1*/) override { return true; }
  void SendMbrKey(int /*a1*/, int /*a2*/, int /*a3*/, std::string /*a4*/,
                  std::vector<std::string> /*a5*/) override {}
  void ShowChannelBanner(int /*a1*/) override {}
  void ShowCaption(int /*a1*/, std::string /*a2*/) override {}
  void ShowSourceBanner(int /*a1*/, std::string /*a2*/, std::string /*a3*/,
                        std::string /*a4*/) override {}
  void ShowMTSBanner(int /*a1*/, std::string /*a2*/) override {}
  void ShowRatingBanner(int /*a1*/, std::string /*a2*/, std::string /*a3*/) override {}
  void ShowNosignalBanner(int /*a1*/, std::string /*a2*/) override {}
  void ShowPVRInfo(int /*a1*/, std::string /*a2*/) override {}
  void ShowSleepTimerPopup(int /*a1*/) override {}
  void ShowAutoPowerOffPopup(int /*a1*/) override {}
  void ShowFanErrorPopup(int /*a1*/) override {}
  void ShowProjectorHsmErrorPopup(int /*a1*/) override {}
  void ShowQdDisplayNoti(int /*a1*/, std::string /*a2*/) override {}
  void ShowPellwinBrightnessReducePopup(int /*a1*/) override {}
  void ShowHotelNoChannelPopup(int /*a1*/) override {}
  void ShowHospitalNoChannelPopup(int /*a1*/) override {}
  void ShowInsufficientMemoryPopup(int /*a1*/) override {}
  void ShowSignZoomSetup(int /*a1*/) override {}
  void ShowReturnPrevChannelPopup(int /*a1*/) override {}
  void ShowNoSignalPowerOffTimerPopup(int /*a1*/) override {}
  void ShowKeyGuideBanner(int /*a1*/, int /*a2*/) override {}
  void ShowGameModeBanner(int /*a1*/, bool /*a2*/) override {}
  void ShowOCLViewForMLED(int /*a1*/, std::string /*a2*/) override {}
  void SendCommand(std::string /*a1*/, std::string /*a2*/) override {}
  void EnableBanner(std::string /*a1*/, std::string /*a2*/) override {}
  void DisableBanner(std::string /*a1*/, std::string /*a2*/) override {}
  void SendInitCommand(std::string /*a1*/) override {}
  void SendHideBanner(std::string /*a1*/, std::string /*a2*/) override {}
  void SetLanguage(std::string /*a1*/) override {}
  void PluginCmd(std::string /*a1*/, std::string /*a2*/) override {}
  void SetTVSHint(std::string /*a1*/) override {}
  void NotificationCommand(std::string /*a1*/, int /*a2*/) override {}
  void TuneChannel(std::string /*a1*/, std::string /*a2*/, std::string /*a3*/,
                   std::string /*a4*/) override {}
  void TuneChannelMain(std::string /*a1*/, std::string /*a2*/) override {}
  void TuneChannelMajor(int /*a1*/, int /*a2*/, std::string /*a3*/) override {}
  void TuneChannelPip(std::string /*a1*/, std::string /*a2*/) override {}
  void SvcIdTune(std::string /*a1*/, std::string /*a2*/, std::string /*a3*/,
                 std::string /*a4*/) override {}
  void ShowLoading(std::string /*a1*/) override {}
  void SendDiscreteCommand(std::string /*a1*/, std::string /*a2*/) override {}
  void SendAutoRemoconKey(std::string /*a1*/, std::string /*a2*/, std::string /*a3*/,
                          std::string /*a4*/, std::string /*a5*/) override {}
  void SendStorageCommand(std::string /*a1*/) override {}
  void SetHbbTVState(std::string /*a1*/) override {}
  void VoiceAppRequestTune(std::string /*a1*/) override {}
  void ExitTTX(std::string /*a1*/) override {}
  int CheckStateForVistane(int& out1) override {
    out1 = 0;
    return 0;
  }
};

}  // namespace kavrel_test
