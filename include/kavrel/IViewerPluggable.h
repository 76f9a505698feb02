/** @file
 * What a plug-in does with its viewer. Made by KavrelAPI::CreatePluggable().
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

/// The plug-in's end. Thread: everything belongs to the thread that runs the main context on which
/// the plug-in was made; callbacks and listeners are called there. No call waits for the viewer,
/// except SendMessage() with `async` 0.
class IViewerPluggable {
 public:
  virtual ~IViewerPluggable() = default;

  /// Sets who takes keys, in the place of an earlier listener.
  ///
  /// @param listener  not owned; has to live until it is unregistered or the plug-in is destroyed.
  /// A
  ///                  null one aborts the process
  virtual void RegisterKeyInputListener(IKeyInputListener* listener) = 0;
  /// Sets who takes viewer states, in the place of an earlier listener.
  ///
  /// @param listener  as above
  virtual void RegisterViewerStateChangeListener(IViewerStateChangeListener* listener) = 0;
  /// Sets who takes the viewer's messages, in the place of an earlier listener.
  ///
  /// @param listener  as above
  virtual void RegisterViewerMessageListener(IViewerMessageListener* listener) = 0;

  /// Forgets the listener of keys, if there is one.
  virtual void UnregisterKeyInputListener() = 0;
  /// Forgets the listener of viewer states, if there is one.
  virtual void UnregisterViewerStateChangeListener() = 0;
  /// Forgets the listener of messages, if there is one.
  virtual void UnregisterViewerMessageListener() = 0;

  /// Asks for these keys, in the place of those asked for before. (The misspelling is part of the
  /// interface.)
  ///
  /// @param keys  the keys; copied
  /// @return false when the set is empty, which changes nothing (see ClearKeyRepository()), and
  /// when
  ///         it cannot be sent, as long as the channel is not up
  virtual bool RegsiterKeyRepository(CKeyRepository& keys) = 0;

  /// Asks for no keys any more.
  ///
  /// @return false when it cannot be sent
  virtual bool ClearKeyRepository() = 0;

  /// Asks for these keys exclusively, beside those asked for before: the latest plug-in that asked
  /// gets the key.
  ///
  /// @param keys  the keys; copied
  /// @return false when the set is empty and when it cannot be sent
  virtual bool RegisterExclusiveKeyRepository(CKeyRepository& keys) = 0;

  /// Lets go of these exclusive keys.
  ///
  /// @param keys  the keys; copied
  /// @return false when the set is empty and when it cannot be sent
  virtual bool UnregisterExclusiveKeyRepository(CKeyRepository& keys) = 0;

  /// Lets go of all exclusive keys. Do it before the plug-in ends: the viewer keeps the claims of
  /// one that just goes.
  ///
  /// @return false when it cannot be sent
  virtual bool ClearExclusiveKeyRepository() = 0;

  /// Asks the viewer to show this plug-in's window. Nothing happens while the viewer is not there.
  /// Like the next three and SendMessage(), aborts the process when the plug-in could not get a
  /// channel for want of memory.
  virtual void Show() = 0;
  /// Asks the viewer to hide this plug-in's window.
  virtual void Hide() = 0;

  /// Asks the viewer to switch something on.
  ///
  /// @param what  which things there are is the viewer's business; kavrel-viewer's are its banners
  virtual void Enable(std::string what) = 0;
  /// Asks the viewer to switch something off.
  ///
  /// @param what  as above
  virtual void Disable(std::string what) = 0;

  /// Sends the plug-in's own message.
  ///
  /// @param message  stays the caller's and may be sent again
  /// @param async    0 waits for the viewer's answer, at most 25 seconds; anything else does not
  /// wait
  /// @return with `async` 0 the viewer's answer; otherwise true once the message is on its way.
  /// False
  ///         while the viewer is not there or not connected
  virtual bool SendMessage(CMessage& message, int async) = 0;

  /// Whether the channel to the viewer is up.
  ///
  /// @return true inside the connected callback already, and still inside the disconnected one that
  ///         tells of the channel's loss
  virtual bool FlagConnection() = 0;

  /// Sets what is called when the channel comes up and when it is lost. Set it right after the
  /// plug-in was made.
  ///
  /// When a viewer ends, `disconnected` is called twice: for the channel and for the viewer's name.
  /// It is also called once while no viewer is there at all. Both may send messages; neither may
  /// destroy the plug-in, which aborts the process.
  ///
  /// @param connected     null for nothing
  /// @param disconnected  null for nothing
  /// @param userData      for both; has to live as long as they are set
  virtual void SetConnectionChangedCallback(void (*connected)(void*), void (*disconnected)(void*),
                                            void* userData) = 0;
};
