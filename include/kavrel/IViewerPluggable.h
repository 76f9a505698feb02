/* What a plug-in does with its viewer. Made by KavrelAPI::CreatePluggable().
 *
 * The channel to the viewer takes a moment to come up after the plug-in was made, and comes up anew
 * when the viewer was restarted: send from the connected callback on. Key wishes live in the viewer
 * and are gone with it: register them again in the connected callback.
 */
#pragma once

#include <kavrel/IKeyInputListener.h>
#include <kavrel/IViewerMessageListener.h>
#include <kavrel/IViewerStateChangeListener.h>
#include <kavrel/KeyRepository.h>
#include <kavrel/Message.h>

#include <string>

/// Thread: everything belongs to the thread that runs the main context on which the plug-in was
/// made; callbacks and listeners are called there. No call waits for the viewer, except
/// SendMessage() with `async` 0.
class IViewerPluggable {
 public:
  virtual ~IViewerPluggable() = default;

  /// Sets the one listener of its kind, in the place of an earlier one. It is not owned and has to
  /// live until it is unregistered or the plug-in is destroyed. A null one aborts the process.
  virtual void RegisterKeyInputListener(IKeyInputListener* listener) = 0;
  virtual void RegisterViewerStateChangeListener(IViewerStateChangeListener* listener) = 0;
  virtual void RegisterViewerMessageListener(IViewerMessageListener* listener) = 0;

  /// Forgets the listener of its kind, if there is one.
  virtual void UnregisterKeyInputListener() = 0;
  virtual void UnregisterViewerStateChangeListener() = 0;
  virtual void UnregisterViewerMessageListener() = 0;

  /// Asks for these keys, in the place of those asked for before. False when the set is empty,
  /// which changes nothing (see ClearKeyRepository()), and when it cannot be sent. (The misspelling
  /// is part of the interface.)
  virtual bool RegsiterKeyRepository(CKeyRepository& keys) = 0;

  /// Asks for no keys any more. False when it cannot be sent.
  virtual bool ClearKeyRepository() = 0;

  /// Asks for these keys exclusively, beside those asked for before: the latest plug-in that asked
  /// gets the key. False when the set is empty and when it cannot be sent.
  virtual bool RegisterExclusiveKeyRepository(CKeyRepository& keys) = 0;

  /// Lets go of these exclusive keys. False when the set is empty and when it cannot be sent.
  virtual bool UnregisterExclusiveKeyRepository(CKeyRepository& keys) = 0;

  /// Lets go of all exclusive keys. False when it cannot be sent.
  virtual bool ClearExclusiveKeyRepository() = 0;

  /// Asks the viewer to show or hide this plug-in's window. Nothing happens while the viewer is not
  /// there. Like the next two and SendMessage(), aborts the process when the plug-in could not get
  /// a channel for want of memory.
  virtual void Show() = 0;
  virtual void Hide() = 0;

  /// Asks the viewer to switch `what` on or off; which things there are is the viewer's business.
  virtual void Enable(std::string what) = 0;
  virtual void Disable(std::string what) = 0;

  /// Sends the plug-in's own message. With `async` 0 waits for the viewer's answer, at most 25
  /// seconds, and returns it; otherwise returns true once the message is on its way. False while
  /// the viewer is not there or not connected.
  virtual bool SendMessage(CMessage& message, int async) = 0;

  /// Whether the channel to the viewer is up.
  virtual bool FlagConnection() = 0;

  /// Sets what is called when the channel comes up and when it is lost, each with `userData`; null
  /// for nothing. Set it right after the plug-in was made.
  ///
  /// When a viewer ends, `disconnected` is called twice: for the channel and for the viewer's name.
  /// It is also called once while no viewer is there at all. Both may send messages; neither may
  /// destroy the plug-in, which aborts the process.
  virtual void SetConnectionChangedCallback(void (*connected)(void*), void (*disconnected)(void*),
                                            void* userData) = 0;
};
