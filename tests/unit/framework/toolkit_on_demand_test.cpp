// What the shared library has in place of EFL and the compositor. This program links neither, and
// the compositor's name is one that nobody has.
#include <Ecore.h>
#include <Elementary.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pepper-efl.h>

#include "dlog_capture.h"

namespace {

using kavrel_test::LogEntry;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::StartsWith;

bool IsLoaded(const char* library) {
  void* const handle = ::dlopen(library, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

TEST(ToolkitOnDemand, LoopThatIsNotThereIsNotLoaded) {
  kavrel_test::DlogCapture log;
  EXPECT_EQ(eina_main_loop_is(), EINA_FALSE);
  EXPECT_EQ(ecore_main_loop_select_func_get(), nullptr);
  ecore_main_loop_select_func_set(nullptr);
  EXPECT_EQ(ecore_thread_main_loop_begin(), 0);
  EXPECT_EQ(ecore_thread_main_loop_end(), 0);
  EXPECT_FALSE(IsLoaded("libeina.so.1"));
  EXPECT_FALSE(IsLoaded("libecore.so.1"));
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(ToolkitOnDemand, MissingLibraryIsAnErrorLineAndNothingElse) {
  kavrel_test::DlogCapture log;
  EXPECT_EQ(pepper_efl_compositor_create(nullptr, "socket"), nullptr);
  EXPECT_THAT(
      log.Take(),
      ElementsAre(
          AllOf(Field(&LogEntry::priority, kavrel_test::kLogError),
                Field(&LogEntry::text,
                      StartsWith("cannot call pepper_efl_compositor_create: "
                                 "libno-such-compositor.so.0: cannot open shared object file")))));
}

// From then on the loop's functions are EFL's own.
TEST(ToolkitOnDemand, FirstCallLoadsTheToolkit) {
  kavrel_test::DlogCapture log;
  EXPECT_FALSE(IsLoaded("libevas.so.1"));
  evas_object_show(nullptr);
  EXPECT_TRUE(IsLoaded("libevas.so.1"));
  ASSERT_TRUE(IsLoaded("libecore.so.1"));
  EXPECT_NE(ecore_main_loop_select_func_get(), nullptr);
  EXPECT_THAT(log.Take(), IsEmpty());
}

}  // namespace
