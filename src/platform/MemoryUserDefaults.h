#pragma once

// Settings that last as long as the object: for tests, and for a run that must leave no trace. Safe
// as its base class says; the queue must outlive it.

#include <memory>

#include "platform/TaskQueue.h"
#include "platform/UserDefaults.h"
#include "support/Mutex.h"

namespace tessivane {

class MemoryUserDefaults final : public UserDefaults {
 public:
  explicit MemoryUserDefaults(TaskQueue& queue);
  MemoryUserDefaults(const MemoryUserDefaults&) = delete;
  MemoryUserDefaults& operator=(const MemoryUserDefaults&) = delete;
  ~MemoryUserDefaults() override;

  std::optional<DefaultsValue> value(std::string_view key) const override;
  void set(std::string_view key, DefaultsValue value) override;
  void remove(std::string_view key) override;
  Subscription subscribe(std::function<void()> changed) override;

 private:
  mutable Mutex mutex_;
  DefaultsDictionary values_ GUARDED_BY(mutex_);
  std::shared_ptr<class DefaultsNotifier> notifier_;
};

}  // namespace tessivane
