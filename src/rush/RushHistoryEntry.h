#pragma once

// One session that has left the seat of Rush, and how. A plain value, safe on every thread.

#include <cstdint>

#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

struct RushHistoryEntry {
  /// `movedOn`: the table took the session away, without a decision of the person.
  enum class Outcome { played, skipped, done, snoozed, movedOn };

  std::int64_t id = 0;        ///< the identity within one run
  AgentSession session = {};  ///< as it was when it left
  Outcome outcome = Outcome::played;
  Date at = distantPast;

  friend bool operator==(const RushHistoryEntry&, const RushHistoryEntry&) = default;
};

}  // namespace tessivane
