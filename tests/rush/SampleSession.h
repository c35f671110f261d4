#pragma once

// Sessions for the tests of Rush: whatever a test does not name is the same for all.

#include <string>

#include "sessions/AgentSession.h"

namespace tessivane {

inline const Date noon = *isoDate("2026-10-05T12:00:00Z");

/// The session "claude:{name}" of the project "/{name}", active `age` before noon.
inline AgentSession sample(const std::string& name,
                           SessionStatus status = SessionStatus::needsYou,
                           Seconds age = Seconds(60)) {
  return {.agent = Agent::claude,
          .nativeID = name,
          .projectPath = "/" + name,
          .activity = noon - std::chrono::duration_cast<Date::duration>(age),
          .status = status};
}

}  // namespace tessivane
