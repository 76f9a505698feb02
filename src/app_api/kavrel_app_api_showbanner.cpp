#include <kavrel/app_api_show.h>

#include <string>

#include "CommandFrame.h"

using kavrel::Here;
using kavrel::app_api::KavrelAppApi;
using kavrel::app_api::Show;

void kavrel_api_show_channel_banner(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowChannelBanner, a1);
}

void kavrel_api_show_caption(kavrel_api_h handle, int a1, const std::string& a2) {
  Show(handle, Here(), &KavrelAppApi::ShowCaption, a1, a2);
}

void kavrel_api_show_source_banner(kavrel_api_h handle, int a1, const std::string& a2,
                                   const std::string& a3, const std::string& a4) {
  Show(handle, Here(), &KavrelAppApi::ShowSourceBanner, a1, a2, a3, a4);
}

void kavrel_api_show_MTS_banner(kavrel_api_h handle, int a1, const std::string& a2) {
  Show(handle, Here(), &KavrelAppApi::ShowMTSBanner, a1, a2);
}

void kavrel_api_show_rating_banner(kavrel_api_h handle, int a1, const std::string& a2,
                                   const std::string& a3) {
  Show(handle, Here(), &KavrelAppApi::ShowRatingBanner, a1, a2, a3);
}

void kavrel_api_show_nosignal_banner(kavrel_api_h handle, int a1, const std::string& a2) {
  Show(handle, Here(), &KavrelAppApi::ShowNosignalBanner, a1, a2);
}

void kavrel_api_show_PVR_info(kavrel_api_h handle, int a1, const std::string& a2) {
  Show(handle, Here(), &KavrelAppApi::ShowPVRInfo, a1, a2);
}

void kavrel_api_show_sleep_timer_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowSleepTimerPopup, a1);
}

void kavrel_api_show_auto_power_off_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowAutoPowerOffPopup, a1);
}

void kavrel_api_show_fan_error_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowFanErrorPopup, a1);
}

void kavrel_api_show_projector_hsm_error_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowProjectorHsmErrorPopup, a1);
}

void kavrel_api_show_qd_display_notification(kavrel_api_h handle, int a1, const std::string& a2) {
  Show(handle, Here(), &KavrelAppApi::ShowQdDisplayNoti, a1, a2);
}

void kavrel_api_show_pellwin_brightness_reduce_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowPellwinBrightnessReducePopup, a1);
}

void kavrel_api_show_hotel_no_channel_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowHotelNoChannelPopup, a1);
}

void kavrel_api_show_hospital_no_channel_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowHospitalNoChannelPopup, a1);
}

void kavrel_api_show_insufficient_memory_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowInsufficientMemoryPopup, a1);
}

void kavrel_api_show_sign_zoom_setup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowSignZoomSetup, a1);
}

void kavrel_api_show_return_prev_channel_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowReturnPrevChannelPopup, a1);
}

void kavrel_api_show_no_signal_power_off_timer_popup(kavrel_api_h handle, int a1) {
  Show(handle, Here(), &KavrelAppApi::ShowNoSignalPowerOffTimerPopup, a1);
}

void kavrel_api_show_key_guide_banner(kavrel_api_h handle, int a1, int a2) {
  Show(handle, Here(), &KavrelAppApi::ShowKeyGuideBanner, a1, a2);
}

void kavrel_api_show_game_mode_banner(kavrel_api_h handle, int a1, bool a2) {
  Show(handle, Here(), &KavrelAppApi::ShowGameModeBanner, a1, a2);
}

void kavrel_api_show_ocl_view_for_MLED(kavrel_api_h handle, int a1, const std::string& a2) {
  Show(handle, Here(), &KavrelAppApi::ShowOCLViewForMLED, a1, a2);
}
