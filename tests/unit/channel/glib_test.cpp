#include "common/glib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

namespace {

namespace glib = kavrel::glib;
using testing::HasSubstr;

TEST(GlibError, SpeaksWithoutAnError) {
  const glib::Error error;
  EXPECT_FALSE(error);
  EXPECT_EQ(error.code(), 0);
  EXPECT_STREQ(error.message(), "no reason given");
}

TEST(GlibError, HoldsTheLastError) {
  glib::Error error;
  error.Set(G_IO_ERROR_FAILED, "first");
  g_set_error_literal(error.Out(), G_IO_ERROR, G_IO_ERROR_CLOSED, "second");
  EXPECT_TRUE(error);
  EXPECT_EQ(error.code(), G_IO_ERROR_CLOSED);
  EXPECT_STREQ(error.message(), "second");
}

TEST(GlibObject, AdoptsAndShares) {
  GObject* object = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
  gpointer alive = object;
  g_object_add_weak_pointer(object, &alive);
  glib::Object<GObject> adopted(object);
  glib::Object<GObject> shared = glib::Share(object);
  adopted.reset();
  EXPECT_NE(alive, nullptr);
  shared.reset();
  EXPECT_EQ(alive, nullptr);
  EXPECT_EQ(glib::Share<GObject>(nullptr), nullptr);
}

TEST(GlibVariant, OwnsWhatFloats) {
  GVariant* floating = g_variant_new_string("text");
  const glib::Variant owned = glib::Sink(floating);
  EXPECT_FALSE(g_variant_is_floating(owned.get()));
  EXPECT_EQ(glib::Sink(nullptr), nullptr);
}

TEST(RunOn, RunsHereWhenNobodyRunsTheContext) {
  const glib::MainContext context(g_main_context_new());
  std::thread::id where;
  glib::RunOn(context.get(), [&] { where = std::this_thread::get_id(); });
  EXPECT_EQ(where, std::this_thread::get_id());
}

// A thread that runs a main context until told to stop.
class LoopThread {
 public:
  LoopThread() : context_(g_main_context_new()), loop_(g_main_loop_new(context_.get(), FALSE)) {
    std::promise<void> running;
    GSource* first = g_idle_source_new();
    g_source_set_callback(
        first,
        [](void* data) -> gboolean {
          static_cast<std::promise<void>*>(data)->set_value();
          return G_SOURCE_REMOVE;
        },
        &running, nullptr);
    g_source_attach(first, context_.get());
    g_source_unref(first);
    thread_ = std::thread([this] { g_main_loop_run(loop_); });
    running.get_future().wait();
  }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;
  ~LoopThread() {
    g_main_loop_quit(loop_);
    thread_.join();
    g_main_loop_unref(loop_);
  }

  GMainContext* context() const { return context_.get(); }
  std::thread::id id() const { return thread_.get_id(); }

 private:
  glib::MainContext context_;
  GMainLoop* loop_;
  std::thread thread_;
};

TEST(RunOn, RunsNeverBesideTheLoop) {
  const LoopThread loop;
  for (int i = 0; i < 100; ++i) {
    std::thread::id where;
    glib::RunOn(loop.context(), [&] { where = std::this_thread::get_id(); });
    EXPECT_EQ(where, loop.id());
  }
}

TEST(RunOn, RunsAtOnceInsideTheLoop) {
  const LoopThread loop;
  int depth = 0;
  glib::RunOn(loop.context(), [&] {
    glib::RunOn(loop.context(), [&] { depth = 2; });
    EXPECT_EQ(depth, 2);
  });
  EXPECT_EQ(depth, 2);
}

// The loop's thread holds the context without dispatching, then leaves it.
TEST(RunOn, DoesNotWaitForALoopThatHasEnded) {
  const glib::MainContext context(g_main_context_new());
  std::promise<void> held;
  std::promise<void> leave;
  std::thread holder([&] {
    g_main_context_acquire(context.get());
    held.set_value();
    leave.get_future().wait();
    g_main_context_release(context.get());
  });
  held.get_future().wait();
  std::thread waiter([&] {
    bool done = false;
    glib::RunOn(context.get(), [&] { done = true; });
    EXPECT_TRUE(done);
  });
  leave.set_value();
  waiter.join();
  holder.join();
}

// Names from other processes must not reach GIO's own argument checks, which shout.
TEST(GlibHandles, AreEmptyForNamesThatCannotBe) {
  EXPECT_FALSE(glib::SubscribeToSignals(nullptr, {.sender = "no name"}, nullptr, nullptr));
  EXPECT_FALSE(glib::SubscribeToSignals(nullptr, {.interface = "a"}, nullptr, nullptr));
  EXPECT_FALSE(glib::SubscribeToSignals(nullptr, {.member = "a-b"}, nullptr, nullptr));
  EXPECT_FALSE(glib::SubscribeToSignals(nullptr, {.path = "/a-b"}, nullptr, nullptr));
  EXPECT_FALSE(glib::SubscribeToSignals(nullptr, {.arg0 = "\xff"}, nullptr, nullptr));
  EXPECT_FALSE(glib::WatchName(nullptr, "", nullptr, nullptr, nullptr));
  EXPECT_FALSE(glib::WatchNameOnSystemBus("org.7up", nullptr, nullptr, nullptr));
  EXPECT_FALSE(glib::OwnNameOnSystemBus("org.7up", nullptr, nullptr));
  EXPECT_FALSE(glib::OwnNameOnSystemBus(":1.1", nullptr, nullptr));
}

TEST(GlibHandles, SayWhichNameCannotBe) {
  glib::Error error;
  EXPECT_EQ(glib::MakeProxy(nullptr, ":1.1", "/a-b", "a.b", error), nullptr);
  EXPECT_THAT(error.message(), HasSubstr("/a-b"));
  EXPECT_EQ(glib::MakeProxy(nullptr, ":1.1", "/a", "org.7up", error), nullptr);
  EXPECT_THAT(error.message(), HasSubstr("org.7up"));
  EXPECT_FALSE(glib::EmitSignal(nullptr, nullptr, "a", "a.b", "C", nullptr, error));
}

TEST(GlibHandles, ResetOfNothingWorks) {
  glib::Registration registration;
  EXPECT_TRUE(registration.Reset());
  EXPECT_EQ(registration.id(), 0U);
}

}  // namespace
