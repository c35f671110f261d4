#pragma once

// Makes up Codex rollouts: line shapes, key orders and sizes as the client writes them (seen in
// files of 0.169.0), with made-up contents. Pure functions.

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/Date.h"

namespace tessivane {

enum class RolloutEnding {
  complete,  ///< the turn is over
  aborted,   ///< the person ended it
  open       ///< the turn began long before the last lines
};

struct RolloutPlan {
  std::uint64_t seed = 0;
  std::string threadID = {};
  std::string originator = "codex-tui";
  std::string cwd = {};
  Date first = {};
  Date last = {};
  std::size_t bytes = 0;  ///< to be reached, and passed by a few lines at most
  RolloutEnding ending = RolloutEnding::complete;
};

/// The whole rollout.
std::string sampleRollout(const RolloutPlan& plan);

}  // namespace tessivane
