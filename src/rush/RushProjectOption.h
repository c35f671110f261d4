#pragma once

// One row of the project picker. A plain value, safe on every thread.

#include <set>
#include <span>
#include <string>
#include <vector>

#include "sessions/AgentSession.h"

namespace tessivane {

struct RushProjectOption {
  std::string path = {};  ///< the identity
  std::string name = {};  ///< the last component of `path`, "~" when there is none

  /// The projects of the sessions that matter (conversations, and whatever needs the person), the
  /// latest active first, then by path those of `selected` that no such session belongs to.
  static std::vector<RushProjectOption> list(std::span<const AgentSession> sessions,
                                             const std::set<std::string>& selected);

  friend bool operator==(const RushProjectOption&, const RushProjectOption&) = default;
};

}  // namespace tessivane
