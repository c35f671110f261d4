#pragma once

// A task queue with a thread of its own.
//
// Destroying it drops the tasks that wait, waits for the one that runs, and ends the thread. It may
// be destroyed from one of its own tasks too; that task is then the last one.

#include <memory>
#include <string>

#include "platform/TaskQueue.h"

namespace tessivane {

class SerialQueue final : public TaskQueue {
 public:
  /// `name` as in "tessivane.refresh"; tools that list threads show its first 15 characters.
  explicit SerialQueue(const std::string& name);
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;
  ~SerialQueue() override;

  void async(Task task) override;
  [[nodiscard]] TaskHandle after(Seconds delay, Task task) override;
  [[nodiscard]] TaskHandle every(Seconds interval, Seconds tolerance, Task task) override;

 private:
  std::unique_ptr<class AsioThread> thread_;
};

}  // namespace tessivane
