#include "control_port.h"

#include <glib.h>

#include <exception>
#include <memory>
#include <stdexcept>

#include "png_file.h"
#include "screen_description.h"

namespace viewer {

using kavrel_programs::ControlCommand;
using kavrel_programs::ControlParcel;
using kavrel_programs::ControlReply;
using kavrel_programs::ControlRequest;
using nlohmann::ordered_json;

namespace {

struct FreeText {
  void operator()(char* text) const { g_free(text); }
};

// Names of plug-ins and keys may hold any bytes; JSON holds UTF-8 only.
ControlReply Done(const ordered_json& answer) {
  return {true, answer.dump(-1, ' ', false, ordered_json::error_handler_t::replace)};
}

}  // namespace

ControlPort::ControlPort(const PluginHost* plugins, RemoteControl& remote_control,
                         const Television& television, Screen& screen, const Window& window)
    : plugins_(plugins),
      remote_control_(remote_control),
      television_(television),
      screen_(screen),
      window_(window) {
  if (rpc_port_stub_create(&stub_, kavrel_programs::kControlPort) != 0) {
    throw std::runtime_error("no control port can be made; the log tells why");
  }
  if (rpc_port_stub_add_received_event_cb(stub_, &ControlPort::Receive, this) == 0 &&
      rpc_port_stub_listen(stub_) == 0) {
    return;
  }
  rpc_port_stub_destroy(stub_);
  throw std::runtime_error("the control port cannot be listened on; the log tells why");
}

ControlPort::~ControlPort() {
  rpc_port_stub_destroy(stub_);
}

int ControlPort::Receive(const char* /*sender*/, const char* /*instance*/, rpc_port_h port,
                         void* self) {
  try {
    int error = 0;
    const ControlParcel parcel = ControlParcel::Take(port, error);
    if (!parcel) return error;
    const auto sequence = parcel.Sequence();
    if (!sequence) return -1;
    const ControlReply reply = static_cast<ControlPort*>(self)->Answer(parcel);
    return kavrel_programs::SendControlReply(port, *sequence, reply) ? 0 : -1;
  } catch (const std::exception&) {
    // No memory for the answer: the client waits as long as it says.
    return -1;
  }
}

ControlReply ControlPort::Answer(const ControlParcel& parcel) {
  const auto request = kavrel_programs::DecodeControlRequest(parcel);
  if (!request) return {false, "this is no request that the viewer knows"};
  try {
    switch (request->command) {
      case ControlCommand::kPlugins:
        return Plugins();
      case ControlCommand::kKey:
        return Key(*request);
      case ControlCommand::kScreenshot:
        return Screenshot();
      case ControlCommand::kScreen:
        return Done(DescribeScreen(television_));
    }
  } catch (const std::runtime_error& error) {
    return {false, error.what()};
  }
  return {false, "this is no request that the viewer knows"};
}

ControlReply ControlPort::Plugins() const {
  if (plugins_ == nullptr) return {false, "its plug-ins are off; it said why when it started"};
  return Done(plugins_->Plugins());
}

ControlReply ControlPort::Key(const ControlRequest& request) {
  const auto press = request.released ? PluginHost::Press::kReleased : PluginHost::Press::kPressed;
  const auto outcome = remote_control_.Handle(request.key, press, request.device);
  return Done(RemoteControl::Describe(request.key, press, outcome));
}

ControlReply ControlPort::Screenshot() {
  screen_.Draw();
  const std::string png = EncodePng(window_.Capture());
  const std::unique_ptr<char, FreeText> text(
      g_base64_encode(reinterpret_cast<const guchar*>(png.data()), png.size()));
  return {true, text.get()};
}

}  // namespace viewer
