#pragma once

// Tells of changes below directories. A record of one closure: the live one is `inotifyEvents()` in
// platform/linux, tests fill in their own.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/TaskQueue.h"

namespace tessivane {

struct FileEvents {
  /// `changed`: files and directories that were written, made, removed or moved, each once, under
  /// the paths as they were registered. `rescan`: events were lost or cannot be told one by one, so
  /// that everything below may have changed.
  using Handler = std::function<void(const std::vector<std::string>& changed, bool rescan)>;

  /// Watches the directories with all that is below them, present and future; one that does not
  /// exist is watched from when it comes into being. Calls `handler` as tasks of `queue`: what
  /// changed within `latency` after the first change comes in one call. Ends when the handle goes,
  /// on any thread; no call begins after that. The queue outlives the handle. Null when watching is
  /// not possible at all.
  std::function<std::shared_ptr<void>(
      const std::vector<std::string>& paths, Seconds latency, TaskQueue& queue, Handler handler)>
      watch = [](const std::vector<std::string>&, Seconds, TaskQueue&, const Handler&) {
        return std::shared_ptr<void>();
      };
};

}  // namespace tessivane
