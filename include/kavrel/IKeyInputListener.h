/** @file
 * What a plug-in implements to get remote-control keys. */
#pragma once

#include <string>

/// Takes keys. Called on the thread that runs the main context on which the plug-in was created.
/// The listener belongs to the plug-in's program; it may unregister itself and destroy the plug-in,
/// and must not throw.
class IKeyInputListener {
 public:
  /// A key was pressed, at most a second ago: older presses, and those that seem to come from the
  /// future, are dropped. The viewer does not wait for the answer.
  ///
  /// @param keyName          the key's name, such as "XF86Red"; valid until the call returns
  /// @param inputDeviceType  0 remote control, 1 smart remote, 2 voice remote, 3 front panel,
  ///                         4 another one, -1 not said. These are not the numbers that the viewer
  ///                         gives to IViewerHost::DispatchInput().
  /// @return goes nowhere
  virtual bool OnKeyPressed(const std::string& keyName, int inputDeviceType) = 0;

  /// A key was released, however long ago; its press may have been dropped.
  ///
  /// @param keyName          as above
  /// @param inputDeviceType  as above
  /// @return goes nowhere
  virtual bool OnKeyReleased(const std::string& keyName, int inputDeviceType) = 0;

 protected:
  ~IKeyInputListener() = default;
};
