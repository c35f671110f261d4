#pragma once

// Finds pull requests and edits in the lines of a Codex rollout. Each line tells all of a finding,
// so nothing is remembered. Safe on every thread.
//
// Clients write what is looked for here ("item_completed" records) in the rollouts whose history is
// paginated: all of them since 0.157, some of 0.150, none before. From other rollouts nothing
// comes.

#include <string_view>
#include <vector>

#include "backend/BackendFinding.h"
#include "support/Date.h"

namespace tessivane {

class BackendCodexScanner final {
 public:
  /// What the lines tell, in their order. Each line must be whole. A line without a date that can
  /// be read counts as written `now`.
  std::vector<BackendFinding> scan(std::string_view lines, Date now) const;
};

}  // namespace tessivane
