#include "control_connection.h"

#include <rpc-port.h>

#include <cerrno>
#include <memory>

#include "failure_texts.h"

namespace kavrelctl {
namespace {

using kavrel_programs::ControlReply;
using kavrel_programs::ControlRequest;

struct DestroyProxy {
  void operator()(void* proxy) const { rpc_port_proxy_destroy(proxy); }
};
using Proxy = std::unique_ptr<void, DestroyProxy>;

Proxy MakeProxy() {
  rpc_port_proxy_h handle = nullptr;
  return Proxy(rpc_port_proxy_create(&handle) == 0 ? handle : nullptr);
}

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

std::variant<std::string, ControlFailure> AskViewer(const ControlRequest& request,
                                                    const Settings& settings) {
  const Proxy proxy = MakeProxy();
  const std::string name = ViewerName(settings);
  if (proxy == nullptr) return ControlFailure{"cannot reach " + name + ": no memory"};
  int error = rpc_port_proxy_connect_sync(proxy.get(), settings.app_id.c_str(),
                                          kavrel_programs::kControlPort);
  if (error != 0) {
    return ControlFailure{"cannot reach " + name + ": " + ConnectFailure(error, settings)};
  }
  rpc_port_h port = nullptr;
  int sequence = 0;
  error = rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_MAIN, &port);
  if (error == 0) error = kavrel_programs::SendControlRequest(port, request, sequence);
  if (error != 0) return ControlFailure{"cannot ask " + name + ": " + CallFailure(error, settings)};
  const auto reply = kavrel_programs::ReadControlReply(port, sequence, error);
  if (!reply) return ControlFailure{"no answer from " + name + ": " + CallFailure(error, settings)};
  if (!reply->done) return ControlFailure{name + " refuses: " + reply->text};
  return reply->text;
}

}  // namespace kavrelctl
