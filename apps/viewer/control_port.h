// The viewer's own port for its tool: plug-ins, keys, what is on the screen. See
// control_protocol.h.
#pragma once

#include <control_protocol.h>

#include "plugin_host.h"
#include "remote_control.h"
#include "screen.h"

namespace viewer {

/// Serves from its construction to its end, on the main thread. What it is made from outlives it.
/// Whoever may use the remote interface may use this port.
class ControlPort {
 public:
  /// `plugins` may be null. Throws std::runtime_error when the port cannot be had.
  ControlPort(const PluginHost* plugins, RemoteControl& remote_control,
              const Television& television, Screen& screen, const Window& window);
  ControlPort(const ControlPort&) = delete;
  ControlPort& operator=(const ControlPort&) = delete;
  ~ControlPort();

 private:
  static int Receive(const char* sender, const char* instance, rpc_port_h port, void* self);

  kavrel_programs::ControlReply Answer(const kavrel_programs::ControlParcel& parcel);
  kavrel_programs::ControlReply Plugins() const;
  kavrel_programs::ControlReply Key(const kavrel_programs::ControlRequest& request);
  kavrel_programs::ControlReply Screenshot();

  const PluginHost* plugins_;
  RemoteControl& remote_control_;
  const Television& television_;
  Screen& screen_;
  const Window& window_;
  rpc_port_stub_h stub_ = nullptr;
};

}  // namespace viewer
