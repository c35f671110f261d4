#pragma once

// Where work runs: one task after the other, in order, on one thread. The live queues are in
// platform/linux (a worker thread, the main thread without a desktop) and in surfaces/ (the main
// thread of the desktop); tests use a queue that runs by hand.
//
// The operations are safe on every thread, the tasks themselves included. A task must not throw.
// Tasks that outlive the call that posted them hold their owner weakly.

#include <functional>
#include <utility>

#include "support/Date.h"

namespace tessivane {

/// Keeps a delayed or repeated task scheduled; letting it go cancels. It may be released on any
/// thread, from within its own task, and after the queue has gone.
///
/// Once released the task does not start any more. A task that had already begun, on another
/// thread, runs to its end: the release does not wait for it.
class [[nodiscard]] TaskHandle final {
 public:
  TaskHandle() = default;
  /// For queues: `cancel` is called once, when the handle goes.
  explicit TaskHandle(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  TaskHandle(TaskHandle&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  TaskHandle& operator=(TaskHandle&& other) noexcept {
    std::swap(cancel_, other.cancel_);
    other.cancel();
    return *this;
  }
  TaskHandle(const TaskHandle&) = delete;
  TaskHandle& operator=(const TaskHandle&) = delete;
  ~TaskHandle() { cancel(); }

  /// Cancels now. Also safe when nothing is scheduled any more.
  void cancel() {
    if (const auto cancel = std::exchange(cancel_, nullptr))
      cancel();
  }

  /// False when empty: never filled, moved from, or cancelled. A task that has run leaves its
  /// handle as it was.
  explicit operator bool() const { return cancel_ != nullptr; }

 private:
  std::function<void()> cancel_;
};

class TaskQueue {
 public:
  using Task = std::function<void()>;

  TaskQueue() = default;
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;
  virtual ~TaskQueue() = default;

  /// Runs the task after those already waiting.
  virtual void async(Task task) = 0;

  /// Runs the task once, `delay` from now, measured by a clock that is never set and that stands
  /// still while the machine is suspended. A delay of zero or less means: as soon as may be.
  [[nodiscard]] virtual TaskHandle after(Seconds delay, Task task) = 0;

  /// Runs the task every `interval`, first one interval from now, each time up to `tolerance` later
  /// so that timers which are due close to each other wake the machine once. Neither lateness nor
  /// tolerance adds up, and what was missed in a stall is not caught up: the task runs once, then
  /// at its next regular time. An interval below a millisecond counts as one.
  [[nodiscard]] virtual TaskHandle every(Seconds interval, Seconds tolerance, Task task) = 0;
};

}  // namespace tessivane
