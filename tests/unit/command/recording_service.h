// A service that keeps what it is called with and answers what the test has put ready.
#pragma once

#include <kavrel/tidl/KavrelAppApiStub.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fake_rpc_port.h"
#include "method_cases.h"

namespace kavrel_test {

namespace stub = rpc_port::KavrelAppApiStub::stub;

/// What the services of one test share. Belongs to the test's thread.
struct ServiceLog {
  struct Call {
    std::string instance;
    std::string method;
    Items arguments;  ///< as they travel

    bool operator==(const Call&) const = default;
  };

  std::vector<Call> calls;        ///< connected and disconnected included
  Items answer;                   ///< the fields of the next result
  std::function<void()> in_call;  ///< runs inside each operation
  int alive = 0;                  ///< services that exist

  std::vector<Call> TakeCalls() { return std::exchange(calls, {}); }
};

inline void PrintTo(const ServiceLog::Call& call, std::ostream* out) {
  *out << call.instance << ' ' << call.method << '(' << ToText(call.arguments) << ')';
}

class RecordingService final : public stub::KavrelAppApi::ServiceBase {
 public:
  RecordingService(std::string sender, std::string instance, ServiceLog& log)
      : ServiceBase(std::move(sender), std::move(instance)), log_(log) {
    ++log_.alive;
  }
  ~RecordingService() override { --log_.alive; }

  void OnClientConnected() override { Record("OnClientConnected"); }
  void OnClientDisconnected() override { Record("OnClientDisconnected"); }

