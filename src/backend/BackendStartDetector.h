#pragma once

// Tells once for each session that it has started. Owned by the activity store and used on its
// queue. It forgets with the process; the event database knows what it has.

#include <string>
#include <unordered_set>
#include <vector>

#include "activity/ActivityEvent.h"
#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

class BackendStartDetector final {
 public:
  /// The starts, within the window of the event database, of sessions not seen before. A session
  /// whose start is not known yet is looked at again; scheduled jobs are left out.
  std::vector<ActivityEvent> events(const std::vector<AgentSession>& sessions, Date now);

 private:
  std::unordered_set<std::string> seen_;  // session keys
};

}  // namespace tessivane
