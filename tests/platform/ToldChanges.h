#pragma once

// What a handler of file events was told. The queue's thread fills it, the test's waits.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/FileEvents.h"

namespace tessivane {

class ToldChanges final {
 public:
  FileEvents::Handler handler() {
    return [this](const std::vector<std::string>& changed, bool rescan) {
      const std::lock_guard lock(mutex_);
      calls_.push_back(changed);
      for (const std::string& path : changed)
        paths_.insert(path);
      rescans_ += rescan ? 1 : 0;
      condition_.notify_all();
    };
  }

  /// False when it was not told for a minute. Both count what was told since the last `take`.
  [[nodiscard]] bool waitForPath(const std::string& path) {
    return waitFor([&] { return paths_.contains(path); });
  }
  [[nodiscard]] bool waitForRescan() {
    return waitFor([&] { return rescans_ > 0; });
  }
  /// The paths since the last time.
  std::set<std::string> take() {
    const std::lock_guard lock(mutex_);
    rescans_ = 0;
    return std::exchange(paths_, {});
  }
  /// The paths of each call, from the beginning.
  std::vector<std::vector<std::string>> calls() {
    const std::lock_guard lock(mutex_);
    return calls_;
  }

 private:
  bool waitFor(const std::function<bool()>& isSo) {
    std::unique_lock lock(mutex_);
    return condition_.wait_for(lock, std::chrono::minutes{1}, isSo);
  }

  std::mutex mutex_;
  std::condition_variable condition_;
  std::set<std::string> paths_;
  std::vector<std::vector<std::string>> calls_;
  int rescans_ = 0;
};

}  // namespace tessivane
