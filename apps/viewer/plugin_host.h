// The viewer as host of plug-ins: what it does for them, and when it tells them something.
#pragma once

#include <kavrel/IViewerHost.h>

#include <set>
#include <string>

#include "operation_log.h"
#include "plugin_windows.h"
#include "television.h"
#include "window.h"

namespace viewer {

/// Makes the library's host on the viewer's window and
///
///   - gives each plug-in's window its place, and shows and hides it as the plug-in asks;
///   - enables and disables banners for plug-ins;
///   - keeps from plug-ins the keys that the television wants for itself;
///   - hands them the commands that clients have for them;
///   - tells all plug-ins when the viewer's state changes, and one that wants to be shown at once;
///   - writes a line about each of these.
///
/// Belongs to the main thread, and lives shorter than window, television and log; the television is
/// not commanded any more after its end.
class PluginHost {
 public:
  PluginHost(const Window& window, Television& television, OperationLog& log);
  PluginHost(const PluginHost&) = delete;
  PluginHost& operator=(const PluginHost&) = delete;
  ~PluginHost();

  enum class Press { kPressed = 0, kReleased = 1 };

  /// Who took a key.
  struct Taker {
    std::string plugin;  ///< empty: no plug-in did
    bool exclusively = false;
  };

  /// Offers a key to the plug-ins. `device` is numbered as DispatchInput() has it.
  Taker Offer(const std::string& key, Press press, int device);

  /// The registered plug-ins: "name", "type", "connected", "layer" of its window (null: no window),
  /// "visible", "keys", and "exclusive_keys", each with "key" and "owner": whether it gets the key.
  nlohmann::ordered_json Plugins() const;

  /// Whether plug-ins can have windows.
  bool HasCompositor() const;

  /// Puts the windows where they belong, after the viewer's window got another size.
  void PlaceWindows() { windows_.PlaceAll(); }

 private:
  static void Receive(CMessage& message, void* self);

  void Act(const CMessage& message);
  void WindowCame(const std::string& title);
  void WindowWent(const std::string& title);
  void Show(const std::string& plugin, bool shown);
  void SetBanner(const std::string& plugin, const std::string& banner, bool enabled);
  void TellState();
  void KeepKeys();
  void Write(const std::string& plugin, const std::string& what, const std::string& event,
             const nlohmann::ordered_json& fields = nlohmann::ordered_json::object());
  std::string ExclusiveOwner(const std::string& key) const;

  Television& television_;
  OperationLog& log_;
  IViewerHost* host_ = nullptr;
  PluginWindows windows_;
  std::string state_;
  std::set<std::string> kept_keys_;
};

}  // namespace viewer
