// The live queues, against real threads and timers.

#include "platform/TaskQueue.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/Event.h"
#include "platform/TimerSchedule.h"
#include "platform/linux/AsioMainQueue.h"
#include "platform/linux/SerialQueue.h"

namespace tessivane {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;

// Both live queues run the same loop, here on a thread of its own.
class TaskQueueTest : public testing::Test {
 protected:
  // Waits until everything posted so far has run.
  [[nodiscard]] bool drain() {
    Event drained;
    queue_->async([&] { drained.happened(); });
    return drained.wait();
  }

  std::unique_ptr<SerialQueue> queue_ = std::make_unique<SerialQueue>("tessivane.refresh");
};

TEST_F(TaskQueueTest, KeepsTheOrderOfEachThreadThatPosts) {
  constexpr int tasks = 1'000;
  std::array<std::vector<int>, 4> seen;
  std::vector<std::thread> posters;
  posters.reserve(seen.size());
  for (auto& numbers : seen) {
    posters.emplace_back([&] {
      for (int i = 0; i < tasks; ++i)
        queue_->async([&numbers, i] { numbers.push_back(i); });
    });
  }
  for (auto& poster : posters)
    poster.join();
  ASSERT_TRUE(drain());
  for (const auto& numbers : seen) {
    ASSERT_EQ(numbers.size(), tasks);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
  }
}

TEST_F(TaskQueueTest, WhatARunningTaskPostsIsNotOvertaken) {
  std::vector<std::string> order;
  Event posted;
  Event postedToo;
  queue_->async([&] {
    queue_->async([&] { order.emplace_back("from within"); });
    posted.happened();
    EXPECT_TRUE(postedToo.wait());
  });
  ASSERT_TRUE(posted.wait());
  queue_->async([&] { order.emplace_back("later, from elsewhere"); });
  postedToo.happened();
  ASSERT_TRUE(drain());
  EXPECT_THAT(order, ElementsAre("from within", "later, from elsewhere"));
}

TEST_F(TaskQueueTest, DelayedTasksRunByTime) {
  const MonotonicTime start = std::chrono::steady_clock::now();
  std::vector<std::string> order;
  Event done;
  const TaskHandle last = queue_->after(milliseconds{30}, [&] {
    order.emplace_back("last");
    done.happened();
  });
  const TaskHandle first = queue_->after(milliseconds{10}, [&] { order.emplace_back("first"); });
  const TaskHandle past = queue_->after(hours{-1}, [&] { order.emplace_back("past"); });
  const TaskHandle never =
      queue_->after(Seconds{std::numeric_limits<double>::infinity()}, [&] { order.clear(); });
  ASSERT_TRUE(done.wait());
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds{30});
  EXPECT_THAT(order, ElementsAre("past", "first", "last"));
}

TEST_F(TaskQueueTest, RepeatsWithoutCatchingUp) {
  constexpr milliseconds interval{5};
  MonotonicTime resumed;
  std::vector<MonotonicTime> runs;
  Event done;
  TaskHandle timer = queue_->every(interval, milliseconds{1}, [&] {
    if (runs.empty()) {
      // Stalls until ten more are due.
      std::this_thread::sleep_for(10 * interval);
      resumed = std::chrono::steady_clock::now();
    }
    runs.push_back(std::chrono::steady_clock::now());
    if (runs.size() == 6)
      done.happened();
  });
  ASSERT_TRUE(done.wait());
  timer.cancel();
  ASSERT_TRUE(drain());
  for (std::size_t i = 2; i < 6; ++i)
    EXPECT_GE(runs[i] - resumed, interval * (i - 1)) << "run " << i;
}

TEST_F(TaskQueueTest, ReleasedTasksDoNotStartAndAreLetGo) {
  const auto captured = std::make_shared<int>(0);
  TaskHandle soon = queue_->after(milliseconds{1}, [captured] { ++*captured; });
  TaskHandle later = queue_->after(hours{1}, [captured] { ++*captured; });
  TaskHandle repeated = queue_->every(hours{1}, hours{0}, [captured] { ++*captured; });
  // On the queue's own thread nothing can come between.
  queue_->async([&] {
    soon.cancel();
    later = TaskHandle();
    const TaskHandle taken = std::move(repeated);
  });
  ASSERT_TRUE(drain());
  Event pastAll;
  const TaskHandle sentinel = queue_->after(milliseconds{2}, [&] { pastAll.happened(); });
  ASSERT_TRUE(pastAll.wait());
  ASSERT_TRUE(drain());
  EXPECT_EQ(captured.use_count(), 1);
  EXPECT_LE(*captured, 1) << "only the short one may have run before";
}