  void ChangeSource(std::string a1, std::string a2, std::string a3, std::string a4) override {
    Record("ChangeSource", a1, a2, a3, a4);
  }
  bool GetSelectionWindowInfo(int& out1, int& out2, int& out3, int& out4) override {
    return Answer<bool>("GetSelectionWindowInfo", {&out1, &out2, &out3, &out4});
  }
  bool GetSelectionWindowMoveRange(int& out1, int& out2, int& out3, int& out4) override {
    return Answer<bool>("GetSelectionWindowMoveRange", {&out1, &out2, &out3, &out4});
  }
  bool StoreSelectionWindowInfo(int a1, int a2) override {
    return Answer<bool>("StoreSelectionWindowInfo", {}, a1, a2);
  }
  bool MoveSelectionWindowTo(int a1, int a2) override {
    return Answer<bool>("MoveSelectionWindowTo", {}, a1, a2);
  }
  bool ChangeSelectionWindowZoomLevel(int a1) override {
    return Answer<bool>("ChangeSelectionWindowZoomLevel", {}, a1);
  }
  bool GetWindowSize(int& out1) override { return Answer<bool>("GetWindowSize", {&out1}); }
  bool SetWindowSize(int a1) override { return Answer<bool>("SetWindowSize", {}, a1); }
  void SendMbrKey(int a1, int a2, int a3, std::string a4, std::vector<std::string> a5) override {
    Record("SendMbrKey", a1, a2, a3, a4, a5);
  }
  void ShowChannelBanner(int a1) override { Record("ShowChannelBanner", a1); }
  void ShowCaption(int a1, std::string a2) override { Record("ShowCaption", a1, a2); }
  void ShowSourceBanner(int a1, std::string a2, std::string a3, std::string a4) override {
    Record("ShowSourceBanner", a1, a2, a3, a4);
  }
  void ShowMTSBanner(int a1, std::string a2) override { Record("ShowMTSBanner", a1, a2); }
  void ShowRatingBanner(int a1, std::string a2, std::string a3) override {
    Record("ShowRatingBanner", a1, a2, a3);
  }
  void ShowNosignalBanner(int a1, std::string a2) override { Record("ShowNosignalBanner", a1, a2); }
  void ShowPVRInfo(int a1, std::string a2) override { Record("ShowPVRInfo", a1, a2); }
  void ShowSleepTimerPopup(int a1) override { Record("ShowSleepTimerPopup", a1); }
  void ShowAutoPowerOffPopup(int a1) override { Record("ShowAutoPowerOffPopup", a1); }
  void ShowFanErrorPopup(int a1) override { Record("ShowFanErrorPopup", a1); }
  void ShowProjectorHsmErrorPopup(int a1) override { Record("ShowProjectorHsmErrorPopup", a1); }
  void ShowQdDisplayNoti(int a1, std::string a2) override { Record("ShowQdDisplayNoti", a1, a2); }
  void ShowPellwinBrightnessReducePopup(int a1) override {
    Record("ShowPellwinBrightnessReducePopup", a1);
  }
  void ShowHotelNoChannelPopup(int a1) override { Record("ShowHotelNoChannelPopup", a1); }
  void ShowHospitalNoChannelPopup(int a1) override { Record("ShowHospitalNoChannelPopup", a1); }
  void ShowInsufficientMemoryPopup(int a1) override { Record("ShowInsufficientMemoryPopup", a1); }
  void ShowSignZoomSetup(int a1) override { Record("ShowSignZoomSetup", a1); }
  void ShowReturnPrevChannelPopup(int a1) override { Record("ShowReturnPrevChannelPopup", a1); }
  void ShowNoSignalPowerOffTimerPopup(int a1) override {
    Record("ShowNoSignalPowerOffTimerPopup", a1);
  }
  void ShowKeyGuideBanner(int a1, int a2) override { Record("ShowKeyGuideBanner", a1, a2); }
  void ShowGameModeBanner(int a1, bool a2) override { Record("ShowGameModeBanner", a1, a2); }
  void ShowOCLViewForMLED(int a1, std::string a2) override { Record("ShowOCLViewForMLED", a1, a2); }
  void SendCommand(std::string a1, std::string a2) override { Record("SendCommand", a1, a2); }
  void EnableBanner(std::string a1, std::string a2) override { Record("EnableBanner", a1, a2); }
  void DisableBanner(std::string a1, std::string a2) override { Record("DisableBanner", a1, a2); }
  void SendInitCommand(std::string a1) override { Record("SendInitCommand", a1); }
  void SendHideBanner(std::string a1, std::string a2) override { Record("SendHideBanner", a1, a2); }
  void SetLanguage(std::string a1) override { Record("SetLanguage", a1); }
  void PluginCmd(std::string a1, std::string a2) override { Record("PluginCmd", a1, a2); }
  void SetTVSHint(std::string a1) override { Record("SetTVSHint", a1); }
  void NotificationCommand(std::string a1, int a2) override {
    Record("NotificationCommand", a1, a2);
  }
  void TuneChannel(std::string a1, std::string a2, std::string a3, std::string a4) override {
    Record("TuneChannel", a1, a2, a3, a4);
  }
  void TuneChannelMain(std::string a1, std::string a2) override {
    Record("TuneChannelMain", a1, a2);
  }
  void TuneChannelMajor(int a1, int a2, std::string a3) override {
    Record("TuneChannelMajor", a1, a2, a3);
  }
  void TuneChannelPip(std::string a1, std::string a2) override { Record("TuneChannelPip", a1, a2); }
  void SvcIdTune(std::string a1, std::string a2, std::string a3, std::string a4) override {
    Record("SvcIdTune", a1, a2, a3, a4);
  }
  void ShowLoading(std::string a1) override { Record("ShowLoading", a1); }
  void SendDiscreteCommand(std::string a1, std::string a2) override {
    Record("SendDiscreteCommand", a1, a2);
  }
  void SendAutoRemoconKey(std::string a1, std::string a2, std::string a3, std::string a4,
                          std::string a5) override {
    Record("SendAutoRemoconKey", a1, a2, a3, a4, a5);
  }
  void SendStorageCommand(std::string a1) override { Record("SendStorageCommand", a1); }
  void SetHbbTVState(std::string a1) override { Record("SetHbbTVState", a1); }
  void VoiceAppRequestTune(std::string a1) override { Record("VoiceAppRequestTune", a1); }
  void ExitTTX(std::string a1) override { Record("ExitTTX", a1); }
  int CheckStateForVistane(int& out1) override {
    return Answer<int>("CheckStateForVistane", {&out1});
  }

 private:
  template <class... T>
  void Record(const char* method, const T&... arguments) {
    Items items;
    (AppendItems(items, arguments), ...);
    log_.calls.push_back({GetInstance(), method, std::move(items)});
    if (log_.in_call) log_.in_call();
  }

  template <class R, class... T>
  R Answer(const char* method, std::initializer_list<int*> out_values, const T&... arguments) {
    Record(method, arguments...);
    std::size_t next = 0;
    for (int* const out_value : out_values) {
      if (*out_value != 0) throw std::logic_error("an out value comes in with a value");
      *out_value = std::get<int>(log_.answer.at(next++));
    }
    return std::get<R>(log_.answer.at(next));
  }

  ServiceLog& log_;
};

class RecordingFactory final : public stub::KavrelAppApi::ServiceBase::Factory {
 public:
  explicit RecordingFactory(ServiceLog& log) : log_(log) {}

  std::unique_ptr<stub::KavrelAppApi::ServiceBase> MakeService(std::string sender,
                                                               std::string instance) override {
    if (fail) fail();
    if (make_nothing) return nullptr;
    auto service = std::make_unique<RecordingService>(std::move(sender), std::move(instance), log_);
    latest = service.get();
    return service;
  }

  RecordingService* latest = nullptr;
  std::function<void()> fail;  ///< may throw
  bool make_nothing = false;

 private:
  ServiceLog& log_;
};

}  // namespace kavrel_test
