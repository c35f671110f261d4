#pragma once

// A source of sessions. Implementations are called inside one discovery pass at a time, on the
// refresh queue, and are owned by `SessionDiscovery`. They never throw: a source that fails yields
// what it has and keeps the reason for `SessionDiscovery::problems`.

#include <vector>

#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

class ProjectRootResolver;

class SessionProvider {
 public:
  SessionProvider() = default;
  SessionProvider(const SessionProvider&) = delete;
  SessionProvider& operator=(const SessionProvider&) = delete;
  virtual ~SessionProvider() = default;

  /// The sessions with activity at or after `since`, in the source's own order. `roots` maps
  /// working directories to projects.
  virtual std::vector<AgentSession> sessions(Date since, ProjectRootResolver& roots) = 0;
};

}  // namespace tessivane
