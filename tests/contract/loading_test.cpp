// Which libraries a program gets that links the library, and commands a viewer and follows its
// state with it. This program links neither EFL nor GIO.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kavrel/app_api.h>
#include <kavrel/state_api.h>

#include "mappings.h"
#include "temporary_directory.h"

namespace {

using kavrel_test::BusMappings;
using kavrel_test::ScopedEnvironment;
using kavrel_test::TemporaryDirectory;
using kavrel_test::ToolkitMappings;
using testing::IsEmpty;

void Ignore(valuenode_s*, void*) {}

TEST(Loading, CommandingAndWatchingLoadNeitherBusNorToolkit) {
  const TemporaryDirectory directory;
  const ScopedEnvironment runtime{"KAVREL_RUNTIME_DIR", directory.path()};
  const ScopedEnvironment state{"KAVREL_STATE_DIR", directory.path()};
  EXPECT_EQ(kavrel_api_create(KAVREL_VIEWER_APP_ID), nullptr);  // nobody serves here
  int focus = 0;
  EXPECT_EQ(kavrel_set_pip_focus(1), 0);
  EXPECT_EQ(kavrel_get_pip_focus(&focus), 0);
  EXPECT_EQ(kavrel_register_pip_focus_change_cb(Ignore, nullptr), 0);
  EXPECT_EQ(kavrel_unregister_pip_focus_change_cb(Ignore), 0);
  EXPECT_THAT(BusMappings(), IsEmpty());
  EXPECT_THAT(ToolkitMappings(), IsEmpty());
}

}  // namespace
