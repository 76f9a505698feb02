#include "interrupt.h"

#include <printable.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>

namespace kavrelctl {
namespace {

constexpr std::size_t kLongest = 300;

struct Text {
  std::array<char, kLongest> bytes{};
  std::size_t size = 0;
};

// One is written while the other may be read by the signal's handler.
std::array<Text, 2> g_texts;
std::atomic<const Text*> g_text = nullptr;

void Copy(const std::string& text, Text& into) {
  into.size = text.copy(into.bytes.data(), into.bytes.size());
}

// Nothing but what a handler may call.
extern "C" void EndNow(int signal) {
  constexpr int kSignalled = 128;
  const Text* const text = g_text.load();
  // Where nobody reads it, the exit code says as much.
  [[maybe_unused]] ssize_t written = 0;
  if (text != nullptr) written = ::write(STDERR_FILENO, text->bytes.data(), text->size);
  ::_exit(kSignalled + signal);
}

}  // namespace

void EndWhenInterrupted() {
  static_assert(std::atomic<const Text*>::is_always_lock_free);
  struct sigaction action {};
  action.sa_handler = &EndNow;
  sigfillset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

void SetInterruptText(const std::string& what) {
  Text& unused = g_text.load() == g_texts.data() ? g_texts[1] : g_texts[0];
  constexpr std::size_t kLongestPrintable = 200;
  Copy("kavrelctl: interrupted " + kavrel_programs::Printable(what, kLongestPrintable) + '\n',
       unused);
  g_text = &unused;
}

}  // namespace kavrelctl
