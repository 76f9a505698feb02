#include "service.h"

#include <utility>

namespace viewer {

namespace methods = kavrel::app_api::methods;

namespace {

// Which of an operation's parameters came with the request and which go into the result stands in
// the method's signature.
template <class R, class... P>
void Record(Operation& operation, R (* /*signature*/)(P...),
            const std::remove_reference_t<P>&... arguments) {
  const auto record_one = [&](auto type, const auto& argument) {
    using T = typename decltype(type)::type;
    constexpr bool kIsOut = kavrel::app_api::kIsOutValue<T>;
    auto& target = kIsOut ? operation.values : operation.arguments;
    const auto& names = kIsOut ? operation.method.out_value_names : operation.method.argument_names;
    target[std::string(names[target.size()])] = argument;
  };
  (record_one(std::type_identity<P>(), arguments), ...);
}

template <class Method, class... Arguments>
Operation Describe(const Service& service, const Arguments&... arguments) {
  Operation operation{Method::kInfo, service.GetSender(), service.GetInstance()};
  Record(operation, static_cast<typename Method::Signature*>(nullptr), arguments...);
  return operation;
}

std::string TextOf(int value) {
  return std::to_string(value);
}
std::string TextOf(bool value) {
  return value ? "on" : "off";
}
const std::string& TextOf(const std::string& value) {
  return value;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += ' ' + text;
  return joined;
}

}  // namespace

std::vector<std::string> ClientList::Senders() const {
  std::vector<std::string> senders;
  for (const auto& [instance, sender] : senders_) senders.push_back(sender);
  return senders;
}

Service::Service(std::string sender, std::string instance, Television& television,
                 OperationLog& log, ClientList& clients)
    : ServiceBase(std::move(sender), std::move(instance)),
      television_(television),
      log_(log),
      clients_(clients) {}

template <class Method, class Act, class... Arguments>
typename Method::Result Service::Serve(const Act& act, Arguments&... arguments) {
  if constexpr (std::is_void_v<typename Method::Result>) {
    act();
    log_.Write(Describe<Method>(*this, arguments...));
  } else {
    const typename Method::Result result = act();
    Operation operation = Describe<Method>(*this, arguments...);
    operation.result = result;
    log_.Write(operation);
    return result;
  }
}

template <class Method, class... Details>
void Service::ServeBanner(Banner banner, int show, const Details&... details) {
  Serve<Method>([&] { television_.SetBanner(banner, show != 0, {TextOf(details)...}); }, show,
                details...);
}

// --- Picture

void Service::ChangeSource(std::string type, std::string number, std::string label,
                           std::string caller) {
  Serve<methods::ChangeSource>([&] { television_.ChangeSource(type, number, label); }, type, number,
                               label, caller);
}

void Service::TuneChannel(std::string number, std::string name, std::string source,
                          std::string caller) {
  Serve<methods::TuneChannel>([&] { television_.Tune(number, name, source); }, number, name, source,
                              caller);
}

void Service::TuneChannelMain(std::string number, std::string caller) {
  Serve<methods::TuneChannelMain>([&] { television_.Tune(number, "", ""); }, number, caller);
}

void Service::TuneChannelMajor(int major_number, int minor_number, std::string caller) {
  Serve<methods::TuneChannelMajor>([&] { television_.TuneMajor(major_number, minor_number); },
                                   major_number, minor_number, caller);
}

void Service::TuneChannelPip(std::string number, std::string caller) {
  Serve<methods::TuneChannelPip>([&] { television_.TunePip(number); }, number, caller);
}

void Service::SvcIdTune(std::string service_id, std::string transport_stream_id,
                        std::string network_id, std::string caller) {
  Serve<methods::SvcIdTune>([&] { television_.TuneService(service_id); }, service_id,
                            transport_stream_id, network_id, caller);
}

void Service::VoiceAppRequestTune(std::string channel) {
  Serve<methods::VoiceAppRequestTune>([&] { television_.TuneByVoice(channel); }, channel);
}

// --- Windows

bool Service::GetSelectionWindowInfo(int& left, int& top, int& width, int& height) {
  const auto answer = [&] {
    const SelectionWindow& window = television_.selection_window();
    left = window.position().left;
    top = window.position().top;
    width = window.size().width;
    height = window.size().height;
    return true;
  };
  return Serve<methods::GetSelectionWindowInfo>(answer, left, top, width, height);
}

bool Service::GetSelectionWindowMoveRange(int& least_left, int& least_top, int& greatest_left,
                                          int& greatest_top) {
  const auto answer = [&] {
    const MoveRange range = television_.selection_window().move_range();
    least_left = range.least.left;
    least_top = range.least.top;
    greatest_left = range.greatest.left;
    greatest_top = range.greatest.top;
    return true;
  };
  return Serve<methods::GetSelectionWindowMoveRange>(answer, least_left, least_top, greatest_left,
                                                     greatest_top);
}

bool Service::StoreSelectionWindowInfo(int left, int top) {
  return Serve<methods::StoreSelectionWindowInfo>(
      [&] {
        return television_.StoreSelectionWindow({left, top});
      },
      left, top);
}

bool Service::MoveSelectionWindowTo(int left, int top) {
  return Serve<methods::MoveSelectionWindowTo>(
      [&] {
        return television_.MoveSelectionWindow({left, top});
      },
      left, top);
}

bool Service::ChangeSelectionWindowZoomLevel(int level) {
  return Serve<methods::ChangeSelectionWindowZoomLevel>(
      [&] { return television_.ChangeZoomLevel(level); }, level);
}

bool Service::GetWindowSize(int& size) {
  const auto answer = [&] {
    size = television_.window_size();
    return true;
  };
  return Serve<methods::GetWindowSize>(answer, size);
}

bool Service::SetWindowSize(int size) {
  return Serve<methods::SetWindowSize>([&] { return television_.SetWindowSize(size); }, size);
}

// --- Banners and pop-ups

void Service::ShowChannelBanner(int show) {
  const auto act = [&] {
    television_.SetBanner(Banner::kChannel, show != 0, {viewer::Describe(television_.channel())});
  };
  Serve<methods::ShowChannelBanner>(act, show);
}

void Service::ShowCaption(int show, std::string text) {
  ServeBanner<methods::ShowCaption>(Banner::kCaption, show, text);
}

void Service::ShowSourceBanner(int show, std::string source, std::string label,
                               std::string detail) {
  ServeBanner<methods::ShowSourceBanner>(Banner::kSource, show, source, label, detail);
}

void Service::ShowMTSBanner(int show, std::string mode) {
  ServeBanner<methods::ShowMTSBanner>(Banner::kMts, show, mode);
}

void Service::ShowRatingBanner(int show, std::string rating, std::string reason) {
  ServeBanner<methods::ShowRatingBanner>(Banner::kRating, show, rating, reason);
}

void Service::ShowNosignalBanner(int show, std::string text) {
  ServeBanner<methods::ShowNosignalBanner>(Banner::kNoSignal, show, text);
}

void Service::ShowPVRInfo(int show, std::string text) {
  ServeBanner<methods::ShowPVRInfo>(Banner::kPvrInfo, show, text);
}

void Service::ShowSleepTimerPopup(int show) {
  ServeBanner<methods::ShowSleepTimerPopup>(Banner::kSleepTimer, show);
}

void Service::ShowAutoPowerOffPopup(int show) {
  ServeBanner<methods::ShowAutoPowerOffPopup>(Banner::kAutoPowerOff, show);
}

void Service::ShowFanErrorPopup(int show) {
  ServeBanner<methods::ShowFanErrorPopup>(Banner::kFanError, show);
}

void Service::ShowProjectorHsmErrorPopup(int show) {
  ServeBanner<methods::ShowProjectorHsmErrorPopup>(Banner::kProjectorHsmError, show);
}

void Service::ShowQdDisplayNoti(int show, std::string text) {
  ServeBanner<methods::ShowQdDisplayNoti>(Banner::kQdDisplay, show, text);
}

void Service::ShowPellwinBrightnessReducePopup(int show) {
  ServeBanner<methods::ShowPellwinBrightnessReducePopup>(Banner::kPellwinBrightnessReduce, show);
}

void Service::ShowHotelNoChannelPopup(int show) {
  ServeBanner<methods::ShowHotelNoChannelPopup>(Banner::kHotelNoChannel, show);
}

void Service::ShowHospitalNoChannelPopup(int show) {
  ServeBanner<methods::ShowHospitalNoChannelPopup>(Banner::kHospitalNoChannel, show);
}

void Service::ShowInsufficientMemoryPopup(int show) {
  ServeBanner<methods::ShowInsufficientMemoryPopup>(Banner::kInsufficientMemory, show);
}

void Service::ShowSignZoomSetup(int show) {
  ServeBanner<methods::ShowSignZoomSetup>(Banner::kSignZoomSetup, show);
}

void Service::ShowReturnPrevChannelPopup(int show) {
  const auto act = [&] {
    const auto& previous = television_.previous_channel();
    television_.SetBanner(Banner::kReturnPrevChannel, show != 0,
                          {previous ? viewer::Describe(*previous) : "no previous channel"});
  };
  Serve<methods::ShowReturnPrevChannelPopup>(act, show);
}

void Service::ShowNoSignalPowerOffTimerPopup(int show) {
  ServeBanner<methods::ShowNoSignalPowerOffTimerPopup>(Banner::kNoSignalPowerOffTimer, show);
}

void Service::ShowKeyGuideBanner(int show, int page) {
  ServeBanner<methods::ShowKeyGuideBanner>(Banner::kKeyGuide, show, page);
}

void Service::ShowGameModeBanner(int show, bool game_mode) {
  ServeBanner<methods::ShowGameModeBanner>(Banner::kGameMode, show, game_mode);
}

void Service::ShowOCLViewForMLED(int show, std::string text) {
  ServeBanner<methods::ShowOCLViewForMLED>(Banner::kOclView, show, text);
}

// The one banner without a number to say whether it is shown: an empty text hides it.
void Service::ShowLoading(std::string text) {
  Serve<methods::ShowLoading>(
      [&] { television_.SetBanner(Banner::kLoading, !text.empty(), {text}); }, text);
}

void Service::EnableBanner(std::string banner, std::string caller) {
  Serve<methods::EnableBanner>([&] { television_.EnableBanner(banner); }, banner, caller);
}

void Service::DisableBanner(std::string banner, std::string caller) {
  Serve<methods::DisableBanner>([&] { television_.DisableBanner(banner); }, banner, caller);
}

void Service::SendHideBanner(std::string banner, std::string caller) {
  Serve<methods::SendHideBanner>([&] { television_.HideBanner(banner); }, banner, caller);
}

// --- Settings and commands

void Service::SendInitCommand(std::string argument) {
  Serve<methods::SendInitCommand>([&] { television_.Initialise(argument); }, argument);
}

void Service::SetLanguage(std::string language) {
  Serve<methods::SetLanguage>([&] { television_.SetLanguage(language); }, language);
}

void Service::SetTVSHint(std::string hint) {
  Serve<methods::SetTVSHint>([&] { television_.SetServiceHint(hint); }, hint);
}

void Service::SetHbbTVState(std::string state) {
  Serve<methods::SetHbbTVState>([&] { television_.SetHbbtvState(state); }, state);
}

void Service::ExitTTX(std::string reason) {
  Serve<methods::ExitTTX>([&] { television_.LeaveTeletext(reason); }, reason);
}

void Service::SendCommand(std::string command, std::string argument) {
  Serve<methods::SendCommand>([&] { television_.Command(command, argument); }, command, argument);
}

void Service::SendDiscreteCommand(std::string command, std::string argument) {
  Serve<methods::SendDiscreteCommand>([&] { television_.DiscreteCommand(command, argument); },
                                      command, argument);
}

void Service::NotificationCommand(std::string notification, int action) {
  Serve<methods::NotificationCommand>([&] { television_.ActOnNotification(notification, action); },
                                      notification, action);
}

void Service::PluginCmd(std::string plugin, std::string command) {
  Serve<methods::PluginCmd>([&] { television_.CommandPlugin(plugin, command); }, plugin, command);
}

void Service::SendStorageCommand(std::string command) {
  Serve<methods::SendStorageCommand>([&] { television_.PassOn("storage command " + command); },
                                     command);
}

void Service::SendMbrKey(int device_type, int device_number, int action, std::string key,
                         std::vector<std::string> options) {
  const auto act = [&] {
    television_.PassOn("key " + key + (action == 0 ? " pressed" : " released") + " on device " +
                       std::to_string(device_number) + " of type " + std::to_string(device_type) +
                       Joined(options));
  };
  Serve<methods::SendMbrKey>(act, device_type, device_number, action, key, options);
}

void Service::SendAutoRemoconKey(std::string key, std::string device, std::string action,
                                 std::string option, std::string caller) {
  const auto act = [&] {
    television_.PassOn("key " + key + ' ' + action + " on " + device + ' ' + option);
  };
  Serve<methods::SendAutoRemoconKey>(act, key, device, action, option, caller);
}

int Service::CheckStateForVistane(int& state) {
  const auto answer = [&] {
    state = static_cast<int>(television_.activity());
    return television_.activity() == Activity::kRunning ? 0 : 1;
  };
  return Serve<methods::CheckStateForVistane>(answer, state);
}

std::unique_ptr<stub::KavrelAppApi::ServiceBase> ServiceFactory::MakeService(std::string sender,
                                                                             std::string instance) {
  return std::make_unique<Service>(std::move(sender), std::move(instance), television_, log_,
                                   clients_);
}

}  // namespace viewer
