#include "control_port.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
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

// More than these are hardly meant, and each costs a line of JSON an event.
constexpr std::size_t kMostFollowers = 16;

struct FreeText {
  void operator()(char* text) const { g_free(text); }
};

// Names of plug-ins and keys may hold any bytes; JSON holds UTF-8 only.
ControlReply Done(const ordered_json& answer) {
  return {true, answer.dump(-1, ' ', false, ordered_json::error_handler_t::replace)};
}

}  // namespace

ControlPort::ControlPort(const ViewerParts& parts)
    : plugins_(parts.plugins),
      remote_control_(parts.remote_control),
      television_(parts.television),
      screen_(parts.screen),
      window_(parts.window),
      journal_(parts.journal),
      clients_(parts.clients) {
  if (rpc_port_stub_create(&stub_, kavrel_programs::kControlPort) != 0) {
    throw std::runtime_error("no control port can be made; the log tells why");
  }
  if (rpc_port_stub_add_received_event_cb(stub_, &ControlPort::Receive, this) == 0 &&
      rpc_port_stub_add_disconnected_event_cb(stub_, &ControlPort::Disconnected, this) == 0 &&
      rpc_port_stub_listen(stub_) == 0) {
    return;
  }
  rpc_port_stub_destroy(stub_);
  throw std::runtime_error("the control port cannot be listened on; the log tells why");
}

ControlPort::~ControlPort() {
  journal_.End();
  rpc_port_stub_destroy(stub_);
}

int ControlPort::Receive(const char* /*sender*/, const char* instance, rpc_port_h port,
                         void* self) {
  try {
    int error = 0;
    const ControlParcel parcel = ControlParcel::Take(port, error);
    if (!parcel) return error;
    const auto sequence = parcel.Sequence();
    if (!sequence) return -1;
    const ControlReply reply =
        static_cast<ControlPort*>(self)->Answer(parcel, {instance, *sequence});
    return kavrel_programs::SendControlReply(port, *sequence, reply) ? 0 : -1;
  } catch (const std::exception&) {
    // No memory for the answer: the client waits as long as it says.
    return -1;
  }
}

void ControlPort::Disconnected(const char* /*sender*/, const char* instance, void* self) {
  static_cast<ControlPort*>(self)->Forget(instance);
}

ControlReply ControlPort::Answer(const ControlParcel& parcel, const Asker& asker) {
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
      case ControlCommand::kFollow:
        return Follow(asker);
      case ControlCommand::kLook:
        return Look();
      case ControlCommand::kAbout:
        return About();
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

ControlReply ControlPort::About() const {
  const char* const app_id = std::getenv("KAVREL_APP_ID");
  return Done({{"version", KAVREL_VERSION},
               {"pid", ::getpid()},
               {"app_id", app_id != nullptr ? app_id : ""},
               {"platform", KAVREL_PLATFORM},
               {"plugins", plugins_ != nullptr},
               {"clients", clients_.Senders()},
               {"followers", followers_.size()}});
}

// --- Following

ControlReply ControlPort::Follow(const Asker& asker) {
  Follower follower{asker};
  if (rpc_port_stub_get_port(stub_, RPC_PORT_PORT_CALLBACK, asker.instance.c_str(),
                             &follower.port) != 0) {
    return {false, "this connection has no port for events"};
  }
  Forget(asker.instance);
  if (followers_.size() == kMostFollowers) {
    return {false, "it has " + std::to_string(kMostFollowers) + " followers already"};
  }
  if (followers_.empty()) {
    journal_.Begin([this](const ordered_json& event) { Tell(event); });
  }
  followers_.push_back(follower);
  return Look();
}

ControlReply ControlPort::Look() {
  return Done({{"sequence", journal_.Look()}});
}

void ControlPort::Tell(const ordered_json& event) {
  const ControlReply reply = Done(event);
  std::vector<std::string> lost;
  for (const Follower& follower : followers_) {
    const Asker& asker = follower.asker;
    if (kavrel_programs::SendControlReply(follower.port, asker.sequence, reply)) continue;
    lost.push_back(asker.instance);
  }
  std::erase_if(followers_, [&](const Follower& follower) {
    return std::find(lost.begin(), lost.end(), follower.asker.instance) != lost.end();
  });
}

void ControlPort::Forget(const std::string& instance) {
  std::erase_if(followers_,
                [&](const Follower& follower) { return follower.asker.instance == instance; });
  if (followers_.empty()) journal_.End();
}

ControlReply ControlPort::Screenshot() {
  screen_.Draw();
  const std::string png = EncodePng(window_.Capture());
  const std::unique_ptr<char, FreeText> text(
      g_base64_encode(reinterpret_cast<const guchar*>(png.data()), png.size()));
  return {true, std::string(text.get())};
}

}  // namespace viewer
