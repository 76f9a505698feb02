// Events.
#include <lwipc.h>

#include <cerrno>

#include "process_setting.h"
#include "trial.h"

namespace faults_test {
namespace {

constexpr const char* kEvent = "/tmp/kavrel-faults_ready";

void Raise(Trial& trial) {
  const ProcessSetting setting;
  const auto result = trial.Call([] { return LwipcEventDone(kEvent); });
  trial.ExpectErrno(result);
  EXPECT_EQ(LwipcIsDone(kEvent), result == 0 ? 1 : 0);
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
}

// A raised event stays raised whatever becomes of raising it again.
void RaiseAgain(Trial& trial) {
  const ProcessSetting setting;
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  trial.ExpectErrno(trial.Call([] { return LwipcEventDone(kEvent); }));
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
}

void LookAtARaisedOne(Trial& trial) {
  const ProcessSetting setting;
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  const auto result = trial.Call([] { return LwipcIsDone(kEvent); });
  trial.ExpectErrno(result, {1});
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
}

void LookAtAMissingOne(Trial& trial) {
  const ProcessSetting setting;
  trial.ExpectErrno(trial.Call([] { return LwipcIsDone(kEvent); }), {0});
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

void WaitForARaisedOne(Trial& trial) {
  const ProcessSetting setting;
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  trial.ExpectErrno(trial.Call([] { return LwipcWaitEvent(kEvent, 20); }));
  EXPECT_EQ(LwipcWaitEvent(kEvent, 0), 0);
}

void WaitForAMissingOne(Trial& trial) {
  const ProcessSetting setting;
  trial.ExpectErrno(trial.Call([] { return LwipcWaitEvent(kEvent, 1); }), {-ETIMEDOUT});
  EXPECT_EQ(LwipcWaitEvent(kEvent, 1), -ETIMEDOUT);
}

}  // namespace

Rows LwipcRows() {
  return {
      {"raise", {"LwipcEventDone"}, Raise},
      {"raise_again", {"LwipcEventDone"}, RaiseAgain},
      {"look_at_a_raised_one", {"LwipcIsDone"}, LookAtARaisedOne},
      {"look_at_a_missing_one", {"LwipcIsDone"}, LookAtAMissingOne},
      {"wait_for_a_raised_one", {"LwipcWaitEvent"}, WaitForARaisedOne},
      {"wait_for_a_missing_one", {"LwipcWaitEvent"}, WaitForAMissingOne},
  };
}

}  // namespace faults_test
