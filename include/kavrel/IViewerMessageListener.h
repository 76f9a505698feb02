/** @file
 * What a plug-in implements to get the viewer's own messages. */
#pragma once

#include <kavrel/Message.h>

/// Takes messages. Called on the thread that runs the main context on which the plug-in was
/// created. The listener belongs to the plug-in's program; it may unregister itself and destroy the
/// plug-in, and must not throw.
class IViewerMessageListener {
 public:
  /// The viewer sent a message. One with a value for "key" or "state" goes to the listener of keys
  /// or states instead, if there is one.
  ///
  /// @param message  belongs to the library and lives until the call returns; copy it to keep it
  virtual void OnViewerMessage(CMessage& message) = 0;

 protected:
  ~IViewerMessageListener() = default;
};
