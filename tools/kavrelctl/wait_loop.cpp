#include "wait_loop.h"

#include <glib.h>

#include <algorithm>

namespace kavrelctl {
namespace {

constexpr guint kLookMilliseconds = 50;
constexpr double kLongestSeconds = 1e6;

gboolean SetFlag(gpointer flag) {
  *static_cast<bool*>(flag) = true;
  return G_SOURCE_CONTINUE;
}

gboolean Ignore(gpointer /*nothing*/) {
  return G_SOURCE_CONTINUE;
}

/// A timer of the main context, gone with it.
class Timer {
 public:
  Timer(guint milliseconds, GSourceFunc function, gpointer data)
      : id_(g_timeout_add(milliseconds, function, data)) {}
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer() { g_source_remove(id_); }

 private:
  guint id_;
};

}  // namespace

bool WaitUntil(const WaitLimits& limits, const std::function<bool()>& is_over) {
  // What is there already has arrived in time.
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    if (is_over()) return true;
  }
  if (is_over()) return true;
  bool late = false;
  const double seconds = std::clamp(limits.seconds, 0.0, kLongestSeconds);
  const Timer limit(static_cast<guint>(seconds * 1000), &SetFlag, &late);
  // One that does nothing but let the loop below go round.
  const Timer look(limits.looks_often ? kLookMilliseconds : G_MAXUINT, &Ignore, nullptr);
  while (!late) {
    g_main_context_iteration(nullptr, TRUE);
    if (is_over()) return true;
  }
  return false;
}

}  // namespace kavrelctl
