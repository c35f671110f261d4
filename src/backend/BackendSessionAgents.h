#pragma once

// Which family of models does the work in a session. Pure, safe on every thread.

#include <optional>

#include "sessions/AgentSession.h"

namespace tessivane {

struct BackendSessionAgents {
  /// The session's own agent; of a T3 Code session the one that its model belongs to. Nothing for a
  /// model of neither.
  static std::optional<Agent> engine(const AgentSession& session);
};

}  // namespace tessivane
