#include "platform/MemoryUserDefaults.h"

#include <utility>

#include "platform/DefaultsNotifier.h"

namespace tessivane {

MemoryUserDefaults::MemoryUserDefaults(TaskQueue& queue)
    : notifier_(std::make_shared<DefaultsNotifier>(queue)) {}

MemoryUserDefaults::~MemoryUserDefaults() = default;

std::optional<DefaultsValue> MemoryUserDefaults::value(std::string_view key) const {
  const MutexLock lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end())
    return std::nullopt;
  return found->second;
}

void MemoryUserDefaults::set(std::string_view key, DefaultsValue value) {
  {
    const MutexLock lock(mutex_);
    const auto found = values_.find(key);
    if (found != values_.end() && found->second == value)
      return;
    values_.insert_or_assign(std::string(key), std::move(value));
  }
  notifier_->valuesChanged();
}

void MemoryUserDefaults::remove(std::string_view key) {
  {
    const MutexLock lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end())
      return;
    values_.erase(found);
  }
  notifier_->valuesChanged();
}

Subscription MemoryUserDefaults::subscribe(std::function<void()> changed) {
  return notifier_->subscribe(std::move(changed));
}

}  // namespace tessivane
