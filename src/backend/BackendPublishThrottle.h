#pragma once

// How long the next batch for the feed must wait, so that batches keep a distance. A plain value of
// the activity store.

#include <algorithm>

#include "support/Date.h"

namespace tessivane {

struct BackendPublishThrottle {
  Seconds interval = Seconds(1);
  Date lastPublish = distantPast;

  /// Between nothing and `interval`: a clock that was set back holds nothing up for longer.
  Seconds wait(Date now) const {
    return std::clamp(interval - elapsed(lastPublish, now), Seconds(0), interval);
  }
};

}  // namespace tessivane
