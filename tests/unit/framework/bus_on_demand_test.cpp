// What the shared library has in place of GIO. This program does not link it.
#include <dlfcn.h>
#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/on_demand.h"
#include "dlog_capture.h"

namespace {

using kavrel_test::LogEntry;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::StartsWith;

bool IsLoaded(const char* library) {
  void* const handle = ::dlopen(library, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

// Arguments and results pass unchanged, also of functions that GObject has.
TEST(BusOnDemand, CallsGoToGio) {
  kavrel_test::DlogCapture log;
  EXPECT_TRUE(g_dbus_is_name("org.zarnet.viewer"));
  EXPECT_FALSE(g_dbus_is_name("viewer"));
  EXPECT_TRUE(IsLoaded("libgio-2.0.so.0"));
  GCancellable* const cancellable = g_cancellable_new();
  ASSERT_NE(cancellable, nullptr);
  int calls = 0;
  const auto count = +[](GCancellable*, int* number) { ++*number; };
  const gulong handler = g_signal_connect(cancellable, "cancelled", G_CALLBACK(count), &calls);
  g_cancellable_cancel(cancellable);
  g_signal_handler_disconnect(cancellable, handler);
  EXPECT_EQ(calls, 1);
  GWeakRef reference;
  g_weak_ref_init(&reference, cancellable);
  g_object_unref(cancellable);
  EXPECT_EQ(g_weak_ref_get(&reference), nullptr);
  GError* error = nullptr;
  EXPECT_EQ(g_dbus_node_info_new_for_xml("<no", &error), nullptr);
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(g_quark_to_string(G_DBUS_ERROR), "g-dbus-error-quark");
  g_error_free(error);
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(BusOnDemand, FunctionThatTheLibraryLacksIsAnErrorLine) {
  kavrel_test::DlogCapture log;
  constexpr kavrel::LibraryOnDemand kGio{"libgio-2.0.so.0", kavrel::Loading::kAllowed};
  EXPECT_EQ(kavrel::FindOnDemand(kGio, "g_dbus_is_magic"), nullptr);
  EXPECT_THAT(log.Take(),
              ElementsAre(Field(&LogEntry::text, StartsWith("cannot call g_dbus_is_magic: "))));
}

}  // namespace
