#include "weston.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace kavrel_bench {
namespace {

constexpr const char* kProgram = "/usr/bin/weston";

/// Nothing of a desktop: no panel, no animations of its own, and never locked.
std::string WriteConfiguration() {
  std::string path = std::string(std::getenv("XDG_RUNTIME_DIR")) + "/weston.ini";
  std::ofstream(path) << "[core]\nidle-time=0\n[shell]\npanel-position=none\nlocking=false\n"
                         "animation=none\nclose-animation=none\nstartup-animation=none\n"
                         "background-color=0xff000000\n";
  return path;
}

}  // namespace

Weston::Weston(int width, int height) {
  process_ = std::make_unique<kavrel_test::ChildProcess>(kavrel_test::ChildOptions{
      .arguments = {kProgram, "--backend=headless-backend.so", "--use-pixman",
                    "--width=" + std::to_string(width), "--height=" + std::to_string(height),
                    std::string("--socket=") + socket(), "--config=" + WriteConfiguration(),
                    // The other shells show nothing where there is no keyboard.
                    "--shell=desktop-shell.so"}});
  if (!process_->WaitForLine("launching", std::chrono::seconds(10))) {
    throw std::runtime_error("weston does not come up: " + process_->errors());
  }
}

std::string Weston::Missing() {
  return std::filesystem::exists(kProgram) ? "" : "weston is not installed";
}

}  // namespace kavrel_bench
