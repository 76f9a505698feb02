// EFL's real main loop, and GLib sources of every kind under it.
#include <Ecore.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <algorithm>
#include <functional>
#include <glib-unix.h>
#include <thread>

#include "child_process.h"
#include "legacy/MainLoopBridge.h"

namespace framework_test {
namespace {

constexpr double kLimitSeconds = 30;

gboolean CallOnce(gpointer action) {
  (*static_cast<std::function<void()>*>(action))();
  return G_SOURCE_REMOVE;
}

gboolean CallForFd(gint, GIOCondition, gpointer action) {
  return CallOnce(action);
}

Eina_Bool CallFromEfl(void* action) {
  (*static_cast<std::function<void()>*>(action))();
  return ECORE_CALLBACK_CANCEL;
}

class BridgeTest : public testing::Test {
 protected:
  BridgeTest() {
    // Once before and once after: EFL need not be there, and twice is once.
    kavrel::ServeGlibInEflLoop();
    ecore_init();
    kavrel::ServeGlibInEflLoop();
  }
  ~BridgeTest() override { ecore_shutdown(); }

  /// Runs EFL's loop until somebody ends it; false when nobody does.
  bool Run() {
    bool late = false;
    std::function<void()> give_up = [&late] {
      late = true;
      ecore_main_loop_quit();
    };
    Ecore_Timer* const limit = ecore_timer_add(kLimitSeconds, &CallFromEfl, &give_up);
    ecore_main_loop_begin();
    if (!late) ecore_timer_del(limit);
    return !late;
  }

  std::function<void()> quit_ = [] { ecore_main_loop_quit(); };
};

TEST_F(BridgeTest, ReplacesEflsSelectOnce) {
  const Ecore_Select_Function replaced = ecore_main_loop_select_func_get();
  EXPECT_NE(replaced, &::select);
  kavrel::ServeGlibInEflLoop();
  EXPECT_EQ(ecore_main_loop_select_func_get(), replaced);
}

TEST_F(BridgeTest, LeavesAProgramsOwnSelect) {
  const Ecore_Select_Function before = ecore_main_loop_select_func_get();
  const Ecore_Select_Function own = [](int count, fd_set* readable, fd_set* writable,
                                       fd_set* exceptional, timeval* timeout) {
    return ::select(count, readable, writable, exceptional, timeout);
  };
  ecore_main_loop_select_func_set(own);
  kavrel::ServeGlibInEflLoop();
  EXPECT_EQ(ecore_main_loop_select_func_get(), own);
  ecore_main_loop_select_func_set(before);
}

TEST_F(BridgeTest, ServesIdlersAndTimeouts) {
  g_idle_add(&CallOnce, &quit_);
  EXPECT_TRUE(Run());
  g_timeout_add(5, &CallOnce, &quit_);
  EXPECT_TRUE(Run());
}

TEST_F(BridgeTest, ServesWhatOtherThreadsSend) {
  // Not g_main_context_invoke(): while nobody owns the context it would call on the sender's
  // thread.
  const std::jthread sender([this] { g_idle_add(&CallOnce, &quit_); });
  EXPECT_TRUE(Run());
}

TEST_F(BridgeTest, ServesDescriptors) {
  const kavrel_test::Pipe pipe = kavrel_test::MakePipe();
  g_unix_fd_add(pipe.read.get(), G_IO_IN, &CallForFd, &quit_);
  const std::jthread writer([&] { ASSERT_EQ(::write(pipe.write.get(), "x", 1), 1); });
  EXPECT_TRUE(Run());
}

// select() itself would write beyond its sets.
TEST_F(BridgeTest, ServesDescriptorsFrom1024On) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  const kavrel_test::Pipe pipe = kavrel_test::MakePipe();
  const kavrel_test::Descriptor high(::fcntl(pipe.read.get(), F_DUPFD_CLOEXEC, 1500));
  ASSERT_GE(high.get(), 1500);
  g_unix_fd_add(high.get(), G_IO_IN, &CallForFd, &quit_);
  ASSERT_EQ(::write(pipe.write.get(), "x", 1), 1);
  EXPECT_TRUE(Run());
}

TEST_F(BridgeTest, GoesOnServingEfl) {
  const kavrel_test::Pipe pipe = kavrel_test::MakePipe();
  bool told = false;
  const auto handler = [](void* flag, Ecore_Fd_Handler*) -> Eina_Bool {
    *static_cast<bool*>(flag) = true;
    ecore_main_loop_quit();
    return ECORE_CALLBACK_CANCEL;
  };
  ecore_main_fd_handler_add(pipe.read.get(), ECORE_FD_READ, handler, &told, nullptr, nullptr);
  const std::jthread writer([&] { ASSERT_EQ(::write(pipe.write.get(), "x", 1), 1); });
  EXPECT_TRUE(Run());
  EXPECT_TRUE(told);
  ecore_timer_add(0.005, &CallFromEfl, &quit_);
  EXPECT_TRUE(Run());
}

TEST_F(BridgeTest, MayRunTheLoopInsideAGlibCallback) {
  bool inner = false;
  std::function<void()> nested = [&inner] {
    inner = true;
    ecore_main_loop_quit();
  };
  std::function<void()> outer = [&] {
    g_idle_add(&CallOnce, &nested);
    while (!inner) ecore_main_loop_iterate();
  };
  g_idle_add(&CallOnce, &outer);
  EXPECT_TRUE(Run());
  EXPECT_TRUE(inner);
}

}  // namespace
}  // namespace framework_test
