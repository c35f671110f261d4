#pragma once

// A producer of what happened, for the feed. Owned by the feed and started by it, on the main
// thread.

#include <functional>
#include <vector>

#include "activity/ActivityEvent.h"

namespace tessivane {

class ActivitySource {
 public:
  using BatchHandler = std::function<void(std::vector<ActivityEvent>, std::vector<EditBucket>)>;

  ActivitySource() = default;
  ActivitySource(const ActivitySource&) = delete;
  ActivitySource& operator=(const ActivitySource&) = delete;
  virtual ~ActivitySource() = default;

  /// Begins to deliver. The handler may be called on any thread, any number of times; a later batch
  /// may repeat or correct what an earlier one said.
  virtual void start(BatchHandler onBatch) = 0;
  virtual void stop() = 0;
};

}  // namespace tessivane
