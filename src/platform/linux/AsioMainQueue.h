#pragma once

// The task queue of the main thread when no desktop's loop runs there.

#include <memory>

#include "platform/TaskQueue.h"

namespace tessivane {

class AsioMainQueue final : public TaskQueue {
 public:
  AsioMainQueue();
  /// Drops the tasks that wait. Not from within a task.
  AsioMainQueue(const AsioMainQueue&) = delete;
  AsioMainQueue& operator=(const AsioMainQueue&) = delete;
  ~AsioMainQueue() override;

  void async(Task task) override;
  [[nodiscard]] TaskHandle after(Seconds delay, Task task) override;
  [[nodiscard]] TaskHandle every(Seconds interval, Seconds tolerance, Task task) override;

  /// Runs the tasks on the calling thread, which is the main thread from then on, until `stop`.
  void run();

  /// Ends `run` after the task that runs now, for good: a `run` yet to come returns at once. Safe
  /// on every thread.
  void stop();

 private:
  std::shared_ptr<class AsioLoop> loop_;
};

}  // namespace tessivane
