#include "main_loop.h"

#include <Ecore.h>

#include <csignal>
#include <glib-unix.h>
#include <initializer_list>

namespace viewer {
namespace {

constexpr guint kTurnMilliseconds = 20;

gboolean Wake(gpointer /*data*/) {
  return G_SOURCE_CONTINUE;
}

}  // namespace

MainLoop::MainLoop() {
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &MainLoop::OnSignal, this);
}

MainLoop::~MainLoop() {
  while (g_source_remove_by_user_data(this)) {
  }
}

void MainLoop::Run(bool efl_serves_glib) const {
  if (efl_serves_glib) {
    if (!stopped_) ecore_main_loop_begin();
    return;
  }
  const guint turn = g_timeout_add(kTurnMilliseconds, &Wake, nullptr);
  while (!stopped_) {
    g_main_context_iteration(nullptr, TRUE);
    ecore_main_loop_iterate();
  }
  g_source_remove(turn);
}

void MainLoop::Stop() {
  stopped_ = true;
  ecore_main_loop_quit();
}

gboolean MainLoop::OnSignal(gpointer self) {
  static_cast<MainLoop*>(self)->Stop();
  return G_SOURCE_CONTINUE;
}

}  // namespace viewer
