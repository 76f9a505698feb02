// The viewer without a display and plug-ins as processes, on a bus of the test's own.
#pragma once

#include <gmock/gmock.h>
#include <kavrel/testing.h>

#include <nlohmann/json.hpp>

#include "private_bus.h"
#include "programs.h"

namespace kavrel_test {

using Pixels = kavrel::testing::Picture;

/// Colours are given to the plug-ins, and looked for on the screen.
class PluginPrograms : public Programs {
 protected:
  PluginPrograms() { bus_address_ = bus_.address(); }

  /// A plug-in with a window of that colour, shown and with its keys known to the viewer.
  std::unique_ptr<ChildProcess> StartPanel(ChildProcess& viewer, const std::string& name,
                                           const std::string& type, const std::string& colour,
                                           const std::vector<std::string>& more = {}) const;
  /// Waits until the viewer shows the panel and knows its keys.
  static void AwaitPanel(ChildProcess& viewer, ChildProcess& panel, const std::string& name);
  /// A plug-in without a window, with its keys known to the viewer.
  std::unique_ptr<ChildProcess> StartListener(ChildProcess& viewer, const std::string& name,
                                              const std::vector<std::string>& more) const;

  nlohmann::json SendKey(const std::string& key, const std::vector<std::string>& more = {}) const;
  nlohmann::json ListPlugins() const;
  Pixels Screenshot() const;

  PrivateBus bus_;
};

/// Fails the test when `process` never says `line`.
void Expect(ChildProcess& process, const std::string& line);

}  // namespace kavrel_test
