#include <kavrel/testing.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "bus_daemon.h"
#include "program.h"
#include "temporary_directory.h"

namespace kavrel::testing {
namespace {

using kavrel_test::ScopedEnvironment;
using Clock = std::chrono::steady_clock;

Milliseconds Remaining(Clock::time_point deadline) {
  return std::max(Milliseconds(0), std::chrono::ceil<Milliseconds>(deadline - Clock::now()));
}

/// The one line of JSON that kavrelctl answered with.
nlohmann::json Answer(const Outcome& outcome) {
  if (outcome.exit_code != 0) throw std::runtime_error(outcome.errors);
  return nlohmann::json::parse(outcome.output);
}

std::string TextOf(const nlohmann::json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  return value.dump();
}

}  // namespace

/// What lives as long as the television. Ends in reverse order: the viewer before its bus, and both
/// before their directory.
class Television::Parts {
 public:
  explicit Parts(TelevisionOptions given) : options(std::move(given)) {
    options.viewer = FindProgram(options.viewer);
    options.tool = FindProgram(options.tool);
  }

  TelevisionOptions options;
  kavrel_test::TemporaryDirectory directory;
  kavrel_test::BusDaemon bus;
  ScopedEnvironment runtime{"KAVREL_RUNTIME_DIR", directory.path()};
  ScopedEnvironment state{"KAVREL_STATE_DIR", directory.Path("state")};
  ScopedEnvironment sockets{"XDG_RUNTIME_DIR", directory.path()};
  ScopedEnvironment events{"KAVREL_EVENT_DIR", std::nullopt};
  ScopedEnvironment app_id{"KAVREL_APP_ID", std::nullopt};
  ScopedEnvironment system_bus{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()};
  std::optional<Program> viewer;

  Program& Viewer() {
    if (!viewer) throw std::logic_error("the viewer was stopped: StartViewer() starts it anew");
    return *viewer;
  }
};

Television::Television(TelevisionOptions options)
    : parts_(std::make_unique<Parts>(std::move(options))) {
  StartViewer();
}

Television::~Television() = default;

const std::string& Television::directory() const {
  return parts_->directory.path();
}

const std::string& Television::bus_address() const {
  return parts_->bus.address();
}

void Television::StartViewer() {
  if (parts_->viewer) throw std::logic_error("the viewer runs already");
  std::vector<std::string> arguments = {parts_->options.viewer, "--headless"};
  arguments.insert(arguments.end(), parts_->options.viewer_arguments.begin(),
                   parts_->options.viewer_arguments.end());
  // A home of its own: the toolkit keeps files there. Banners stay until somebody hides them, or a
  // slow machine would miss them.
  Program viewer(std::move(arguments), {{"HOME", directory()}, {"KAVREL_BANNER_SECONDS", "0"}});
  if (!viewer.WaitForLine("serving as")) throw std::runtime_error("no viewer: " + viewer.errors());
  parts_->viewer = std::move(viewer);
}

int Television::StopViewer() {
  parts_->Viewer().Signal(SIGTERM);
  const std::optional<int> exit_code = parts_->Viewer().WaitForExit();
  parts_->viewer.reset();
  if (!exit_code) throw std::runtime_error("the viewer does not stop");
  return *exit_code;
}

void Television::KillViewer() {
  parts_->Viewer();
  parts_->viewer.reset();
}

std::optional<std::string> Television::WaitForLine(const std::string& text, Milliseconds limit) {
  return parts_->Viewer().WaitForLine(text, limit);
}

Outcome Television::Tool(const std::vector<std::string>& arguments) const {
  std::vector<std::string> all = {parts_->options.tool};
  all.insert(all.end(), arguments.begin(), arguments.end());
  Program tool(std::move(all));
  const std::optional<int> exit_code = tool.WaitForExit();
  if (!exit_code) throw std::runtime_error("kavrelctl does not end: " + tool.errors());
  return {*exit_code, tool.output(), tool.errors()};
}

std::optional<std::string> Television::State(const std::string& property) const {
  const Outcome outcome = Tool({"get", property, "--json"});
  const auto answer = nlohmann::json::parse(outcome.output, nullptr, false);
  if (answer.is_discarded()) throw std::runtime_error(outcome.errors);
  const auto& value = answer.at("value");
  if (value.is_null()) return std::nullopt;
  return TextOf(value);
}

bool Television::WaitForState(const std::string& property, const std::string& value,
                              Milliseconds limit) const {
  const auto deadline = Clock::now() + limit;
  // A line comes when it watches, and one for each change: no change falls between two looks.
  Program watcher({"sh", "-c", "exec \"$@\" 3>&2", "sh", parts_->options.tool, "watch", property,
                   "--ready-fd", "3"});
  while (watcher.WaitForLine("", Remaining(deadline))) {
    if (State(property) == value) return true;
  }
  if (watcher.WaitForExit(Milliseconds(0))) throw std::runtime_error(watcher.errors());
  return false;
}

std::string Television::SendKey(const std::string& key) const {
  const auto pressed = Answer(Tool({"keys", "send", key, "--json"}));
  Answer(Tool({"keys", "send", key, "--release", "--json"}));
  const auto& plugin = pressed.at("plugin");
  if (plugin.is_string()) return "plug-in " + plugin.get<std::string>();
  return pressed.at("taken_by").get<std::string>();
}

Picture Television::Screenshot() const {
  const std::string file = parts_->directory.Path("screenshot.png");
  const Outcome outcome = Tool({"screenshot", file});
  if (outcome.exit_code != 0) throw std::runtime_error(outcome.errors);
  return Picture(file);
}

std::optional<Picture> Television::WaitForScreen(
    const std::function<bool(const Picture&)>& is_right, Milliseconds limit) const {
  const auto deadline = Clock::now() + limit;
  do {
    Picture picture = Screenshot();
    if (is_right(picture)) return picture;
  } while (Clock::now() < deadline);
  return std::nullopt;
}

}  // namespace kavrel::testing
