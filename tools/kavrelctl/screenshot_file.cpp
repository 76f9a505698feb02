#include "screenshot_file.h"

#include <glib.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

namespace kavrelctl {
namespace {

struct FreeBytes {
  void operator()(guchar* bytes) const { g_free(bytes); }
};

}  // namespace

SavedScreenshot SaveScreenshot(const ControlAnswer& answer, const std::string& file) {
  if (const auto* failure = std::get_if<ControlFailure>(&answer)) return {0, failure->message};
  gsize size = 0;
  const std::unique_ptr<guchar, FreeBytes> bytes(
      g_base64_decode(std::get<std::string>(answer).c_str(), &size));
  if (size < 8 || std::memcmp(bytes.get(), "\x89PNG\r\n\x1a\n", 8) != 0) {
    return {0, kNotUnderstood};
  }
  std::ofstream picture(file, std::ios::binary | std::ios::trunc);
  picture.write(reinterpret_cast<const char*>(bytes.get()), static_cast<std::streamsize>(size));
  if (!picture.flush()) return {0, "cannot write \"" + file + "\": " + std::strerror(errno)};
  return {size, {}};
}

}  // namespace kavrelctl
