#include "reachability.h"

#include <glib.h>
#include <kavrel/app_api.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace viewer {
namespace {

// With a main context of its own: the connection's events must not mix with those of the viewer.
bool ConnectOnce(const std::string& app_id) {
  GMainContext* const context = g_main_context_new();
  g_main_context_push_thread_default(context);
  kavrel_api_h client = nullptr;
  try {
    client = kavrel_api_create(app_id.c_str());
  } catch (...) {
    // No proxy to be had: then nobody else gets one either.
  }
  if (client != nullptr) kavrel_api_destroy(client);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  return client != nullptr;
}

}  // namespace

bool SomebodyServes(const std::string& app_id) {
  ::setenv("KAVREL_RPC_TIMEOUT_MS", "1000", 1);
  return ConnectOnce(app_id);
}

bool IsReachable(const std::string& app_id) {
  std::atomic<bool> done = false;
  bool reached = false;
  std::thread client([&] {
    reached = ConnectOnce(app_id);
    done = true;
    g_main_context_wakeup(nullptr);
  });
  while (!done) g_main_context_iteration(nullptr, TRUE);
  client.join();
  return reached;
}

}  // namespace viewer
