// Hosts and plug-ins, on a bus of the trial's own. What GLib needs does not fail here: it ends the
// process then.
#include <glib.h>
#include <kavrel/KavrelAPI.h>

#include <memory>
#include <string>

#include "private_bus.h"
#include "process_setting.h"
#include "trial.h"

namespace faults_test {
namespace {

constexpr const char* kHost = "faults";
constexpr const char* kPlugin = "faultsplugin";
constexpr VIEWER_PLUGIN_TYPE kType = VIEWER_PLUGIN_LEAVES_LAYER_4;

/// The setting and the bus, and at the end nothing that would hold the bus.
struct Place {
  ProcessSetting setting;
  kavrel_test::PrivateBus bus;
};

bool MakeHost(IViewerHost** host) {
  return KavrelAPI::CreateViewerHost(nullptr, host, nullptr, nullptr, kHost);
}

bool MakePlugin(IViewerPluggable** plugin) {
  return KavrelAPI::CreatePluggable(kType, kPlugin, plugin, kHost);
}

void ExpectReturnOrBadAlloc(const Trial& trial) {
  EXPECT_TRUE(trial.end() == End::kReturned || trial.end() == End::kBadAlloc);
  if (trial.end() == End::kBadAlloc) {
    EXPECT_EQ(trial.fault(), Fault::kMemory);
  }
}

// In one process they have one name on the bus, and so do not meet.
void ExpectBothCanBeMade() {
  IViewerHost* host = nullptr;
  IViewerPluggable* plugin = nullptr;
  ASSERT_TRUE(MakeHost(&host));
  ASSERT_TRUE(MakePlugin(&plugin));
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

void EndAll() {
  KavrelAPI::DestroyPluggable();
  KavrelAPI::DestroyViewerHost();
}

void CreateHost(Trial& trial) {
  const Place place;
  IViewerHost* host = nullptr;
  const auto result = trial.Call([&] { return MakeHost(&host); });
  ExpectReturnOrBadAlloc(trial);
  EXPECT_EQ(host != nullptr, result.value_or(false));
  KavrelAPI::DestroyViewerHost();
  ExpectBothCanBeMade();
  EndAll();
}

void DestroyHost(Trial& trial) {
  const Place place;
  IViewerHost* host = nullptr;
  ASSERT_TRUE(MakeHost(&host));
  trial.Call([] { KavrelAPI::DestroyViewerHost(); });
  EXPECT_EQ(trial.end(), End::kReturned);
  ExpectBothCanBeMade();
  EndAll();
}

void CreatePlugin(Trial& trial) {
  const Place place;
  IViewerHost* host = nullptr;
  ASSERT_TRUE(MakeHost(&host));
  IViewerPluggable* plugin = nullptr;
  const auto result = trial.Call([&] { return MakePlugin(&plugin); });
  ExpectReturnOrBadAlloc(trial);
  EXPECT_EQ(plugin != nullptr, result.value_or(false));
  KavrelAPI::DestroyPluggable();
  ExpectBothCanBeMade();
  EndAll();
}

template <class Destroy>
std::function<void(Trial&)> DestroysPlugin(Destroy destroy) {
  return [destroy](Trial& trial) {
    const Place place;
    ExpectBothCanBeMade();
    trial.Call(destroy);
    EXPECT_TRUE(trial.end() == End::kReturned || trial.end() == End::kBadAlloc);
    KavrelAPI::DestroyPluggable();
    ExpectBothCanBeMade();
    EndAll();
  };
}

void RefuseWindow(Trial& trial) {
  const ProcessSetting setting;
  const auto window = trial.Call(
      [] { return KavrelAPI::CreatePepperPluginWindow("window", kPlugin, "another-host"); });
  EXPECT_EQ(trial.end(), End::kReturned);
  EXPECT_EQ(window.value_or(nullptr), nullptr);
}

}  // namespace

Rows FrameworkRows() {
  return {
      {"CreateViewerHost", {"KavrelAPI::CreateViewerHost"}, CreateHost},
      {"DestroyViewerHost", {"KavrelAPI::DestroyViewerHost"}, DestroyHost},
      {"CreatePluggable", {"KavrelAPI::CreatePluggable"}, CreatePlugin},
      {"DestroyPluggable", {"KavrelAPI::DestroyPluggable"}, DestroysPlugin([] {
         KavrelAPI::DestroyPluggable(kPlugin, kHost);
       })},
      {"DestroyAllPluggables", {"KavrelAPI::DestroyPluggable"}, DestroysPlugin([] {
         KavrelAPI::DestroyPluggable();
       })},
      {"CreatePepperPluginWindow", {"KavrelAPI::CreatePepperPluginWindow"}, RefuseWindow},
  };
}

}  // namespace faults_test
