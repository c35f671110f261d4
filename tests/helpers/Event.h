#pragma once

// Something that a test waits for while another thread brings it about. The bound is generous: it
// only ends a test that would otherwise hang.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tessivane {

class Event final {
 public:
  void happened() {
    const std::lock_guard lock(mutex_);
    happened_ = true;
    // Under the lock: the waiting thread may destroy this as soon as it is free.
    condition_.notify_all();
  }

  /// True once it has happened, false when it did not for a minute.
  [[nodiscard]] bool wait() {
    std::unique_lock lock(mutex_);
    return condition_.wait_for(lock, std::chrono::minutes{1}, [this] { return happened_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool happened_ = false;
};

}  // namespace tessivane
