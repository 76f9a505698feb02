// Plays a scenario against a viewer.
#pragma once

#include <deque>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "control_connection.h"
#include "play_report.h"
#include "scenario.h"
#include "settings.h"
#include "viewer_connection.h"

namespace kavrelctl {

/// Main thread only, whose main context it runs.
class Player {
 public:
  Player(const Scenario& scenario, const Settings& settings, PlayReport& report)
      : scenario_(scenario),
        settings_(settings),
        report_(report),
        viewer_(settings),
        control_(settings) {}

  /// Plays the steps up to the first that fails, or all. Returns an exit code.
  int Play(bool keeps_going);

 private:
  std::optional<std::string> Connect();
  StepOutcome Do(const Action& action);
  StepOutcome Do(const CallAction& call);
  static StepOutcome Do(const SetAction& set);
  StepOutcome Do(const KeyAction& key);
  StepOutcome Do(const WaitAction& wait);
  StepOutcome Do(const ExpectAction& expect);
  StepOutcome Do(const ScreenshotAction& screenshot);
  StepOutcome SendKey(const KeyAction& key, bool released);
  StepOutcome WaitUntilCarriedOut(const CallAction& call);
  bool IsLost() const { return has_control_ && control_.IsLost(); }

  const Scenario& scenario_;
  const Settings& settings_;
  PlayReport& report_;
  ViewerConnection viewer_;
  ControlConnection control_;
  bool has_control_ = false;                  // a viewer may have none, and a scenario need none
  std::deque<nlohmann::ordered_json> calls_;  // that the viewer has carried out since the last one
};

}  // namespace kavrelctl
