// A plug-in's end of the channel to its host: what the host says goes to one callable.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "BaseDbus.h"

namespace kavreldbus {

/// Thread and blocking: as CBaseDbus.
class CPluginDbus : public CBaseDbus {
 public:
  CPluginDbus(std::string hostName, std::string pluginName);
  ~CPluginDbus() override;

  /// Sets what takes incoming messages and notifications alike, in the place of what was set
  /// before; an empty callable takes none, and messages are answered with false. Call it on the
  /// end's thread, or before its loop runs.
  ///
  /// What the callable returns answers a message. It must not throw; it may send, set another
  /// callable, and destroy this end: it is itself destroyed when it has returned.
  void SetPluginDubsMsgCB(std::function<bool(CMessage&)> callback);

 protected:
  bool t_HandleMessage(CMessage& msg) override;
  bool t_HandleNotification(CMessage& msg) override;

 private:
  using Callback = std::function<bool(CMessage&)>;

  bool m_Call(CMessage& msg);

  // Shared with the call that runs, during which it may be replaced. Never holds an empty callable.
  std::shared_ptr<const Callback> m_Callback;
};

}  // namespace kavreldbus
