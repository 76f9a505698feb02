// The stub's small classes: queue, worker, callbacks, lists in parcels.
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <type_traits>

#include "stub_fixture.h"

namespace kavrel_test {
namespace {

using stub::ActiveObject;
using stub::Job;
using stub::SharedQueue;
using testing::ElementsAre;
using testing::IsEmpty;

struct Event final : Job::IEvent {
  explicit Event(std::function<void()> run) : run_(std::move(run)) {}
  void Run() override { run_(); }

 private:
  std::function<void()> run_;
};

TEST(SharedQueueTest, GivesItemsInTheirOrder) {
  SharedQueue<int> queue;
  for (const int item : {1, 2, 3}) queue.Push(item);
  std::vector<int> taken;
  for (int i = 0; i < 3; ++i) {
    int item = 0;
    queue.WaitAndPop(item);
    taken.push_back(item);
  }
  EXPECT_THAT(taken, ElementsAre(1, 2, 3));
}

TEST(SharedQueueTest, WaitsForAnItem) {
  SharedQueue<std::unique_ptr<int>> queue;
  auto taken = std::async(std::launch::async, [&] {
    std::unique_ptr<int> item;
    queue.WaitAndPop(item);
    return *item;
  });
  queue.Push(std::make_unique<int>(17));
  EXPECT_EQ(taken.get(), 17);
}

TEST(SharedQueueTest, LosesNothingBetweenManyThreads) {
  constexpr int kThreads = 4, kItems = 500;
  SharedQueue<int> queue;
  std::atomic<long> sum{0};
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (int k = 1; k <= kItems; ++k) queue.Push(k);
      });
      threads.emplace_back([&] {
        for (int k = 0; k < kItems; ++k) {
          int item = 0;
          queue.WaitAndPop(item);
          sum += item;
        }
      });
    }
  }
  EXPECT_EQ(sum, long{kThreads} * kItems * (kItems + 1) / 2);
}

TEST(ActiveObjectTest, EndsAtOnce) {
  const ActiveObject active;
}

TEST(ActiveObjectTest, RunsWhatWasPushedInOrderOnItsOwnThread) {
  std::vector<int> ran;
  std::thread::id thread;
  Event one([&] {
    ran.push_back(1);
    thread = std::this_thread::get_id();
  });
  Event two([&] { ran.push_back(2); });
  {
    ActiveObject active;
    for (int i = 0; i < 3; ++i) {
      active.Push(std::make_shared<Job>(&one));
      active.Push(std::make_shared<Job>(&two));
    }
  }
  EXPECT_THAT(ran, ElementsAre(1, 2, 1, 2, 1, 2));
  EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_NE(thread, std::thread::id());
}

TEST(ActiveObjectTest, IgnoresAJobWithoutEventAndANullJob) {
  int ran = 0;
  Event event([&] { ++ran; });
  {
    ActiveObject active;
    active.Push(std::make_shared<Job>(nullptr));
    active.Push(nullptr);
    active.Push(std::make_shared<Job>(&event));
  }
  EXPECT_EQ(ran, 1);
}

TEST(ActiveObjectTest, ReleasesAJobWhenItHasRun) {
  std::promise<void> second_runs;
  Event nothing([] {});
  auto job = std::make_shared<Job>(&nothing);
  const std::weak_ptr<Job> first = job;
  bool released = false;
  Event look([&] {
    released = first.expired();
    second_runs.set_value();
  });
  ActiveObject active;
  active.Push(std::move(job));
  active.Push(std::make_shared<Job>(&look));
  second_runs.get_future().wait();
  EXPECT_TRUE(released);
}

// The active object's own event is the stop job: what is queued behind it goes unrun.
TEST(ActiveObjectTest, DiscardsWhatIsBehindTheStopJob) {
  int ran = 0;
  std::weak_ptr<Job> late;
  Event event([&] { ++ran; });
  {
    ActiveObject active;
    std::promise<void> queued;
    // Both are behind it before the worker comes back for the next job, which is the stop job.
    Event push_behind([&] {
      active.Push(std::make_shared<Job>(&active));
      auto job = std::make_shared<Job>(&event);
      late = job;
      active.Push(std::move(job));
      queued.set_value();
    });
    active.Push(std::make_shared<Job>(&push_behind));
    queued.get_future().wait();
  }
  EXPECT_EQ(ran, 0);
  EXPECT_TRUE(late.expired());
}

