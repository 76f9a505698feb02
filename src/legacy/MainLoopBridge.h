// Lets EFL's main loop serve GLib's default main context, on which the bus and the state store
// deliver.
//
// EFL offers two ways of its own. One is a build with GLib support, which Debian's is not. The
// other is used here: a program may replace the select() in which EFL's loop waits. The replacement
// waits for the descriptors and time-outs of both, and dispatches GLib's before it returns. It
// costs nothing measurable (0.15 ms for a round trip over the bus, like GLib's own loop); mirroring
// GLib's descriptors as EFL handlers instead adds about 10 ms, a thread for GLib adds locks to
// everything.
#pragma once

namespace kavrel {

/// From now on, whenever EFL's main loop runs, it serves GLib's default context too. Does nothing
/// when the loop's select() was replaced before: by EFL's own GLib support, by the program, or by
/// an earlier call; and in a program that has not loaded EFL. EFL need not be initialised, and the
/// replacement outlives its shutdown. A program that runs GLib's loop instead is not affected. Main
/// loop's thread, or while it does not run.
void ServeGlibInEflLoop();

}  // namespace kavrel
