#include "control_connection.h"

#include <rpc-port.h>

#include <cerrno>
#include <utility>

#include "failure_texts.h"

namespace kavrelctl {
namespace {

// The viewer sends no event larger than this.
constexpr std::size_t kLargestEvent = std::size_t{4} * 1024 * 1024;

using kavrel_programs::ControlCommand;
using kavrel_programs::ControlParcel;
using kavrel_programs::ControlReply;
using kavrel_programs::ControlRequest;
using nlohmann::ordered_json;

std::string ConnectFailure(int error, const Settings& settings) {
  switch (error) {
    case -EACCES:
      return kNotPermitted;
    case -EIO:
      return "nobody listens on its control port, which kavrel-viewer has and other viewers have "
             "not; start one with kavrel-viewer, or name another with --app-id";
    case -ETIMEDOUT:
      return SilenceText(settings);
    default:
      return "no connection can be made";
  }
}

std::string CallFailure(int error, const Settings& settings) {
  if (error == -ETIMEDOUT) return SilenceText(settings);
  if (error == -EPIPE) return "it ended the connection";
  return "its answer cannot be understood";
}

}  // namespace

ControlConnection::~ControlConnection() {
  if (proxy_ != nullptr) rpc_port_proxy_destroy(proxy_);
}

std::optional<ControlFailure> ControlConnection::Connect() {
  const std::string where = "cannot reach " + ViewerName(settings_) + ": ";
  if (rpc_port_proxy_create(&proxy_) != 0) return ControlFailure{where + "no memory"};
  rpc_port_proxy_add_received_event_cb(proxy_, &ControlConnection::Received, this);
  rpc_port_proxy_add_disconnected_event_cb(proxy_, &ControlConnection::Disconnected, this);
  int error =
      rpc_port_proxy_connect_sync(proxy_, settings_.app_id.c_str(), kavrel_programs::kControlPort);
  if (error == 0) error = rpc_port_proxy_get_port(proxy_, RPC_PORT_PORT_MAIN, &port_);
  if (error == 0) error = rpc_port_proxy_get_port(proxy_, RPC_PORT_PORT_CALLBACK, &events_);
  if (error != 0) return ControlFailure{where + ConnectFailure(error, settings_)};
  return std::nullopt;
}

ControlFailure ControlConnection::AskFailure(const std::string& what, int error) {
  // The main context has not been told yet.
  if (error == -EPIPE) lost_ = true;
  return {what + ": " + CallFailure(error, settings_)};
}

ControlAnswer ControlConnection::Ask(const ControlRequest& request) {
  const std::string name = ViewerName(settings_);
  int sequence = 0;
  int error = kavrel_programs::SendControlRequest(port_, request, sequence);
  if (error != 0) return AskFailure("cannot ask " + name, error);
  const auto reply = kavrel_programs::ReadControlReply(port_, sequence, error);
  if (!reply) return AskFailure("no answer from " + name, error);
  if (!reply->done) return ControlFailure{name + " refuses: " + reply->text};
  return reply->text;
}

std::variant<ordered_json, ControlFailure> ControlConnection::AskJson(ControlCommand command) {
  ControlRequest request;
  request.command = command;
  ControlAnswer answer = Ask(request);
  if (auto* failure = std::get_if<ControlFailure>(&answer)) return std::move(*failure);
  ordered_json json = ordered_json::parse(std::get<std::string>(answer), nullptr, false);
  if (json.is_discarded()) {
    return ControlFailure{kNotUnderstood};
  }
  return json;
}

std::variant<unsigned, ControlFailure> ControlConnection::AskSequence(ControlCommand command) {
  const auto answer = AskJson(command);
  if (const auto* failure = std::get_if<ControlFailure>(&answer)) return *failure;
  const auto& told = std::get<ordered_json>(answer);
  if (!told.is_object() || !told.contains("sequence") ||
      !told.at("sequence").is_number_unsigned()) {
    return ControlFailure{kNotUnderstood};
  }
  return told.at("sequence").get<unsigned>();
}

std::variant<unsigned, ControlFailure> ControlConnection::Follow(OnEvent on_event) {
  on_event_ = std::move(on_event);
  return AskSequence(ControlCommand::kFollow);
}

std::variant<unsigned, ControlFailure> ControlConnection::Look() {
  return AskSequence(ControlCommand::kLook);
}

void ControlConnection::Received(const char* /*endpoint*/, const char* /*port_name*/, void* self) {
  try {
    static_cast<ControlConnection*>(self)->TakeEvent();
  } catch (const std::exception&) {
    static_cast<ControlConnection*>(self)->lost_ = true;  // an event that was missed
  }
}

void ControlConnection::TakeEvent() {
  int error = 0;
  const ControlParcel parcel = ControlParcel::Take(events_, error);
  if (!parcel) return;
  ControlReply part;
  const auto left = kavrel_programs::DecodeControlPart(parcel, part);
  if (!left || partial_.size() + part.text.size() > kLargestEvent) {
    lost_ = true;
    return;
  }
  partial_ += part.text;
  if (*left > 0) return;
  ordered_json event = ordered_json::parse(std::exchange(partial_, {}), nullptr, false);
  // One that was too large to be sent is none for whoever waits for something in particular.
  if (!part.done || !event.is_object()) event = {{"event", "too_large"}};
  if (on_event_) on_event_(std::move(event));
}

void ControlConnection::Disconnected(const char* /*endpoint*/, const char* /*port_name*/,
                                     void* self) {
  static_cast<ControlConnection*>(self)->lost_ = true;
}

ControlAnswer AskViewer(const ControlRequest& request, const Settings& settings) {
  ControlConnection connection(settings);
  if (auto failure = connection.Connect()) return std::move(*failure);
  return connection.Ask(request);
}

}  // namespace kavrelctl
