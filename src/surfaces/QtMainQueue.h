#pragma once

// The task queue of the main thread when Qt's loop runs there. Made after the application object
// and destroyed before it, on the main thread.

#include <memory>

#include "platform/TaskQueue.h"

namespace tessivane {

class QtMainQueue final : public TaskQueue {
 public:
  QtMainQueue();
  /// Drops the tasks that wait. Not from within a task.
  QtMainQueue(const QtMainQueue&) = delete;
  QtMainQueue& operator=(const QtMainQueue&) = delete;
  ~QtMainQueue() override;

  void async(Task task) override;
  [[nodiscard]] TaskHandle after(Seconds delay, Task task) override;
  [[nodiscard]] TaskHandle every(Seconds interval, Seconds tolerance, Task task) override;

 private:
  struct Timer;
  class Loop;

  std::shared_ptr<Loop> loop_;
};

}  // namespace tessivane
