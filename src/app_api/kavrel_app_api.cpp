#include "CommandFrame.h"
// The names here are exported as they stand, odd spellings included.
#include <kavrel/app_api.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../common/abandon.h"

using kavrel::Here;
using kavrel::kLogError;
using kavrel::kLogInfo;
using kavrel::app_api::Command;
using kavrel::app_api::KavrelAppApi;
using kavrel::app_api::kLogTag;
using kavrel::app_api::LogNullHandle;
using kavrel::app_api::WithProxy;

namespace {

// Shared by all connections and never destroyed: a connection may outlive static destruction.
class KavrelAppApiEventListener final : public KavrelAppApi::IEventListener {
 public:
  void OnConnected() override { KAVREL_LOG(kLogInfo, kLogTag, Here(), "connected\n"); }
  void OnDisconnected() override { KAVREL_LOG(kLogInfo, kLogTag, Here(), "disconnected\n"); }
  void OnRejected() override { KAVREL_LOG(kLogInfo, kLogTag, Here(), "rejected\n"); }
};

KavrelAppApi::IEventListener* SharedListener() {
  static KavrelAppApiEventListener& listener = *new KavrelAppApiEventListener();
  return &listener;
}

// The reason why the connection failed, or null when it stands.
const char* ConnectFailure(KavrelAppApi& proxy) {
  using namespace rpc_port::KavrelAppApiProxy::proxy;
  try {
    proxy.Connect(true);
    return nullptr;
  } catch (const InvalidIDException&) {
    return "InvalidIDException";
  } catch (const InvalidIOException&) {
    return "InvalidIOException";
  } catch (const PermissionDeniedException&) {
    return "PermissionDeniedException";
  } catch (const InvalidProtocolException&) {
    return "InvalidProtocolException";
  } catch (const NotConnectedSocketException&) {
    return "NotConnectedSocketException";
  }
}

}  // namespace

kavrel_api_h kavrel_api_create(const char* app_id) {
  auto proxy = std::make_unique<KavrelAppApi>(SharedListener(), std::string(app_id));
  if (const char* failure = ConnectFailure(*proxy)) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "connect failed: %s\n", failure);
    // Left allocated on purpose: a connection that is still being refused may yet report an event.
    kavrel::Abandon(proxy.release());
    return nullptr;
  }
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "proxy create\n");
  return proxy.release();
}

void kavrel_api_destroy(kavrel_api_h handle) {
  if (handle == nullptr) {
    LogNullHandle(Here());
    return;
  }
  delete static_cast<KavrelAppApi*>(handle);
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "proxy destroy\n");
}

void kavrel_api_change_source(kavrel_api_h handle, const char* a1, const char* a2, const char* a3,
                              const char* a4) {
  const auto where = Here();
  WithProxy<void>(handle, where, [&](KavrelAppApi& proxy) {
    KAVREL_LOG(kLogInfo, kLogTag, where, "change_source\n");
    // Last argument first: with several null texts, the last one is what the caller hears of.
    std::string text4(a4);
    std::string text3(a3);
    std::string text2(a2);
    std::string text1(a1);
    proxy.ChangeSource(std::move(text1), std::move(text2), std::move(text3), std::move(text4));
  });
}

bool kavrel_api_get_selection_window_info(kavrel_api_h handle, int& out1, int& out2, int& out3,
                                          int& out4) {
  return Command(handle, Here(), &KavrelAppApi::GetSelectionWindowInfo, out1, out2, out3, out4);
}

bool kavrel_api_get_selection_window_move_range(kavrel_api_h handle, int& out1, int& out2,
                                                int& out3, int& out4) {
  return Command(handle, Here(), &KavrelAppApi::GetSelectionWindowMoveRange, out1, out2, out3,
                 out4);
}

bool kavrel_api_store_selection_window_info(kavrel_api_h handle, int a1, int a2) {
  return Command(handle, Here(), &KavrelAppApi::StoreSelectionWindowInfo, a1, a2);
}

bool kavrel_api_move_selection_window_to(kavrel_api_h handle, int a1, int a2) {
  return Command(handle, Here(), &KavrelAppApi::MoveSelectionWindowTo, a1, a2);
}

