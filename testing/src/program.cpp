#include "program.h"

#include <kavrel/testing.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>
#include <utility>

#include "child_process.h"

namespace kavrel::testing {

std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const char* const path = std::getenv("PATH");
  std::istringstream directories(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string directory; std::getline(directories, directory, ':');) {
    std::string candidate = (directory.empty() ? "." : directory) + '/' + name;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  throw std::system_error(ENOENT, std::generic_category(), "no program \"" + name + "\" on PATH");
}

class Program::Child final : public kavrel_test::ChildProcess {
  using ChildProcess::ChildProcess;
};

Program::Program(std::vector<std::string> arguments,
                 std::map<std::string, std::optional<std::string>> environment) {
  if (!arguments.empty()) arguments[0] = FindProgram(arguments[0]);
  kavrel_test::ChildOptions options;
  options.arguments = std::move(arguments);
  options.environment = std::move(environment);
  child_ = std::make_unique<Child>(options);
}

Program::Program(Program&&) noexcept = default;
Program& Program::operator=(Program&&) noexcept = default;
Program::~Program() = default;

int Program::pid() const {
  return child_->pid();
}

std::optional<std::string> Program::WaitForLine(const std::string& text, Milliseconds limit) {
  return child_->WaitForLine(text, limit);
}

std::optional<int> Program::WaitForExit(Milliseconds limit) {
  return child_->WaitForExit(limit);
}

const std::string& Program::output() const {
  return child_->output();
}

const std::string& Program::errors() const {
  return child_->errors();
}

void Program::Write(const std::string& text) {
  child_->WriteInput(text);
}

void Program::CloseInput() {
  child_->CloseInput();
}

void Program::Signal(int signal) {
  child_->Signal(signal);
}

}  // namespace kavrel::testing
