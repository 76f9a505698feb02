// A GLib main context of the test's own, run until something has happened.
#pragma once

#include <glib.h>

#include <functional>

namespace kavrel_test {

/// Makes a fresh context the thread's default for as long as it lives. One thread.
class Loop {
 public:
  Loop() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;
  ~Loop() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }

  /// Runs the context until `done` holds; false when it does not within a generous time.
  bool RunUntil(const std::function<bool()>& done) {
    bool late = false;
    GSource* const timer = g_timeout_source_new_seconds(kLimitSeconds);
    g_source_set_callback(timer, &Loop::SetFlag, &late, nullptr);
    g_source_attach(timer, context_);
    while (!done() && !late) g_main_context_iteration(context_, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
    return done();
  }

  /// Runs what is ready without waiting.
  void RunReady() {
    while (g_main_context_iteration(context_, FALSE) != FALSE) {
    }
  }

 private:
  static constexpr unsigned kLimitSeconds = 30;

  static gboolean SetFlag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
  }

  GMainContext* context_;
};

}  // namespace kavrel_test
