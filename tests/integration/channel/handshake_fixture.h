// A partner that speaks the handshake by hand: ends of one library cannot say steps at will.
#pragma once

#include <memory>
#include <string>

#include "channel_fixture.h"

namespace kavrel_test {

inline std::string StepName(const std::string& step) {
  return std::string(kBaseName) + "_" + step;
}

inline void Say(BusPeer& who, const std::string& step) {
  EXPECT_EQ(who.Do({{"do", "say"}, {"name", StepName(step)}}, "said").at("code"), 1);
}

/// `flags` as the bus's RequestName takes them; 4 is "do not queue".
inline void Hold(BusPeer& who, const std::string& step, int flags = 4) {
  EXPECT_EQ(who.Do({{"do", "own"}, {"name", StepName(step)}, {"flags", flags}}, "owned").at("code"),
            1);
}

inline void LetGo(BusPeer& who, const std::string& step) {
  who.Do({{"do", "release"}, {"name", StepName(step)}}, "released");
}

inline std::string WhoIs(BusPeer& peer) {
  return peer.Do({{"do", "who"}}, "who").at("who").get<std::string>();
}

/// Opens a partner that says only `steps` of the handshake by itself, and listens to all.
inline void OpenWithSteps(BusPeer& peer, const std::vector<std::string>& steps) {
  peer.Do({{"do", "open"}, {"host", kHost}, {"plugin", kPlugin}, {"steps", steps}}, "opened");
}

class SteppedTest : public ChannelTest {
 protected:
  std::unique_ptr<BusPeer> peer_ = MakePythonPeer();
};

}  // namespace kavrel_test
