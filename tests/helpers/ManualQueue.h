#pragma once

// A queue whose tasks and timers run when the test says so, in order. For one thread: everything,
// posting included, happens on the test's. Several queues may share one clock. Tolerance is
// recorded but not used: a timer runs at the earliest time at which it may.

#include <chrono>
#include <cstddef>
#include <deque>
#include <list>
#include <memory>
#include <vector>

#include "helpers/ManualClock.h"
#include "platform/TaskQueue.h"

namespace tessivane {

class ManualQueue final : public TaskQueue {
 public:
  /// A timer that is waiting.
  struct Timer {
    /// How long from now until it runs; zero when it is due.
    Seconds remaining{0};
    /// Zero for a task that runs once.
    Seconds interval{0};
    Seconds tolerance{0};
  };

  /// The clock must outlive the queue.
  explicit ManualQueue(ManualClock& clock);
  ManualQueue(const ManualQueue&) = delete;
  ManualQueue& operator=(const ManualQueue&) = delete;
  ~ManualQueue() override;

  void async(Task task) override;
  [[nodiscard]] TaskHandle after(Seconds delay, Task task) override;
  [[nodiscard]] TaskHandle every(Seconds interval, Seconds tolerance, Task task) override;

  /// Runs what waits and what is due by now, and what that posts, until nothing is left to do.
  /// Returns how many tasks ran. Throws when they seem never to end.
  ///
  /// Timers that became due while only the clock moved are late, as after a stall: each runs once.
  std::size_t runPending();

  /// Runs everything that happens in this stretch of time, each timer at its own instant, while the
  /// clock moves along. Returns how many tasks ran.
  std::size_t advance(Seconds duration);

  /// Tasks of `async` that wait to run.
  std::size_t pendingCount() const { return pending_.size(); }
  /// The timers that wait, in the order in which they will run.
  std::vector<Timer> timers() const;

 private:
  struct Scheduled;
  using Instant = std::chrono::microseconds;

  TaskHandle schedule(Instant delay, Instant interval, Seconds tolerance, Task task);
  std::shared_ptr<Scheduled> earliest() const;
  void runTimer(const std::shared_ptr<Scheduled>& timer);

  ManualClock& clock_;
  std::deque<Task> pending_;
  // In the order in which they were scheduled. Handles know them weakly.
  std::shared_ptr<std::list<std::shared_ptr<Scheduled>>> timers_;
};

}  // namespace tessivane
