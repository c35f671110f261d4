#pragma once

// Puts commits together that would lie on top of each other. Pure, safe on every thread.

#include <vector>

#include "activity/ActivityEvent.h"

namespace tessivane {

/// Each event by itself, in the given order, and behind them the commits: those of one session (or,
/// without one, of one project) whose dates fall into the same stretch of eight points, at least
/// one second, make one group, newest first. Groups are never empty; those of commits stand in the
/// order of their first event in `events`.
std::vector<std::vector<ActivityEvent>> rollUp(std::vector<ActivityEvent> events,
                                               double pointsPerSecond);

}  // namespace tessivane
