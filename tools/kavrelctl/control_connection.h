// Questions to the reference viewer's control port, what it tells those who follow it, and what
// people can do when it fails.
#pragma once

#include <control_protocol.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>

#include "settings.h"

namespace kavrelctl {

inline constexpr const char* kNotUnderstood = "the viewer's answer cannot be understood";

/// Why there is no answer, for people.
struct ControlFailure {
  std::string message;
};

using ControlAnswer = std::variant<std::string, ControlFailure>;

/// Belongs to the thread that made it; blocks as long as the settings say. Events arrive on the
/// thread's main context.
class ControlConnection {
 public:
  using OnEvent = std::function<void(nlohmann::ordered_json event)>;

  explicit ControlConnection(const Settings& settings) : settings_(settings) {}
  ControlConnection(const ControlConnection&) = delete;
  ControlConnection& operator=(const ControlConnection&) = delete;
  ~ControlConnection();

  /// Nothing when the connection stands.
  std::optional<ControlFailure> Connect();

  /// The text of the answer.
  ControlAnswer Ask(const kavrel_programs::ControlRequest& request);
  /// The answer as JSON.
  std::variant<nlohmann::ordered_json, ControlFailure> AskJson(
      kavrel_programs::ControlCommand command);

  /// `on_event` is told what happens from now on (see the viewer's journal). Returns the number of
  /// the last event before.
  std::variant<unsigned, ControlFailure> Follow(OnEvent on_event);

  /// Lets the viewer tell what others have set. Returns the number of the last event, which is on
  /// its way then.
  std::variant<unsigned, ControlFailure> Look();

  /// Whether the connection has ended, as far as this end has noticed.
  bool IsLost() const { return lost_; }

 private:
  static void Received(const char* endpoint, const char* port_name, void* self);
  static void Disconnected(const char* endpoint, const char* port_name, void* self);

  std::variant<unsigned, ControlFailure> AskSequence(kavrel_programs::ControlCommand command);
  ControlFailure AskFailure(const std::string& what, int error);
  void TakeEvent();

  const Settings& settings_;
  rpc_port_proxy_h proxy_ = nullptr;
  rpc_port_h port_ = nullptr;
  rpc_port_h events_ = nullptr;
  OnEvent on_event_;
  std::string partial_;  // of an event that comes in several parcels
  bool lost_ = false;
};

/// Connects, asks, and returns the text of the answer.
ControlAnswer AskViewer(const kavrel_programs::ControlRequest& request, const Settings& settings);

}  // namespace kavrelctl
