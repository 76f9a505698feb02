#include "log_capture.h"

#include <dlog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "pair.h"

namespace rpc_test {
namespace {

using Lines = std::vector<std::string>;

Watched<Lines>& TheLog() {
  static auto* log = new Watched<Lines>;
  return *log;
}

std::size_t CountIn(const Lines& lines, const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(),
                    [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

}  // namespace

std::vector<std::string> TakeLog() {
  Lines taken;
  TheLog().Update([&](Lines& lines) { taken.swap(lines); });
  return taken;
}

bool WaitForLog(const std::string& text, std::size_t count) {
  return TheLog().WaitUntil([&](const Lines& lines) { return CountIn(lines, text) >= count; });
}

std::size_t CountLog(const std::string& text) {
  return CountIn(TheLog().Get(), text);
}

}  // namespace rpc_test

int dlog_print(int, const char*, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  rpc_test::TheLog().Update([&](rpc_test::Lines& lines) { lines.emplace_back(text); });
  return length;
}
