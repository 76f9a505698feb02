// How kavrelctl speaks with the reference viewer beside the remote interface: questions about
// plug-ins, keys of the remote control, pictures of the screen, and what is on it. A port of its
// own, because the remote interface is the same for every viewer.
//
// A request is one parcel: int32 command, then its arguments. The answer is one or more parcels
// with the request's sequence number: int32 result, int32 number of parcels that follow, text. The
// texts put together are the answer: JSON, a PNG in base 64, or why the request is refused.
//
// A client that follows gets, on its callback port, one more such answer to that request for each
// thing that happens (journal.h has the events). The answers to kFollow and kLook name the number
// of the last event: those up to it are on their way when the answer comes.
#pragma once

#include <rpc-port.h>

#include <array>
#include <optional>
#include <string>
#include <utility>

namespace kavrel_programs {

inline constexpr const char* kControlPort = "KavrelViewerControl";

enum class ControlCommand {
  kPlugins = 1,     ///< the plug-ins, as JSON
  kKey = 2,         ///< a key: who took it, as JSON
  kScreenshot = 3,  ///< a picture of the screen, as PNG in base 64
  kScreen = 4,      ///< what is on the screen, as JSON; see below
  kFollow = 5,      ///< be told what happens from now on
  kLook = 6,        ///< tell the followers now what others have set in the published state
  kAbout = 7,       ///< version, process and clients, as JSON
};

// The answer to kScreen, an object:
//
//   "activity"       what the viewer does: "running", "loading", "no-signal", "locked", "paused"
//   "viewer_state"   as plug-ins see it: "RESUME_FOCUS", "RESUME", "BACKGROUND", "PAUSE"
//   "channel"        "number", "name", "source", "service_id"; empty texts where unknown
//   "source"         "type", "number", "label" of what is watched: the channel's unless another
//                    source has been chosen
//   "banners"        the banners that are shown, lowest first, each with "name" and "texts"
//   "popups"         the pop-ups that are shown, in the same way
//   "pip"            null, or "channel" (as above) and "focused" of the picture-in-picture window
//   "selection_window"  "shown", "zoom_level", "left", "top", "width", "height", and "move_range"
//                    with "least_left", "least_top", "greatest_left", "greatest_top"
//   "window_size", "teletext", "language"
//   "kept_keys"      the keys that plug-ins do not get now

/// The devices of IViewerHost::DispatchInput, and as people name them.
inline constexpr std::array kKeyDevices = {"ir", "panel", "sr", "vr", "other"};

struct ControlRequest {
  ControlCommand command = ControlCommand::kPlugins;
  std::string key;        ///< of kKey
  bool released = false;  ///< of kKey
  int device = 0;         ///< of kKey
};

struct ControlReply {
  bool done = false;
  std::string text;
};

/// What is wrong with `text` as the name of a key; empty when nothing is.
std::string KeyMistake(const std::string& text);

/// "ir, panel, sr, vr, other"
std::string KeyDeviceList();
/// The number of the device of that name, or nothing.
std::optional<int> FindKeyDevice(const std::string& name);
/// "ir"; the number stands for itself when no device has it.
std::string KeyDeviceName(int device);

/// Owns a parcel. One thread.
class ControlParcel {
 public:
  explicit ControlParcel(rpc_port_parcel_h handle = nullptr) : handle_(handle) {}
  ControlParcel(ControlParcel&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  ControlParcel(const ControlParcel&) = delete;
  ControlParcel& operator=(const ControlParcel&) = delete;
  ~ControlParcel() {
    if (handle_ != nullptr) rpc_port_parcel_destroy(handle_);
  }

  static ControlParcel Create();
  /// Takes the next one; what it waits for is the port's business. Empty, and `error` negative,
  /// when there is none.
  static ControlParcel Take(rpc_port_h port, int& error);

  rpc_port_parcel_h get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

  std::optional<int> ReadInt() const;
  std::optional<bool> ReadBool() const;
  std::optional<std::string> ReadText() const;
  std::optional<int> Sequence() const;
  bool SetSequence(int sequence) const;

 private:
  rpc_port_parcel_h handle_;
};

/// 0 and the sequence number, or a negative number.
int SendControlRequest(rpc_port_h port, const ControlRequest& request, int& sequence);

/// The request in a parcel that anybody may have sent, or nothing when it is none.
std::optional<ControlRequest> DecodeControlRequest(const ControlParcel& parcel);

/// False when it cannot be sent. An answer that is too large becomes a refusal.
bool SendControlReply(rpc_port_h port, int sequence, const ControlReply& reply);

/// Adds one part to a reply. Returns how many follow, or nothing when the parcel is no part of one.
std::optional<int> DecodeControlPart(const ControlParcel& parcel, ControlReply& reply);

/// Waits for the answer to the request of that number. Nothing, and `error` negative, when none
/// comes or when what comes is not one.
std::optional<ControlReply> ReadControlReply(rpc_port_h port, int sequence, int& error);

}  // namespace kavrel_programs
