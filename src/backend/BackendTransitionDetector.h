#pragma once

// Finds out, by comparing each session list with the one before, which sessions have begun to wait
// for the person and which have finished their turn. Owned by the activity store; lists must be
// given in the order in which they were made, one at a time.

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "activity/ActivityEvent.h"
#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

class BackendTransitionDetector final {
 public:
  /// A session that is new to the list and has waited for longer is old news.
  static constexpr std::chrono::seconds newsLimit{600};

  /// What has happened since the list before; nothing for the first. Each event has the id that its
  /// row in the event database gives it.
  std::vector<ActivityEvent> diff(const std::vector<AgentSession>& sessions, Date now);

 private:
  using Statuses = std::unordered_map<std::string, SessionStatus>;  // by session key

  std::optional<Statuses> previous_;
};

}  // namespace tessivane
