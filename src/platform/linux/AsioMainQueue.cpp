#include "platform/linux/AsioMainQueue.h"

#include <utility>

#include "platform/linux/AsioLoop.h"

namespace tessivane {

AsioMainQueue::AsioMainQueue() : loop_(AsioLoop::make()) {}

AsioMainQueue::~AsioMainQueue() = default;

void AsioMainQueue::async(Task task) {
  loop_->async(std::move(task));
}

TaskHandle AsioMainQueue::after(Seconds delay, Task task) {
  return loop_->after(delay, std::move(task));
}

TaskHandle AsioMainQueue::every(Seconds interval, Seconds tolerance, Task task) {
  return loop_->every(interval, tolerance, std::move(task));
}

void AsioMainQueue::run() {
  loop_->run();
}

void AsioMainQueue::stop() {
  loop_->stop();
}

}  // namespace tessivane
