#pragma once

// What every event that comes of a session has in common. Pure functions, safe on every thread.

#include <string>

#include "activity/ActivityEvent.h"
#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

struct BackendSessionEvent {
  /// How young something must be when the program learns of it to count as new.
  static constexpr std::chrono::seconds freshness{120};

  /// An event with the session's project, title and agents, its own title being the session's. It
  /// has no id, ref, detail or branch yet, and counts as seen long ago.
  static ActivityEvent make(const AgentSession& session, ActivityKind kind, Date date);

  /// A `started` event with that ref, whose start is `start` or, if that is still to come, `now`.
  static ActivityEvent started(const AgentSession& session, std::string ref, Date start, Date now);

  /// `now` for what is fresh, else the distant past.
  static Date firstSeen(Date date, Date now);
};

}  // namespace tessivane
