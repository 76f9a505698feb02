// Which libraries a program gets that links the library and uses a part of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kavrel/KavrelAPI.h>
#include <kavrel/app_api.h>
#include <kavrel/state_api.h>

#include <fstream>
#include <string>
#include <vector>

#include "private_bus.h"
#include "temporary_directory.h"

namespace {

using kavrel_test::PrivateBus;
using kavrel_test::ScopedEnvironment;
using kavrel_test::TemporaryDirectory;
using testing::IsEmpty;

class Loading : public testing::Test {
 protected:
  /// The mappings of this process that are of EFL, Wayland or the compositor.
  static std::vector<std::string> ToolkitMappings() {
    std::vector<std::string> found;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      for (const char* const name : {"/libeina", "/libeo.", "/libecore", "/libevas",
                                     "/libelementary", "/libwayland", "/libpepper-efl"}) {
        if (line.find(name) != std::string::npos) found.push_back(line);
      }
    }
    return found;
  }

  TemporaryDirectory directory_;
  ScopedEnvironment runtime_{"KAVREL_RUNTIME_DIR", directory_.path()};
  ScopedEnvironment state_{"KAVREL_STATE_DIR", directory_.path()};
};

void Ignore(valuenode_s*, void*) {}

TEST_F(Loading, CommandingAndWatchingLoadNoToolkit) {
  EXPECT_EQ(kavrel_api_create(KAVREL_VIEWER_APP_ID), nullptr);  // nobody serves here
  int focus = 0;
  EXPECT_EQ(kavrel_set_pip_focus(1), 0);
  EXPECT_EQ(kavrel_get_pip_focus(&focus), 0);
  EXPECT_EQ(kavrel_register_pip_focus_change_cb(Ignore, nullptr), 0);
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(Ignore), 0);
  EXPECT_THAT(ToolkitMappings(), IsEmpty());
}

TEST_F(Loading, HostAndPluginWithoutWindowsLoadNoToolkit) {
  const PrivateBus bus;
  IViewerHost* host = nullptr;
  IViewerPluggable* plugin = nullptr;
  ASSERT_TRUE(KavrelAPI::CreateViewerHost(nullptr, &host, nullptr, nullptr, "other"));
  ASSERT_TRUE(KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES, "clock", &plugin, "other"));
  KavrelAPI::DestroyPluggable("clock", "other");
  KavrelAPI::DestroyViewerHost();
  EXPECT_THAT(ToolkitMappings(), IsEmpty());
}

}  // namespace
