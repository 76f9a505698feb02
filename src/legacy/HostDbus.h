// The host's end of the channel to one plug-in: what the plug-in says goes to a plain function.
#pragma once

#include <string>

#include "BaseDbus.h"

namespace kavreldbus {

/// Thread and blocking: as CBaseDbus.
class CHostDbus : public CBaseDbus {
 public:
  CHostDbus(std::string hostName, std::string pluginName);
  ~CHostDbus() override;

  /// Sets what takes incoming messages and notifications, with `userData`, in the place of what was
  /// set before; null takes none, and messages are answered with false. Call it on the end's
  /// thread, or before its loop runs.
  ///
  /// A message arrives with one pair more than was sent: "name", the plug-in's name, comes last; a
  /// "name" of the plug-in's own is therefore what GetValue("name") finds. A notification arrives
  /// as it was sent. What `cb` returns answers a message. It must not throw; it may send, set
  /// another callback, and destroy this end.
  void SetHostDbusMsgCb(bool (*cb)(CMessage&, void*), void* userData);

 protected:
  bool t_HandleMessage(CMessage& msg) override;
  bool t_HandleNotification(CMessage& msg) override;

 private:
  bool (*m_Callback)(CMessage&, void*) = nullptr;
  void* m_CallbackData = nullptr;
};

}  // namespace kavreldbus
