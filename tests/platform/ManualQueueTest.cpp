#include "helpers/ManualQueue.h"

#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessivane {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;

class ManualQueueTest : public testing::Test {
 protected:
  // A task that writes its name and how long the test has been running.
  TaskQueue::Task note(const std::string& name) {
    return [this, name] {
      const auto time = std::chrono::floor<seconds>(clock_.uptime()).count();
      diary_.push_back(name + "@" + std::to_string(time));
    };
  }

  ManualClock clock_;
  ManualQueue queue_{clock_};
  std::vector<std::string> diary_;
};

TEST_F(ManualQueueTest, RunsTasksInOrderAndWhatTheyPostAfterThem) {
  queue_.async([this] {
    note("first")();
    queue_.async(note("posted"));
  });
  queue_.async(note("second"));
  EXPECT_THAT(diary_, ElementsAre());

  EXPECT_EQ(queue_.runPending(), 3U);
  EXPECT_THAT(diary_, ElementsAre("first@0", "second@0", "posted@0"));
}

TEST_F(ManualQueueTest, RunsTimersAtTheirOwnInstants) {
  const Date start = clock_.now();
  const TaskHandle late = queue_.after(seconds{5}, note("late"));
  const TaskHandle tick = queue_.every(seconds{2}, seconds{1}, note("tick"));
  const TaskHandle same = queue_.after(seconds{4}, note("same instant, younger"));
  const TaskHandle chain = queue_.after(seconds{1}, [this] { queue_.async(note("posted")); });

  EXPECT_EQ(queue_.advance(seconds{6}), 7U);
  EXPECT_THAT(
      diary_,
      ElementsAre("posted@1", "tick@2", "tick@4", "same instant, younger@4", "late@5", "tick@6"));
  EXPECT_EQ(clock_.now() - start, seconds{6});
}

TEST_F(ManualQueueTest, LateTimersRunOnceAndKeepTheirBeat) {
  const TaskHandle tick = queue_.every(seconds{10}, seconds{0}, note("tick"));
  clock_.advance(seconds{35});
  queue_.runPending();
  queue_.advance(seconds{10});
  EXPECT_THAT(diary_, ElementsAre("tick@35", "tick@40"));
}

TEST_F(ManualQueueTest, SettingTheDateMovesNoTimer) {
  const TaskHandle tick = queue_.every(seconds{10}, seconds{0}, note("tick"));
  for (const auto jump : {std::chrono::hours{5}, std::chrono::hours{-10}}) {
    clock_.set(clock_.now() + jump);
    EXPECT_EQ(queue_.runPending(), 0U);
    EXPECT_EQ(queue_.advance(seconds{10}), 1U);
  }
}

TEST_F(ManualQueueTest, CancelledTasksDoNotRun) {
  TaskHandle own;
  TaskHandle sameInstant;
  own = queue_.every(seconds{1}, seconds{0}, [&] {
    note("once")();
    sameInstant.cancel();
    own.cancel();
  });
  sameInstant = queue_.after(seconds{1}, note("never"));
  queue_.advance(seconds{10});
  EXPECT_THAT(diary_, ElementsAre("once@1"));
  EXPECT_TRUE(queue_.timers().empty());
}

TEST_F(ManualQueueTest, HandlesMayOutliveTheQueue) {
  TaskHandle handle;
  {
    ManualQueue shortLived(clock_);
    handle = shortLived.after(seconds{1}, note("never"));
  }
  handle.cancel();
  EXPECT_THAT(diary_, ElementsAre());
}

TEST_F(ManualQueueTest, ShowsWhatWaits) {
  queue_.async([] {});
  const TaskHandle once = queue_.after(seconds{9}, [] {});
  const TaskHandle tick = queue_.every(seconds{5}, seconds{1}, [] {});
  clock_.advance(seconds{2});

  EXPECT_EQ(queue_.pendingCount(), 1U);
  const auto timers = queue_.timers();
  ASSERT_EQ(timers.size(), 2U);
  EXPECT_EQ(timers[0].remaining, seconds{3});
  EXPECT_EQ(timers[0].interval, seconds{5});
  EXPECT_EQ(timers[0].tolerance, seconds{1});
  EXPECT_EQ(timers[1].remaining, seconds{7});
  EXPECT_EQ(timers[1].interval, seconds{0});
}

TEST_F(ManualQueueTest, TasksWithoutEndAreAFailure) {
  std::function<void()> again = [&] { queue_.async(again); };
  again();
  EXPECT_THROW(queue_.runPending(), std::runtime_error);
}

}  // namespace
}  // namespace tessivane
