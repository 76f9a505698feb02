/** @file
 * The remote interface KavrelAppApi as one table: everything that has to know its methods is made
 * from the rows below - the proxy's encoders, the stub's dispatch, kavrelctl's commands, help,
 * completion and man page, the table in the documents, and the tests that walk all methods.
 *
 * To add a method, append a row with the next free id and declare the operation in the proxy
 * (KavrelAppApiProxy.h), in the stub (KavrelAppApiStub.h) and in the C API (app_api.h). The ids are
 * the wire format: they are never reused and never follow from a row's place.
 *
 * This header needs nothing but the standard library (C++17).
 */
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// The methods of the remote interface.
namespace kavrel::app_api {

/// A string list argument: an array count on the wire, then one string an element.
using Strings = std::vector<std::string>;

// clang-format off
/// X(id, method, c_name, signature, summary)
///   id         first item of the request; 0 (result) and 1 (callback) never name a method
///   method     operation of the proxy and of the stub's service
///   c_name     the exported C function is kavrel_api_<c_name>
///   signature  arguments in wire order: int, bool, std::string, Strings travel in the request,
///              int& come back in the result. A return type other than void means that the viewer
///              answers: the out values in order, then the return value. The arguments' names say
///              what kavrel-viewer takes them for; they do not travel.
///   summary    what the method asks for, one line
#define KAVREL_APP_API_METHODS(X) \
  X( 2, ChangeSource, change_source, void(std::string type, std::string number, std::string label, std::string caller), "switch the viewer to another source") \
  X( 3, GetSelectionWindowInfo, get_selection_window_info, bool(int& left, int& top, int& width, int& height), "ask where the selection window is and how large") \
  X( 4, GetSelectionWindowMoveRange, get_selection_window_move_range, bool(int& least_left, int& least_top, int& greatest_left, int& greatest_top), "ask within which limits the selection window moves") \
  X( 5, StoreSelectionWindowInfo, store_selection_window_info, bool(int left, int top), "keep the selection window's position") \
  X( 6, MoveSelectionWindowTo, move_selection_window_to, bool(int left, int top), "move the selection window") \
  X( 7, ChangeSelectionWindowZoomLevel, change_selection_window_zoom_level, bool(int level), "set the selection window's zoom level") \
  X( 8, GetWindowSize, get_window_size, bool(int& size), "ask for the viewer's window size") \
  X( 9, SetWindowSize, set_window_size, bool(int size), "set the viewer's window size") \
  X(10, SendMbrKey, send_mbr_key, void(int device_type, int device_number, int action, std::string key, Strings options), "send a key to a device controlled by the multi-brand remote") \
  X(11, ShowChannelBanner, show_channel_banner, void(int show), "show the channel banner") \
  X(12, ShowCaption, show_caption, void(int show, std::string text), "show the caption banner") \
  X(13, ShowSourceBanner, show_source_banner, void(int show, std::string source, std::string label, std::string detail), "show the source banner") \
  X(14, ShowMTSBanner, show_MTS_banner, void(int show, std::string mode), "show the multi-track sound banner") \
  X(15, ShowRatingBanner, show_rating_banner, void(int show, std::string rating, std::string reason), "show the rating banner") \
  X(16, ShowNosignalBanner, show_nosignal_banner, void(int show, std::string text), "show the no-signal banner") \
  X(17, ShowPVRInfo, show_PVR_info, void(int show, std::string text), "show the recording information") \
  X(18, ShowSleepTimerPopup, show_sleep_timer_popup, void(int show), "show the sleep timer pop-up") \
  X(19, ShowAutoPowerOffPopup, show_auto_power_off_popup, void(int show), "show the automatic power-off pop-up") \
  X(20, ShowFanErrorPopup, show_fan_error_popup, void(int show), "show the fan error pop-up") \
  X(21, ShowProjectorHsmErrorPopup, show_projector_hsm_error_popup, void(int show), "show the projector heat-sink error pop-up") \
  X(22, ShowQdDisplayNoti, show_qd_display_notification, void(int show, std::string text), "show the display notification") \
  X(23, ShowPellwinBrightnessReducePopup, show_pellwin_brightness_reduce_popup, void(int show), "show the reduced-brightness pop-up") \
  X(24, ShowHotelNoChannelPopup, show_hotel_no_channel_popup, void(int show), "show the hotel's no-channel pop-up") \
  X(25, ShowHospitalNoChannelPopup, show_hospital_no_channel_popup, void(int show), "show the hospital's no-channel pop-up") \
  X(26, ShowInsufficientMemoryPopup, show_insufficient_memory_popup, void(int show), "show the insufficient-memory pop-up") \
  X(27, ShowSignZoomSetup, show_sign_zoom_setup, void(int show), "show the sign-language zoom set-up") \
  X(28, ShowReturnPrevChannelPopup, show_return_prev_channel_popup, void(int show), "show the return-to-previous-channel pop-up") \
  X(29, ShowNoSignalPowerOffTimerPopup, show_no_signal_power_off_timer_popup, void(int show), "show the no-signal power-off timer") \
  X(30, ShowKeyGuideBanner, show_key_guide_banner, void(int show, int page), "show the key guide banner") \
  X(31, ShowGameModeBanner, show_game_mode_banner, void(int show, bool game_mode), "show the game mode banner") \
  X(32, ShowOCLViewForMLED, show_ocl_view_for_MLED, void(int show, std::string text), "show the one-connect view of an LED wall") \
  X(33, SendCommand, send_command, void(std::string command, std::string argument), "send a free command") \
  X(34, EnableBanner, enable_banner, void(std::string banner, std::string caller), "allow a banner to be shown") \
  X(35, DisableBanner, disable_banner, void(std::string banner, std::string caller), "keep a banner from being shown") \
  X(36, SendInitCommand, send_init_command, void(std::string argument), "tell the viewer to initialise") \
  X(37, SendHideBanner, send_hide_banner, void(std::string banner, std::string caller), "hide a banner") \
  X(38, SetLanguage, set_language, void(std::string language), "set the viewer's language") \
  X(39, PluginCmd, plugin_cmd, void(std::string plugin, std::string command), "send a command to a plug-in") \
  X(40, SetTVSHint, set_tvs_hint, void(std::string hint), "give the viewer a hint about the TV service") \
  X(41, NotificationCommand, notification_command, void(std::string notification, int action), "act on a notification") \
  X(42, TuneChannel, tunechannel, void(std::string number, std::string name, std::string source, std::string caller), "tune to a channel") \
  X(43, TuneChannelMain, tunechannel_main, void(std::string number, std::string caller), "tune the main picture") \
  X(44, TuneChannelMajor, tunechannel_major, void(int major, int minor, std::string caller), "tune by major and minor channel number") \
  X(45, TuneChannelPip, tunechannel_pip, void(std::string number, std::string caller), "tune the picture-in-picture window") \
  X(46, SvcIdTune, svcid_tune, void(std::string service_id, std::string transport_stream_id, std::string network_id, std::string caller), "tune by service id") \
  X(47, ShowLoading, show_loading, void(std::string text), "show the loading screen") \
  X(48, SendDiscreteCommand, send_discrete_command, void(std::string command, std::string argument), "send a discrete remote-control command") \
  X(49, SendAutoRemoconKey, send_autoremoconkey, void(std::string key, std::string device, std::string action, std::string option, std::string caller), "send a key of the automatic remote control") \
  X(50, SendStorageCommand, send_storagecommand, void(std::string command), "send a storage command") \
  X(51, SetHbbTVState, set_hbbtv_state, void(std::string state), "tell the viewer the state of the HbbTV application") \
  X(52, VoiceAppRequestTune, voiceapprequest_tune, void(std::string channel), "tune as the voice application asks") \
  X(53, ExitTTX, exit_ttx, void(std::string reason), "leave teletext") \
  X(54, CheckStateForVistane, check_state_for_vistane, int(int& state), "ask for the viewer's state on behalf of Vistane")
// clang-format on

/// First item of a result; no method has this id.
inline constexpr int kResultId = 0;
/// First item of a callback parcel; no method has this id.
inline constexpr int kCallbackId = 1;

/// The version that requests and results carry as their header's tag.
inline constexpr const char* kInterfaceVersion = "1.9.1";

/// The rpc-port port on which a viewer serves the interface.
inline constexpr const char* kPortName = "KavrelAppApi";

/// What can travel in a parcel of this interface.
enum class ItemType { None, Int32, Bool, String, StringList };

/// The name of an item type as help texts and error lines show it.
constexpr const char* ItemTypeName(ItemType type) {
  switch (type) {
    case ItemType::None:
      return "nothing";
    case ItemType::Int32:
      return "int";
    case ItemType::Bool:
      return "bool";
    case ItemType::String:
      return "string";
    case ItemType::StringList:
      return "string list";
  }
  return "?";
}

/// The item type of a C++ type; one that cannot travel does not compile.
template <class T>
constexpr ItemType ItemTypeOf() {
  using Value = std::remove_cv_t<std::remove_reference_t<T>>;
  if constexpr (std::is_void_v<Value>) {
    return ItemType::None;
  } else if constexpr (std::is_same_v<Value, int>) {
    return ItemType::Int32;
  } else if constexpr (std::is_same_v<Value, bool>) {
    return ItemType::Bool;
  } else if constexpr (std::is_same_v<Value, std::string>) {
    return ItemType::String;
  } else {
    static_assert(std::is_same_v<Value, Strings>,
                  "not an item type: add it to ItemType here and to src/app_api/tidl/Parcel.h");
    return ItemType::StringList;
  }
}

/// One argument type that comes back in the result instead of travelling in the request.
template <class T>
inline constexpr bool kIsOutValue = std::is_lvalue_reference_v<T>;

/// The most arguments that a method has.
inline constexpr std::size_t kMaxArguments = 5;

/// One row of the table as data, for code that treats all methods alike at run time.
struct MethodInfo {
  int id;                                         ///< first item of its request
  const char* name;                               ///< "ChangeSource"
  const char* c_name;                             ///< "change_source"
  const char* summary;                            ///< one line
  ItemType result;                                ///< None: the viewer does not answer
  std::array<ItemType, kMaxArguments> arguments;  ///< in wire order
  std::size_t argument_count;                     ///< of the request
  std::size_t out_value_count;                    ///< each an int32, in front of the result
  std::array<std::string_view, kMaxArguments> argument_names;   ///< of the request's arguments
  std::array<std::string_view, kMaxArguments> out_value_names;  ///< of the result's out values

