#include "surfaces/QtMainQueue.h"

#include <QEventLoop>
#include <QTimer>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessivane {
namespace {

using std::chrono::steady_clock;
using testing::ElementsAre;

constexpr Seconds soon{0.005};
constexpr Seconds never{3600};

class QtMainQueueTest : public testing::Test {
 protected:
  // Runs the loop until `done` says so. A minute means that something hangs.
  template <typename Condition>
  static bool runUntil(Condition done) {
    const auto limit = steady_clock::now() + std::chrono::minutes(1);
    QEventLoop loop;
    // Wakes the loop to look at the clock.
    QTimer watch;
    watch.start(1000);
    while (!done() && steady_clock::now() < limit)
      loop.processEvents(QEventLoop::WaitForMoreEvents);
    return done();
  }
  // Runs all that has been posted so far.
  void drain() {
    bool drained = false;
    queue_->async([&] { drained = true; });
    EXPECT_TRUE(runUntil([&] { return drained; }));
  }

  std::optional<QtMainQueue> queue_{std::in_place};
};

TEST_F(QtMainQueueTest, RunsTasksInOrderOnItsThreadWhoeverPosts) {
  std::vector<int> seen;
  const auto own = std::this_thread::get_id();
  std::thread poster([&] {
    for (int i = 0; i < 3; ++i)
      queue_->async([&, i] {
        EXPECT_EQ(std::this_thread::get_id(), own);
        seen.push_back(i);
      });
  });
  poster.join();
  queue_->async([&] { seen.push_back(3); });
  EXPECT_TRUE(seen.empty());
  drain();
  EXPECT_THAT(seen, ElementsAre(0, 1, 2, 3));
}

TEST_F(QtMainQueueTest, TimersRunNoSoonerThanDueAndRepeatUntilLetGo) {
  const auto start = steady_clock::now();
  std::optional<steady_clock::time_point> ran;
  const TaskHandle once = queue_->after(soon, [&] { ran = steady_clock::now(); });
  int beats = 0;
  TaskHandle repeated;
  repeated = queue_->every(soon, Seconds{0}, [&] {
    if (++beats == 3)
      repeated.cancel();
  });
  ASSERT_TRUE(runUntil([&] { return ran && beats == 3; }));
  EXPECT_GE(Seconds(*ran - start), soon);

  // Long enough for several more beats.
  bool later = false;
  const TaskHandle wait = queue_->after(soon * 5, [&] { later = true; });
  ASSERT_TRUE(runUntil([&] { return later; }));
  EXPECT_EQ(beats, 3);
}

TEST_F(QtMainQueueTest, CancelledTimersNeitherRunNorKeepWhatTheyCaptured) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> kept = captured;
  bool ran = false;
  TaskHandle early = queue_->after(Seconds{0}, [&] { ran = true; });
  early.cancel();
  TaskHandle armed = queue_->after(soon, [&] { ran = true; });
  TaskHandle far = queue_->after(never, [captured = std::move(captured)] {});
  drain();
  armed.cancel();
  std::thread([&] { far.cancel(); }).join();
  EXPECT_TRUE(runUntil([&] { return kept.expired(); }));

  bool later = false;
  const TaskHandle wait = queue_->after(soon * 5, [&] { later = true; });
  EXPECT_TRUE(runUntil([&] { return later; }));
  EXPECT_FALSE(ran);
}

TEST_F(QtMainQueueTest, HandlesOutliveTheQueue) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> kept = captured;
  TaskHandle handle = queue_->every(never, never, [captured = std::move(captured)] {});
  drain();
  queue_.reset();
  EXPECT_TRUE(kept.expired());
  handle.cancel();
}

}  // namespace
}  // namespace tessivane
