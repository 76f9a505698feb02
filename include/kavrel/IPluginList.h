/** @file
 * What a viewer can learn about its plug-ins: for a list on the screen, a log, a tool.
 *
 *     if (const auto* list = dynamic_cast<const IPluginList*>(host)) {
 *       for (const IPluginList::Plugin& plugin : list->Plugins()) Print(plugin.name);
 *     }
 *
 * It is an interface of its own, beside IViewerHost, because the virtual operations of that one are
 * fixed; with a host that has none of it the cast gives null.
 */
#pragma once

#include <kavrel/KeyRepository.h>
#include <kavrel/ViewerPluginType.h>

#include <string>
#include <vector>

/// The plug-ins of a host. Thread: the one that runs the process's main loop. Belongs to the host.
class IPluginList {
 public:
  /// One registered plug-in.
  struct Plugin {
    VIEWER_PLUGIN_TYPE type;  ///< as it announced itself
    std::string name;         ///< as it announced itself
    bool connected;           ///< whether the channel to it is up
    CKeyRepository keys;      ///< those that it registered, the exclusive ones not included
  };

  /// One exclusive key.
  struct ExclusiveKey {
    std::string key;                      ///< its name
    std::vector<std::string> requesters;  ///< the last one has the key; never empty
  };

  /// The registered plug-ins in the order in which a key looks for one that wants it.
  virtual std::vector<Plugin> Plugins() const = 0;

  /// The exclusive keys, by name.
  virtual std::vector<ExclusiveKey> ExclusiveKeys() const = 0;

  /// Whether the host runs a compositor: without one plug-ins have keys and messages, but no
  /// windows.
  virtual bool HasCompositor() const = 0;

 protected:
  ~IPluginList() = default;
};