  /// Whether the viewer answers.
  constexpr bool HasReply() const { return result != ItemType::None; }
};

namespace detail {

/// The name of the first argument in the rest of a signature's text, such as
/// "std::string type, int& size)"; what is left of the text is behind the separator.
constexpr std::string_view TakeArgumentName(std::string_view& signature) {
  const std::size_t end = signature.find_first_of(",)");
  const std::string_view argument = signature.substr(0, end);
  signature.remove_prefix(end + 1);
  return argument.substr(argument.find_last_of(" &") + 1);
}

template <class Signature>
struct SignatureTraits;

template <class R, class... P>
struct SignatureTraits<R(P...)> {
  using Result = R;
  static_assert(sizeof...(P) <= kMaxArguments, "raise kMaxArguments");

  /// `signature` is the signature's text, from which the arguments' names come.
  static constexpr MethodInfo Describe(int id, const char* name, const char* c_name,
                                       std::string_view signature, const char* summary) {
    MethodInfo info{id, name, c_name, summary, ItemTypeOf<R>(), {}, 0, 0, {}, {}};
    signature.remove_prefix(signature.find('(') + 1);
    (Append<P>(info, TakeArgumentName(signature)), ...);
    return info;
  }

 private:
  template <class T>
  static constexpr void Append(MethodInfo& info, std::string_view name) {
    if constexpr (kIsOutValue<T>) {
      info.out_value_names[info.out_value_count++] = name;
    } else {
      info.argument_names[info.argument_count] = name;
      info.arguments[info.argument_count++] = ItemTypeOf<T>();
    }
  }
};

}  // namespace detail

/// One type a row, named like the method: `methods::TuneChannel`, with `kId`, `Signature`, `Result`
/// and `kInfo`.
namespace methods {
/// @cond
#define KAVREL_METHOD_TYPE(id, method, c_name, signature, summary)                               \
  struct method {                                                                                \
    static constexpr int kId = id;                                                               \
    using Signature = signature;                                                                 \
    using Result = detail::SignatureTraits<Signature>::Result;                                   \
    static constexpr MethodInfo kInfo =                                                          \
        detail::SignatureTraits<Signature>::Describe(id, #method, #c_name, #signature, summary); \
  };
KAVREL_APP_API_METHODS(KAVREL_METHOD_TYPE)
#undef KAVREL_METHOD_TYPE
/// @endcond
}  // namespace methods

/// @cond
#define KAVREL_METHOD_INFO(id, method, c_name, signature, summary) methods::method::kInfo,
/// @endcond
/// All rows in ascending order of id.
inline constexpr MethodInfo kMethods[] = {KAVREL_APP_API_METHODS(KAVREL_METHOD_INFO)};
#undef KAVREL_METHOD_INFO

/// How many methods there are.
inline constexpr std::size_t kMethodCount = std::size(kMethods);
/// The lowest id.
inline constexpr int kFirstMethodId = kMethods[0].id;
/// The highest id.
inline constexpr int kLastMethodId = kMethods[kMethodCount - 1].id;

/// The row of a method id, or null when no method has it.
constexpr const MethodInfo* FindMethod(int id) {
  for (const MethodInfo& method : kMethods) {
    if (method.id == id) return &method;
  }
  return nullptr;
}

namespace detail {
constexpr bool IdsAscendWithoutGap() {
  for (std::size_t i = 0; i < kMethodCount; ++i) {
    if (kMethods[i].id != kFirstMethodId + static_cast<int>(i)) return false;
  }
  return kFirstMethodId > kCallbackId;
}
static_assert(IdsAscendWithoutGap(), "a row is missing, doubled or out of order");

constexpr bool ArgumentsAreNamed() {
  for (const MethodInfo& method : kMethods) {
    for (std::size_t i = 0; i < method.argument_count; ++i) {
      if (method.argument_names[i].empty()) return false;
    }
    for (std::size_t i = 0; i < method.out_value_count; ++i) {
      if (method.out_value_names[i].empty()) return false;
    }
  }
  return true;
}
static_assert(ArgumentsAreNamed(), "a row has an argument without a name");
}  // namespace detail

}  // namespace kavrel::app_api
