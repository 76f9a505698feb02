/** @file
 * What a viewer does with its plug-ins. Made by KavrelAPI::CreateViewerHost().
 *
 * Plug-ins register by themselves as long as the host lives. Plug-ins of the types 0 to 3 stay
 * registered when they leave, and come back to their old place; the others are forgotten.
 *
 * What a plug-in may cost the viewer is limited: at most 96 plug-ins are registered, each with at
 * most 1,024 keys; at most 1,024 keys can be exclusive at a time, each with at most 128 requesters;
 * names of keys, plug-ins and requesters have at most 255 bytes. What goes beyond is logged and
 * left out.
 */
#pragma once

#include <kavrel/Message.h>

#include <string>

/** As EFL declares it; EFL's headers are not needed for a host without a window. */
typedef struct _Eo_Opaque Evas_Object;

/// Takes what plug-ins say to the viewer, and notices of their windows. Entry 0 of the message
/// tells:
///
///     "show", "hide"         value: the plug-in that wants its window shown or hidden
///     "enable", "disable"    value: what the plug-in wants on or off; "source": the plug-in
///     "register_exclusive_key", "unregister_exclusive_key"
///                            value: the plug-in; then "key" for each key. Done already
///     "clear_exclusive_key"  value: the plug-in. Done already
///     "plugin_add"           value: the title of a window that is now shown
///     "plugin_remove"        value: the title of a window that is about to go
///     anything else          the plug-in's own message
///
/// What comes from a plug-in ends with the pair "name", the plug-in that sent it; a name in an
/// entry is only what that plug-in claims. The message lives until the call returns. Called on the
/// thread of the main loop; may call the host, and may destroy it. Must not throw.
typedef void (*HostMessageCB)(CMessage& message, void* userData);

/// The viewer's end. Thread: all calls, and the callback, belong to the thread that runs the
/// process's main loop. No call waits for a plug-in, except SendMessage() with `async` 0.
class IViewerHost {
 public:
  virtual ~IViewerHost() = default;

  /// Offers one key event to the plug-ins. It goes to the plug-in that requested the key
  /// exclusively last, else to the first one that registered the key: by type from 0 to 6, within a
  /// type in the order in which they came.
  ///
  /// A plug-in that was killed while it held a key exclusively goes on holding it, and swallows it
  /// as long as it is registered: let go of it with ProcessUnregisteredExclusiveKey().
  ///
  /// @param keyName      the key's name
  /// @param keyType      0 pressed, anything else released
  /// @param inputDevice  0 remote control, 1 front panel, 2 smart remote, 3 voice remote, anything
  ///                     else another device
  /// @param consumer     set to the plug-in that took the key as registered one; left as it is when
  ///                     nobody did, and when the key was held exclusively
  /// @return true when a plug-in gets the key (what it does with it is not known); false when
  /// nobody
  ///         wants it, and when the viewer itself holds the key exclusively (as "kavrel")
  virtual bool DispatchInput(const std::string& keyName, int keyType, int inputDevice,
                             std::string& consumer) = 0;

  /// Sends a message to a plug-in.
  ///
  /// @param pluginName  the plug-in's name
  /// @param message     stays the caller's and may be sent again
  /// @param async       0 waits for the answer, at most 25 seconds, in which the main loop stands
  ///                    still; anything else does not wait
  /// @return with `async` 0 the plug-in's answer; otherwise 1 once the message is on its way. 0
  /// also
  ///         when there is no such plug-in or it is not connected
  virtual int SendMessage(const std::string& pluginName, CMessage& message, int async) = 0;

  /// The plug-in's window in the viewer's canvas, to move, resize, show or hide.
  ///
  /// @param pluginName  the plug-in's name
  /// @return the window's object, or null when the plug-in has none. It belongs to the host and
  /// goes
  ///         after "plugin_remove"
  virtual Evas_Object* GetPluginObject(const std::string& pluginName) = 0;

  /// Gives the key exclusively to the requester: a plug-in's name, registered or not, or "kavrel"
  /// for the viewer. Who held it before gets it back when the requester lets go. The key is grabbed
  /// on the viewer's window.
  ///
  /// @param keyName    the key's name, at most 255 bytes
  /// @param requester  who is to have it, at most 255 bytes
  virtual void ProcessRegisteredExclusiveKey(const std::string& keyName,
                                             const std::string& requester) = 0;

  /// Takes the requester's claim to the key back. With the last claim the grab ends. Without a
  /// claim nothing happens.
  ///
  /// @param keyName    the key's name
  /// @param requester  whose claim it was
  virtual void ProcessUnregisteredExclusiveKey(const std::string& keyName,
                                               const std::string& requester) = 0;

  /// Tells every plug-in the viewer's state. Waits for nobody; who comes later learns of the next
  /// one.
  ///
  /// @param state  "BACKGROUND", "RESUME", "RESUME_FOCUS" or "PAUSE" (any other text reaches
  /// plug-ins
  ///               as an unknown state)
  virtual void BroadcastViewerState(const std::string& state) = 0;
};
