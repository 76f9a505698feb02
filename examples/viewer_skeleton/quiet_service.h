// Every operation of the remote interface, carried out as "not here": derive from this and override
// what your viewer does.
#pragma once

#include <kavrel/tidl/KavrelAppApiStub.h>

#include <string>
#include <utility>
#include <vector>

namespace stub = rpc_port::KavrelAppApiStub::stub;

class QuietService : public stub::KavrelAppApi::ServiceBase {
 public:
  QuietService(std::string sender, std::string instance)
      : ServiceBase(std::move(sender), std::move(instance)) {}

  void OnClientConnected() override {}
  void OnClientDisconnected() override {}

  void ChangeSource(std::string, std::string, std::string, std::string) override {}
  bool GetSelectionWindowInfo(int&, int&, int&, int&) override { return false; }
  bool GetSelectionWindowMoveRange(int&, int&, int&, int&) override { return false; }
  bool StoreSelectionWindowInfo(int, int) override { return false; }
  bool MoveSelectionWindowTo(int, int) override { return false; }
  bool ChangeSelectionWindowZoomLevel(int) override { return false; }
  bool GetWindowSize(int&) override { return false; }
  bool SetWindowSize(int) override { return false; }
  void SendMbrKey(int, int, int, std::string, std::vector<std::string>) override {}
  void ShowChannelBanner(int) override {}
  void ShowCaption(int, std::string) override {}
  void ShowSourceBanner(int, std::string, std::string, std::string) override {}
  void ShowMTSBanner(int, std::string) override {}
  void ShowRatingBanner(int, std::string, std::string) override {}
  void ShowNosignalBanner(int, std::string) override {}
  void ShowPVRInfo(int, std::string) override {}
  void ShowSleepTimerPopup(int) override {}
  void ShowAutoPowerOffPopup(int) override {}
  void ShowFanErrorPopup(int) override {}
  void ShowProjectorHsmErrorPopup(int) override {}
  void ShowQdDisplayNoti(int, std::string) override {}
  void ShowPellwinBrightnessReducePopup(int) override {}
  void ShowHotelNoChannelPopup(int) override {}
  void ShowHospitalNoChannelPopup(int) override {}
  void ShowInsufficientMemoryPopup(int) override {}
  void ShowSignZoomSetup(int) override {}
  void ShowReturnPrevChannelPopup(int) override {}
  void ShowNoSignalPowerOffTimerPopup(int) override {}
  void ShowKeyGuideBanner(int, int) override {}
  void ShowGameModeBanner(int, bool) override {}
  void ShowOCLViewForMLED(int, std::string) override {}
  void SendCommand(std::string, std::string) override {}
  void EnableBanner(std::string, std::string) override {}
  void DisableBanner(std::string, std::string) override {}
  void SendInitCommand(std::string) override {}
  void SendHideBanner(std::string, std::string) override {}
  void SetLanguage(std::string) override {}
  void PluginCmd(std::string, std::string) override {}
  void SetTVSHint(std::string) override {}
  void NotificationCommand(std::string, int) override {}
  void TuneChannel(std::string, std::string, std::string, std::string) override {}
  void TuneChannelMain(std::string, std::string) override {}
  void TuneChannelMajor(int, int, std::string) override {}
  void TuneChannelPip(std::string, std::string) override {}
  void SvcIdTune(std::string, std::string, std::string, std::string) override {}
  void ShowLoading(std::string) override {}
  void SendDiscreteCommand(std::string, std::string) override {}
  void SendAutoRemoconKey(std::string, std::string, std::string, std::string,
                          std::string) override {}
  void SendStorageCommand(std::string) override {}
  void SetHbbTVState(std::string) override {}
  void VoiceAppRequestTune(std::string) override {}
  void ExitTTX(std::string) override {}
  int CheckStateForVistane(int&) override { return -1; }
};
