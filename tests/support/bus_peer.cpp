#include "bus_peer.h"

#include <memory>
#include <stdexcept>

#include "temporary_directory.h"

namespace kavrel_test {
namespace {

std::string Quoted(const std::string& event) {
  return "\"event\":\"" + event + "\"";
}

// Where the build put the programs.
constexpr const char* kChannelEnd = KAVREL_CHANNEL_END;
constexpr const char* kPython = KAVREL_PYTHON;
constexpr const char* kPeer = KAVREL_PEER;

}  // namespace

BusPeer::BusPeer(std::vector<std::string> arguments)
    : process_(ChildOptions{.arguments = std::move(arguments)}) {}

Json BusPeer::Do(const Json& command, const std::string& answer) {
  Tell(command);
  return Wait(answer);
}

Json BusPeer::Wait(const std::string& event) {
  const auto line = process_.WaitForLine(Quoted(event));
  if (!line) {
    throw std::runtime_error("no " + event + "; told so far:\n" + process_.output() +
                             process_.errors());
  }
  return Json::parse(*line);
}

int BusPeer::Count(const std::string& event) const {
  const std::string& text = process_.output();
  int count = 0;
  for (auto at = text.find(Quoted(event)); at != std::string::npos;
       at = text.find(Quoted(event), at + 1)) {
    ++count;
  }
  return count;
}

Json BusPeer::Open(const std::string& role, const std::string& host, const std::string& plugin) {
  return Do({{"do", "open"}, {"role", role}, {"host", host}, {"plugin", plugin}}, "opened");
}

bool BusPeer::Send(bool wait, const Pairs& pairs) {
  return Do({{"do", "send"}, {"wait", wait}, {"pairs", pairs}}, "sent").at("result").get<bool>();
}

bool BusPeer::Notify(const Pairs& pairs) {
  return Do({{"do", "notify"}, {"pairs", pairs}}, "notified").at("result").get<bool>();
}

bool BusPeer::IsReady() {
  return Do({{"do", "state"}}, "state").at("ready").get<bool>();
}

std::unique_ptr<BusPeer> MakeLibraryEnd() {
  return std::make_unique<BusPeer>(std::vector<std::string>{kChannelEnd});
}

std::unique_ptr<BusPeer> MakePythonPeer() {
  return std::make_unique<BusPeer>(std::vector<std::string>{kPython, kPeer});
}

std::unique_ptr<BusPeer> MakePythonPeerAs(const std::string& user, const std::string& group) {
  // The program as text: the user may not be able to read this tree.
  return std::make_unique<BusPeer>(std::vector<std::string>{
      "/usr/bin/setpriv", "--reuid=" + user, "--regid=" + group, "--clear-groups",
      "--pdeathsig=KILL", kPython, "-c", ReadFile(kPeer)});
}

}  // namespace kavrel_test
