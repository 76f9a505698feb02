// The method table against a copy that was written down by hand: ids, names, types and order are
// the wire format and the exported functions.
#include <gtest/gtest.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <array>
#include <string>

namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;

struct Row {
  int id;
  const char* name;
  const char* arguments;  ///< i, b, s, l (list) in wire order
  const char* result;     ///< out values, then the return value; empty: one-way
  const char* function;   ///< exported, after kavrel_api_
};

constexpr std::array kRows = {
    Row{2, "ChangeSource", "ssss", "", "change_source"},
    Row{3, "GetSelectionWindowInfo", "", "iiiib", "get_selection_window_info"},
    Row{4, "GetSelectionWindowMoveRange", "", "iiiib", "get_selection_window_move_range"},
    Row{5, "StoreSelectionWindowInfo", "ii", "b", "store_selection_window_info"},
    Row{6, "MoveSelectionWindowTo", "ii", "b", "move_selection_window_to"},
    Row{7, "ChangeSelectionWindowZoomLevel", "i", "b", "change_selection_window_zoom_level"},
    Row{8, "GetWindowSize", "", "ib", "get_window_size"},
    Row{9, "SetWindowSize", "i", "b", "set_window_size"},
    Row{10, "SendMbrKey", "iiisl", "", "send_mbr_key"},
    Row{11, "ShowChannelBanner", "i", "", "show_channel_banner"},
    Row{12, "ShowCaption", "is", "", "show_caption"},
    Row{13, "ShowSourceBanner", "isss", "", "show_source_banner"},
    Row{14, "ShowMTSBanner", "is", "", "show_MTS_banner"},
    Row{15, "ShowRatingBanner", "iss", "", "show_rating_banner"},
    Row{16, "ShowNosignalBanner", "is", "", "show_nosignal_banner"},
    Row{17, "ShowPVRInfo", "is", "", "show_PVR_info"},
    Row{18, "ShowSleepTimerPopup", "i", "", "show_sleep_timer_popup"},
    Row{19, "ShowAutoPowerOffPopup", "i", "", "show_auto_power_off_popup"},
    Row{20, "ShowFanErrorPopup", "i", "", "show_fan_error_popup"},
    Row{21, "ShowProjectorHsmErrorPopup", "i", "", "show_projector_hsm_error_popup"},
    Row{22, "ShowQdDisplayNoti", "is", "", "show_qd_display_notification"},
    Row{23, "ShowPellwinBrightnessReducePopup", "i", "", "show_pellwin_brightness_reduce_popup"},
    Row{24, "ShowHotelNoChannelPopup", "i", "", "show_hotel_no_channel_popup"},
    Row{25, "ShowHospitalNoChannelPopup", "i", "", "show_hospital_no_channel_popup"},
    Row{26, "ShowInsufficientMemoryPopup", "i", "", "show_insufficient_memory_popup"},
    Row{27, "ShowSignZoomSetup", "i", "", "show_sign_zoom_setup"},
    Row{28, "ShowReturnPrevChannelPopup", "i", "", "show_return_prev_channel_popup"},
    Row{29, "ShowNoSignalPowerOffTimerPopup", "i", "", "show_no_signal_power_off_timer_popup"},
    Row{30, "ShowKeyGuideBanner", "ii", "", "show_key_guide_banner"},
    Row{31, "ShowGameModeBanner", "ib", "", "show_game_mode_banner"},
    Row{32, "ShowOCLViewForMLED", "is", "", "show_ocl_view_for_MLED"},
    Row{33, "SendCommand", "ss", "", "send_command"},
    Row{34, "EnableBanner", "ss", "", "enable_banner"},
    Row{35, "DisableBanner", "ss", "", "disable_banner"},
    Row{36, "SendInitCommand", "s", "", "send_init_command"},
    Row{37, "SendHideBanner", "ss", "", "send_hide_banner"},
    Row{38, "SetLanguage", "s", "", "set_language"},
    Row{39, "PluginCmd", "ss", "", "plugin_cmd"},
    Row{40, "SetTVSHint", "s", "", "set_tvs_hint"},
    Row{41, "NotificationCommand", "si", "", "notification_command"},
    Row{42, "TuneChannel", "ssss", "", "tunechannel"},
    Row{43, "TuneChannelMain", "ss", "", "tunechannel_main"},
    Row{44, "TuneChannelMajor", "iis", "", "tunechannel_major"},
    Row{45, "TuneChannelPip", "ss", "", "tunechannel_pip"},
    Row{46, "SvcIdTune", "ssss", "", "svcid_tune"},
    Row{47, "ShowLoading", "s", "", "show_loading"},
    Row{48, "SendDiscreteCommand", "ss", "", "send_discrete_command"},
    Row{49, "SendAutoRemoconKey", "sssss", "", "send_autoremoconkey"},
    Row{50, "SendStorageCommand", "s", "", "send_storagecommand"},
    Row{51, "SetHbbTVState", "s", "", "set_hbbtv_state"},
    Row{52, "VoiceAppRequestTune", "s", "", "voiceapprequest_tune"},
    Row{53, "ExitTTX", "s", "", "exit_ttx"},
    Row{54, "CheckStateForVistane", "", "ii", "check_state_for_vistane"},
};

std::string Letter(ItemType type) {
  switch (type) {
    case ItemType::Int32:
      return "i";
    case ItemType::Bool:
      return "b";
    case ItemType::String:
      return "s";
    case ItemType::StringList:
      return "l";
    case ItemType::None:
      break;
  }
  return "";
}

TEST(MethodTable, HoldsTheFiftyThreeMethods) {
  static_assert(kRows.size() == 53);
  ASSERT_EQ(std::size(kMethods), kRows.size());
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    const MethodInfo& method = kMethods[i];
    SCOPED_TRACE(kRows[i].name);
    EXPECT_EQ(method.id, kRows[i].id);
    EXPECT_STREQ(method.name, kRows[i].name);
    EXPECT_STREQ(method.c_name, kRows[i].function);
    std::string arguments;
    for (std::size_t k = 0; k < method.argument_count; ++k) {
      arguments += Letter(method.arguments[k]);
    }
    EXPECT_EQ(arguments, kRows[i].arguments);
    EXPECT_EQ(std::string(method.out_value_count, 'i') + Letter(method.result), kRows[i].result);
    EXPECT_EQ(method.HasReply(), *kRows[i].result != '\0');
  }
}

TEST(MethodTable, ReservesResultAndCallback) {
  EXPECT_EQ(kavrel::app_api::kResultId, 0);
  EXPECT_EQ(kavrel::app_api::kCallbackId, 1);
  EXPECT_STREQ(kavrel::app_api::kInterfaceVersion, "1.9.1");
  EXPECT_STREQ(kavrel::app_api::kPortName, "KavrelAppApi");
  for (const int id : {-1, 0, 1, 55}) EXPECT_EQ(kavrel::app_api::FindMethod(id), nullptr) << id;
  for (const Row& row : kRows) {
    ASSERT_NE(kavrel::app_api::FindMethod(row.id), nullptr) << row.id;
    EXPECT_STREQ(kavrel::app_api::FindMethod(row.id)->name, row.name);
  }
}

}  // namespace