TEST_F(TaskQueueTest, ATaskMayReleaseItsOwnHandle) {
  std::optional<TaskHandle> repeated;
  Event scheduled;
  Event done;
  int runs = 0;
  std::weak_ptr<std::string> captured;
  {
    const auto text = std::make_shared<std::string>("still there");
    captured = text;
    repeated = queue_->every(milliseconds{1}, milliseconds{1}, [&, text] {
      EXPECT_TRUE(scheduled.wait());
      ++runs;
      repeated.reset();
      EXPECT_EQ(*text, "still there");
      done.happened();
    });
  }
  scheduled.happened();
  ASSERT_TRUE(done.wait());
  Event pastNext;
  const TaskHandle sentinel = queue_->after(milliseconds{5}, [&] { pastNext.happened(); });
  ASSERT_TRUE(pastNext.wait());
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(captured.expired());
}

// What the thread sanitizer is for: timers that fire while other threads take their handles away,
// and handles that go while or after the queue goes.
TEST_F(TaskQueueTest, HandlesMayGoOnAnyThreadAtAnyTime) {
  std::atomic<int> runs = 0;
  for (int round = 0; round < 20; ++round) {
    std::vector<std::thread> holders;
    holders.reserve(3);
    for (int i = 0; i < 3; ++i) {
      holders.emplace_back([&] {
        for (int j = 0; j < 20; ++j) {
          TaskHandle first = queue_->every(Seconds{0}, Seconds{0}, [&] { ++runs; });
          const TaskHandle second = queue_->after(Seconds{0}, [&] { ++runs; });
          first = queue_->after(Seconds{0}, [&] { ++runs; });
        }
      });
    }
    for (auto& holder : holders)
      holder.join();

    std::array<TaskHandle, 2> left = {queue_->every(Seconds{0}, Seconds{0}, [&] { ++runs; }),
                                      queue_->after(hours{1}, [&] { ++runs; })};
    std::thread releaser([&] { left[0].cancel(); });
    queue_ = std::make_unique<SerialQueue>("tessivane.refresh");
    releaser.join();
    left[1].cancel();
  }
}

TEST(SerialQueueTest, EndsAfterTheRunningTask) {
  Event started;
  Event proceed;
  std::atomic<bool> finished = false;
  const auto captured = std::make_shared<int>(0);
  auto queue = std::make_unique<SerialQueue>("test");
  queue->async([&, address = queue.get()] {
    started.happened();
    EXPECT_TRUE(proceed.wait());
    // Posting while the queue ends is allowed.
    address->async([captured] {});
    finished = true;
  });
  const TaskHandle timer = queue->after(hours{1}, [captured] {});
  ASSERT_TRUE(started.wait());
  std::thread other([&] { proceed.happened(); });
  queue.reset();
  EXPECT_TRUE(finished);
  EXPECT_EQ(captured.use_count(), 1) << "what waited was not let go";
  other.join();
}

TEST(SerialQueueTest, MayGoInItsOwnTaskWhichIsThenTheLast) {
  Event posted;
  Event droppedEvent;
  std::atomic<bool> ran = false;
  auto owner = std::make_shared<SerialQueue>("tessivane.refresh");
  owner->async([owner, &posted] { EXPECT_TRUE(posted.wait()); });
  {
    const std::shared_ptr<int> dropped(new int(0), [&](const int* number) {
      delete number;
      droppedEvent.happened();
    });
    owner->async([&ran, dropped] { ran = true; });
  }
  owner.reset();
  posted.happened();
  EXPECT_TRUE(droppedEvent.wait());
  EXPECT_FALSE(ran);
}

TEST(SerialQueueTest, NamesItsThread) {
  SerialQueue queue("tessivane.refresh");
  std::array<char, 64> name{};
  Event done;
  queue.async([&] {
    ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    done.happened();
  });
  ASSERT_TRUE(done.wait());
  EXPECT_STREQ(name.data(), "tessivane.refre");
}

TEST(AsioMainQueueTest, RunsOnTheCallingThreadUntilStopped) {
  AsioMainQueue queue;
  std::vector<std::string> order;
  const auto caller = std::this_thread::get_id();
  SerialQueue other("other");
  TaskHandle ticks;
  int runs = 0;
  // Idle at first: what comes from elsewhere must still be awaited.
  const TaskHandle later = other.after(milliseconds{10}, [&] {
    queue.async([&] {
      EXPECT_EQ(std::this_thread::get_id(), caller);
      order.emplace_back("task");
      ticks = queue.every(milliseconds{1}, milliseconds{0}, [&] {
        if (++runs != 2)
          return;
        queue.stop();
        queue.async([&] { order.emplace_back("after stop"); });
      });
    });
  });
  queue.run();
  EXPECT_THAT(order, ElementsAre("task"));
  // A stop that comes before the run is not lost.
  queue.run();
  EXPECT_THAT(order, ElementsAre("task"));
}

}  // namespace
}  // namespace tessivane
