// A process on the bus that a test tells what to do, one JSON object a line, and that tells what
// happens to it in the same way:
//
//     channel_end   one end of the channel, made of the library's own classes
//     peer.py       the same protocol spoken by a second, independent implementation, and whatever
//                   else can be done to a bus
//
// Both understand
//     {"do": "open", "role": "host" | "plugin", "host": H, "plugin": P}   -> opened
//     {"do": "close"}                                                     -> closed
//     {"do": "send", "wait": true | false, "pairs": [[K, V], ...]}        -> sent, "result"
//     {"do": "notify", "pairs": ...}                                      -> notified, "result"
//     {"do": "answer", "value": true | false}      what messages are answered with from now on
//     {"do": "who"}                                                       -> who, "who"
//     {"do": "state"}                                                     -> state, "ready"
// and tell of connected, disconnected and received ("pairs").
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "child_process.h"

namespace kavrel_test {

using Json = nlohmann::json;
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Belongs to the test's thread; the process dies with it.
class BusPeer {
 public:
  /// `arguments`: the program and what it is given.
  explicit BusPeer(std::vector<std::string> arguments);

  /// Does one thing and returns what was told of it ("event" is `answer`); throws
  /// std::runtime_error when nothing comes in time.
  Json Do(const Json& command, const std::string& answer);
  /// Has one thing done without waiting for what comes of it.
  void Tell(const Json& command) { process_.WriteInput(command.dump() + "\n"); }
  /// The next event of that name; what was told before it is passed over. Throws like Do().
  Json Wait(const std::string& event);
  /// How often that event has been told so far, as far as it was read.
  int Count(const std::string& event) const;

  /// Opens an end for the pair.
  Json Open(const std::string& role, const std::string& host, const std::string& plugin);
  /// Sends and returns the result.
  bool Send(bool wait, const Pairs& pairs);
  bool Notify(const Pairs& pairs);
  bool IsReady();

  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

/// The library's end in a process of its own.
std::unique_ptr<BusPeer> MakeLibraryEnd();
/// The independent implementation.
std::unique_ptr<BusPeer> MakePythonPeer();
/// The same as another user, with one group. Only as root.
std::unique_ptr<BusPeer> MakePythonPeerAs(const std::string& user, const std::string& group);

}  // namespace kavrel_test
