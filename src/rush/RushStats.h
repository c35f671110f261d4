#pragma once

// What the person has achieved since Rush was started. A plain value, safe on every thread.

#include <cstdint>

#include "support/Date.h"

namespace tessivane {

struct RushStats {
  std::int64_t played = 0;   ///< replied to, so that the agent works again
  std::int64_t skipped = 0;  ///< sent to the back of the queue
  std::int64_t done = 0;     ///< put away until something new happens
  std::int64_t snoozed = 0;  ///< put away for a while
  Date startedAt = distantPast;

  friend bool operator==(const RushStats&, const RushStats&) = default;
};

}  // namespace tessivane