TEST(JobTest, RunsItsEventOrNothing) {
  int ran = 0;
  Event event([&] { ++ran; });
  Job(&event).Run();
  Job(nullptr).Run();
  EXPECT_EQ(ran, 1);
  static_assert(std::has_virtual_destructor_v<Job>);
  static_assert(std::has_virtual_destructor_v<Job::IEvent>);
  static_assert(std::has_virtual_destructor_v<SharedQueue<int>>);
  static_assert(std::is_base_of_v<Job::IEvent, ActiveObject>);
}

class StubItems : public CommandTest {
 protected:
  StubItems() {
    rpc_port_parcel_create(&parcel_);
    Forget();
  }
  ~StubItems() override { rpc_port_parcel_destroy(parcel_); }

  rpc_port_parcel_h parcel_ = nullptr;
};

TEST_F(StubItems, CallbacksAreNumberedAndTagged) {
  const stub::KavrelAppApi::CallbackBase first(3, false);
  const stub::KavrelAppApi::CallbackBase second(3, true);
  EXPECT_EQ(second.GetSeqId(), first.GetSeqId() + 1);
  EXPECT_EQ(second.GetId(), 3);
  EXPECT_FALSE(first.IsOnce());
  EXPECT_TRUE(second.IsOnce());
  EXPECT_EQ(second.GetTag(), "3::" + std::to_string(second.GetSeqId()));
  static_assert(std::has_virtual_destructor_v<stub::KavrelAppApi::CallbackBase>);
}

// The two ends count apart.
TEST_F(StubItems, CallbacksAreNotCountedWithTheProxys) {
  struct ProxyCallback final : proxy::KavrelAppApi::CallbackBase {
    ProxyCallback() : CallbackBase(1, false) {}
    void OnCallbackReceived(rpc_port_parcel_h) override {}
  };
  const stub::KavrelAppApi::CallbackBase first(1, false);
  const ProxyCallback between;
  const stub::KavrelAppApi::CallbackBase second(1, false);
  EXPECT_EQ(second.GetSeqId(), first.GetSeqId() + 1);
}

TEST_F(StubItems, ACallbackHeaderTravelsInOrder) {
  const stub::KavrelAppApi::CallbackBase callback(3, true);
  EXPECT_EQ(parcel_ << callback, parcel_);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("parcel_write_int32(p1, 3)",
                          "parcel_write_int32(p1, " + std::to_string(callback.GetSeqId()) + ')',
                          "parcel_write_bool(p1, true)"));
  stub::KavrelAppApi::CallbackBase other(4, false);
  EXPECT_EQ(parcel_ >> other, parcel_);
  EXPECT_EQ(other.GetTag(), callback.GetTag());
  EXPECT_TRUE(other.IsOnce());
  EXPECT_THAT(TakeTimeline(), ElementsAre("parcel_read_int32(p1)", "parcel_read_int32(p1)",
                                          "parcel_read_bool(p1)"));
}

TEST_F(StubItems, AListTravelsAsItsCountAndElements) {
  using stub::operator<<;
  using stub::operator>>;
  const std::vector<std::string> texts = {"a", "", "c"};
  EXPECT_EQ(parcel_ << texts, parcel_);
  EXPECT_THAT(TakeTimeline(),
              ElementsAre("parcel_write_array_count(p1, 3)", "parcel_write_string(p1, \"a\")",
                          "parcel_write_string(p1, \"\")", "parcel_write_string(p1, \"c\")"));
  std::vector<std::string> read = {"replaced"};
  EXPECT_EQ(parcel_ >> read, parcel_);
  EXPECT_EQ(read, texts);
  parcel_ >> read;
  EXPECT_THAT(read, IsEmpty());
}

}  // namespace
}  // namespace kavrel_test
