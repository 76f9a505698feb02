// What keys do: plug-ins come first, then the television.
#pragma once

#include <functional>
#include <string>

#include "operation_log.h"
#include "plugin_host.h"
#include "television.h"

namespace viewer {

/// Belongs to the main thread, and lives shorter than what it is made from.
class RemoteControl {
 public:
  /// `plugins` may be null: then there are none.
  RemoteControl(PluginHost* plugins, Television& television, OperationLog& log)
      : plugins_(plugins), television_(television), log_(log) {}

  enum class TakenBy { kPlugin, kViewer, kNobody };

  struct Outcome {
    TakenBy by = TakenBy::kNobody;
    PluginHost::Taker taker;  ///< when a plug-in took it
    bool IsTaken() const { return by != TakenBy::kNobody; }
  };

  /// One key of the remote control, by EFL's name of it.
  Outcome Handle(const std::string& key, PluginHost::Press press, int device);

  /// `handled` is called with each key, and words for who took it.
  using Handled = std::function<void(const std::string& key, PluginHost::Press press,
                                     const std::string& taker)>;
  void OnHandled(Handled handled) { handled_ = std::move(handled); }

  /// {"key","type","taken_by","plugin","exclusive"}
  static nlohmann::ordered_json Describe(const std::string& key, PluginHost::Press press,
                                         const Outcome& outcome);

 private:
  PluginHost* plugins_;
  Television& television_;
  OperationLog& log_;
  Handled handled_;
};

}  // namespace viewer