bool kavrel_api_change_selection_window_zoom_level(kavrel_api_h handle, int a1) {
  return Command(handle, Here(), &KavrelAppApi::ChangeSelectionWindowZoomLevel, a1);
}

bool kavrel_api_get_window_size(kavrel_api_h handle, int& out1) {
  return Command(handle, Here(), &KavrelAppApi::GetWindowSize, out1);
}

bool kavrel_api_set_window_size(kavrel_api_h handle, int a1) {
  return Command(handle, Here(), &KavrelAppApi::SetWindowSize, a1);
}

void kavrel_api_send_mbr_key(kavrel_api_h handle, int a1, int a2, int a3, const std::string& a4,
                             const std::vector<std::string>& a5) {
  Command(handle, Here(), &KavrelAppApi::SendMbrKey, a1, a2, a3, a4, a5);
}

void kavrel_api_send_command(kavrel_api_h handle, const std::string& a1, const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::SendCommand, a1, a2);
}

void kavrel_api_enable_banner(kavrel_api_h handle, const std::string& a1, const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::EnableBanner, a1, a2);
}

void kavrel_api_disable_banner(kavrel_api_h handle, const std::string& a1, const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::DisableBanner, a1, a2);
}

void kavrel_api_send_init_command(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::SendInitCommand, a1);
}

void kavrel_api_send_hide_banner(kavrel_api_h handle, const std::string& a1,
                                 const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::SendHideBanner, a1, a2);
}

void kavrel_api_set_language(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::SetLanguage, a1);
}

void kavrel_api_plugin_cmd(kavrel_api_h handle, const std::string& a1, const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::PluginCmd, a1, a2);
}

void kavrel_api_set_tvs_hint(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::SetTVSHint, a1);
}

void kavrel_api_notification_command(kavrel_api_h handle, const std::string& a1, int a2) {
  Command(handle, Here(), &KavrelAppApi::NotificationCommand, a1, a2);
}

void kavrel_api_tunechannel(kavrel_api_h handle, const std::string& a1, const std::string& a2,
                            const std::string& a3, const std::string& a4) {
  Command(handle, Here(), &KavrelAppApi::TuneChannel, a1, a2, a3, a4);
}

void kavrel_api_tunechannel_main(kavrel_api_h handle, const std::string& a1,
                                 const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::TuneChannelMain, a1, a2);
}

void kavrel_api_tunechannel_major(kavrel_api_h handle, int a1, int a2, const std::string& a3) {
  Command(handle, Here(), &KavrelAppApi::TuneChannelMajor, a1, a2, a3);
}

void kavrel_api_tunechannel_pip(kavrel_api_h handle, const std::string& a1, const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::TuneChannelPip, a1, a2);
}

void kavrel_api_svcid_tune(kavrel_api_h handle, const std::string& a1, const std::string& a2,
                           const std::string& a3, const std::string& a4) {
  Command(handle, Here(), &KavrelAppApi::SvcIdTune, a1, a2, a3, a4);
}

void kavrel_api_show_loading(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::ShowLoading, a1);
}

void kavrel_api_send_discrete_command(kavrel_api_h handle, const std::string& a1,
                                      const std::string& a2) {
  Command(handle, Here(), &KavrelAppApi::SendDiscreteCommand, a1, a2);
}

void kavrel_api_send_autoremoconkey(kavrel_api_h handle, const std::string& a1,
                                    const std::string& a2, const std::string& a3,
                                    const std::string& a4, const std::string& a5) {
  Command(handle, Here(), &KavrelAppApi::SendAutoRemoconKey, a1, a2, a3, a4, a5);
}

void kavrel_api_send_storagecommand(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::SendStorageCommand, a1);
}

void kavrel_api_set_hbbtv_state(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::SetHbbTVState, a1);
}

void kavrel_api_voiceapprequest_tune(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::VoiceAppRequestTune, a1);
}

void kavrel_api_exit_ttx(kavrel_api_h handle, const std::string& a1) {
  Command(handle, Here(), &KavrelAppApi::ExitTTX, a1);
}

int kavrel_api_check_state_for_vistane(kavrel_api_h handle, int& out1) {
  return Command(handle, Here(), &KavrelAppApi::CheckStateForVistane, out1);
}
