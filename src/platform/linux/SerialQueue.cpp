#include "platform/linux/SerialQueue.h"

#include <utility>

#include "platform/linux/AsioLoop.h"

namespace tessivane {

SerialQueue::SerialQueue(const std::string& name) : thread_(std::make_unique<AsioThread>(name)) {}

SerialQueue::~SerialQueue() {
  // While the member still stands: the last task may post.
  thread_->stop();
}

void SerialQueue::async(Task task) {
  thread_->loop().async(std::move(task));
}

TaskHandle SerialQueue::after(Seconds delay, Task task) {
  return thread_->loop().after(delay, std::move(task));
}

TaskHandle SerialQueue::every(Seconds interval, Seconds tolerance, Task task) {
  return thread_->loop().every(interval, tolerance, std::move(task));
}

}  // namespace tessivane
