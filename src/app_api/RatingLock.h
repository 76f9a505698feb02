// How the rating lock's text becomes a bool.
//
// Thread: any; no state.
#pragma once

#include <kavrel/state_api.h>
#include <vconf.h>

namespace kavrel::state {

/// True for "locked" alone; any other text, "unlocked" or not, is false. `locked_state` must not be
/// null.
bool ConvertRatingLockedValueToInt(char* locked_state);

/// Fills the record with the converted text. The registration hands this over, and the registry
/// does not use it: watchers in the field expect the text itself.
void AssignRatingLockedInfo(keynode_t* node, valuenode_s& info);

}  // namespace kavrel::state
