#include "programs.h"

namespace kavrel_test {
namespace {

constexpr const char* kBash = "/bin/bash";

}  // namespace

Outcome OutcomeOf(ChildProcess& child) {
  const int exit_code = child.WaitForExit().value_or(-1000);
  return {exit_code, child.output(), child.errors()};
}

ChildOptions Programs::Options(const char* program,
                               const std::vector<std::string>& arguments) const {
  ChildOptions options;
  options.arguments = {program};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = {{"KAVREL_RUNTIME_DIR", directory_.path()},
                         {"KAVREL_STATE_DIR", directory_.Path("state")},
                         {"KAVREL_RPC_TIMEOUT_MS", std::nullopt},
                         {"KAVREL_APP_ID", std::nullopt},
                         {"KAVREL_LOG", std::nullopt},
                         {"KAVREL_BANNER_SECONDS", "0"},
                         {"DBUS_SYSTEM_BUS_ADDRESS", bus_address_},
                         {"XDG_RUNTIME_DIR", directory_.path()},
                         {"HOME", directory_.path()},
                         {"DISPLAY", std::nullopt},
                         {"WAYLAND_DISPLAY", std::nullopt},
                         {"EINA_LOG_BACKTRACE", "0"},
                         {"LSAN_OPTIONS", KAVREL_EFL_LEAKS},
                         {"KAVRELCTL", KAVRELCTL_PROGRAM},
                         {"VIEWER", KAVREL_VIEWER_PROGRAM}};
  for (const auto& [name, value] : environment_) options.environment[name] = value;
  return options;
}

std::unique_ptr<ChildProcess> Programs::StartTool(const std::vector<std::string>& arguments) const {
  return std::make_unique<ChildProcess>(Options(KAVRELCTL_PROGRAM, arguments));
}

Outcome Programs::Tool(const std::vector<std::string>& arguments) const {
  return OutcomeOf(*StartTool(arguments));
}

Outcome Programs::Script(const std::string& script) const {
  ChildProcess shell(Options(kBash, {"-c", script}));
  return OutcomeOf(shell);
}

Outcome Programs::ToolWithoutReader(const std::vector<std::string>& arguments) const {
  Pipe dead = MakePipe();
  dead.read.Reset();
  // What becomes standard error here becomes the program's standard output.
  std::vector<std::string> wrapped = {"-c", "exec \"$0\" \"$@\" 3>&2 2>&1 >&3 3>&-",
                                      KAVRELCTL_PROGRAM};
  wrapped.insert(wrapped.end(), arguments.begin(), arguments.end());
  ChildOptions options = Options(kBash, wrapped);
  options.errors = dead.write.get();
  ChildProcess shell(options);
  const Outcome outcome = OutcomeOf(shell);
  return {outcome.exit_code, "", outcome.output};
}

std::unique_ptr<ChildProcess> Programs::StartViewer(
    const std::vector<std::string>& arguments) const {
  auto viewer = std::make_unique<ChildProcess>(Options(KAVREL_VIEWER_PROGRAM, arguments));
  EXPECT_TRUE(viewer->WaitForLine("serving as")) << viewer->errors();
  return viewer;
}

}  // namespace kavrel_test
