// The channel's classes without a bus: what is sent is noted in the journal, and a test says what
// arrives.
#pragma once

#include <kavrel/Message.h>

#include <functional>
#include <map>
#include <string>

namespace framework_test {

struct FakeChannels {
  bool ready = true;
  bool send_result = true;

  /// The callbacks that were set, by plug-in.
  std::map<std::string, std::function<bool(CMessage&)>> from_plugin;
  std::map<std::string, std::function<bool(CMessage&)>> from_host;
  std::function<bool(const char*, int, bool)> announced;
  bool (*announced_function)(const char*, int, bool, void*) = nullptr;
  bool (*from_plugin_function)(CMessage&, void*) = nullptr;
  std::function<void(const char*)> name_appeared;
  std::function<void(const char*)> name_vanished;
};

FakeChannels& Channels();

/// "a=1|b=2"
std::string Show(const CMessage& message);
/// The message of these pairs.
CMessage Message(const std::vector<std::pair<std::string, std::string>>& pairs);

}  // namespace framework_test
