#pragma once

// Tells the observers of settings about changes, on a queue. Held by the settings as a shared
// pointer, so that a task which comes too late finds nobody. The queue must outlive it.

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "platform/TaskQueue.h"
#include "support/Observers.h"

namespace tessivane {

class DefaultsNotifier final : public std::enable_shared_from_this<DefaultsNotifier> {
 public:
  explicit DefaultsNotifier(TaskQueue& queue) : queue_(queue) {}

  /// Any thread. Changes that gather before the queue gets there are told once.
  void valuesChanged() {
    if (announced_.exchange(true))
      return;
    queue_.async([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (self == nullptr)
        return;
      // Before the call: an observer that looked before a further change must be told again.
      self->announced_ = false;
      self->observers_.notify();
    });
  }

  /// The queue's thread.
  Subscription subscribe(std::function<void()> changed) {
    return observers_.subscribe(std::move(changed));
  }

 private:
  TaskQueue& queue_;
  std::atomic<bool> announced_ = false;
  Observers<> observers_;
};

}  // namespace tessivane
