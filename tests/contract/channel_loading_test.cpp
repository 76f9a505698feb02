// Which libraries a program gets that is a host or a plug-in. This program links neither EFL nor
// GIO: the library loads GIO itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kavrel/KavrelAPI.h>

#include "bus_daemon.h"
#include "mappings.h"
#include "temporary_directory.h"

namespace {

using kavrel_test::BusDaemon;
using kavrel_test::BusMappings;
using kavrel_test::ScopedEnvironment;
using kavrel_test::TemporaryDirectory;
using kavrel_test::ToolkitMappings;
using testing::IsEmpty;
using testing::Not;

TEST(ChannelLoading, HostAndPluginWithoutWindowsLoadTheBusAndNoToolkit) {
  const TemporaryDirectory directory;
  const ScopedEnvironment runtime{"KAVREL_RUNTIME_DIR", directory.path()};
  const BusDaemon bus;
  const ScopedEnvironment address{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()};
  IViewerHost* host = nullptr;
  IViewerPluggable* plugin = nullptr;
  ASSERT_TRUE(KavrelAPI::CreateViewerHost(nullptr, &host, nullptr, nullptr, "other"));
  ASSERT_TRUE(KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES, "clock", &plugin, "other"));
  KavrelAPI::DestroyPluggable("clock", "other");
  KavrelAPI::DestroyViewerHost();
  EXPECT_THAT(BusMappings(), Not(IsEmpty()));
  EXPECT_THAT(ToolkitMappings(), IsEmpty());
}

}  // namespace
