#pragma once

// Keeps some directories watched for as long as it lives. On the activity queue, owned by the
// activity store.

#include <memory>
#include <string>
#include <vector>

#include "platform/FileEvents.h"
#include "platform/TaskQueue.h"
#include "support/Date.h"

namespace tessivane {

class BackendFSWatcher final {
 public:
  /// How long changes gather before they are told.
  static constexpr Seconds latency{1};

  /// Watches nothing.
  BackendFSWatcher() = default;
  /// Calls `handler` as tasks of `queue`, see `FileEvents`.
  BackendFSWatcher(const FileEvents& events,
                   const std::vector<std::string>& paths,
                   TaskQueue& queue,
                   FileEvents::Handler handler);

  bool isWatching() const { return stream_ != nullptr; }

 private:
  std::shared_ptr<void> stream_;
};

}  // namespace tessivane
