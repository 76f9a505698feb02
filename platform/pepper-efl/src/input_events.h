// From the events of Evas to the seat.
#pragma once

#include "evas_hooks.h"

namespace kavrel_pepper {

class Server;
class Surface;

/// Sends pointer, touch and keys that a picture gets to the seat.
void WatchInput(ObjectHooks& hooks, Surface* surface);

/// Sends the keys that the root window gets to the seat.
void WatchKeys(ObjectHooks& hooks, Server* server);

}  // namespace kavrel_pepper
