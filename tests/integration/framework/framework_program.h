// What the host and the plug-in of these tests share: they do what their standard input says, one
// command a line, and say what happens to them, one line each.
#pragma once

#include <Ecore.h>
#include <Efreet.h>
#include <Elementary.h>
#include <kavrel/Message.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

namespace framework_program {

inline void Say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

inline std::string Show(const CMessage& message) {
  std::string text;
  for (int index = 0; index < message.Size(); ++index) {
    text += ' ' + message.GetKey(index) + '=' + message.GetValue(index);
  }
  return text;
}

/// "DESCRIPTORS BYTES": what the process holds now.
inline std::string Cost() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return std::to_string(std::distance(begin(open), end(open))) + ' ' +
         std::to_string(::mallinfo2().uordblks);
}

/// EFL without what looks for services that a test has not, or starts daemons that outlive it.
inline void StartEfl(int argc, char** argv) {
  ecore_app_no_system_modules();
  efreet_cache_disable();
  elm_init(argc, argv);
}

/// Cuts standard input into lines. Thread: the main loop's.
class Commands {
 public:
  explicit Commands(std::function<void(const std::string&)> obey) : obey_(std::move(obey)) {}

  /// Reads what has come; false at its end.
  bool Read() {
    char bytes[4096];
    const ssize_t size = ::read(STDIN_FILENO, bytes, sizeof(bytes));
    if (size <= 0) return false;
    pending_.append(bytes, static_cast<std::size_t>(size));
    for (auto end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
      const std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      obey_(line);
    }
    return true;
  }

  /// From now on EFL's loop reads, and quits at the end of the input.
  void ReadInEflLoop() {
    const auto read = [](void* commands, Ecore_Fd_Handler*) -> Eina_Bool {
      if (static_cast<Commands*>(commands)->Read()) return ECORE_CALLBACK_RENEW;
      ecore_main_loop_quit();
      return ECORE_CALLBACK_CANCEL;
    };
    ecore_main_fd_handler_add(STDIN_FILENO, ECORE_FD_READ, read, this, nullptr, nullptr);
  }

 private:
  std::function<void(const std::string&)> obey_;
  std::string pending_;
};

}  // namespace framework_program
