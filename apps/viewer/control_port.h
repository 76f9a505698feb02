// The viewer's own port for its tool: plug-ins, keys, what is on the screen, what happens. See
// control_protocol.h.
#pragma once

#include <control_protocol.h>

#include <string>
#include <vector>

#include "journal.h"
#include "plugin_host.h"
#include "remote_control.h"
#include "screen.h"
#include "service.h"

namespace viewer {

/// What the port tells about and acts on.
struct ViewerParts {
  const PluginHost* plugins;  ///< may be null
  RemoteControl& remote_control;
  const Television& television;
  Screen& screen;
  const Window& window;
  Journal& journal;
  const ClientList& clients;
};

/// Serves from its construction to its end, on the main thread. What it is made from outlives it.
/// Whoever may use the remote interface may use this port.
class ControlPort {
 public:
  /// Throws std::runtime_error when the port cannot be had.
  explicit ControlPort(const ViewerParts& parts);
  ControlPort(const ControlPort&) = delete;
  ControlPort& operator=(const ControlPort&) = delete;
  ~ControlPort();

 private:
  /// Whose request it is, and which.
  struct Asker {
    std::string instance;
    int sequence = 0;
  };
  /// Events go to its callback port, as answers to the request that began to follow.
  struct Follower {
    Asker asker;
    rpc_port_h port = nullptr;
  };

  static int Receive(const char* sender, const char* instance, rpc_port_h port, void* self);
  static void Disconnected(const char* sender, const char* instance, void* self);

  kavrel_programs::ControlReply Answer(const kavrel_programs::ControlParcel& parcel,
                                       const Asker& asker);
  kavrel_programs::ControlReply About() const;
  kavrel_programs::ControlReply Follow(const Asker& asker);
  kavrel_programs::ControlReply Look();
  void Tell(const nlohmann::ordered_json& event);
  void Forget(const std::string& instance);
  kavrel_programs::ControlReply Plugins() const;
  kavrel_programs::ControlReply Key(const kavrel_programs::ControlRequest& request);
  kavrel_programs::ControlReply Screenshot();

  const PluginHost* plugins_;
  RemoteControl& remote_control_;
  const Television& television_;
  Screen& screen_;
  const Window& window_;
  Journal& journal_;
  const ClientList& clients_;
  std::vector<Follower> followers_;
  rpc_port_stub_h stub_ = nullptr;
};

}  // namespace viewer
