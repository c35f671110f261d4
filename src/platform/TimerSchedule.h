#pragma once

// When timers run. Pure arithmetic on the time since the machine was started, without suspends, so
// that no setting of the clock can disturb it. Safe on every thread.

#include <chrono>

#include "support/Date.h"

namespace tessivane {

using MonotonicTime = std::chrono::steady_clock::time_point;
using MonotonicDuration = std::chrono::steady_clock::duration;

/// `seconds`, not below `least`. Not a number counts as `least`, and what no clock could hold as a
/// hundred years.
MonotonicDuration timerDuration(Seconds seconds, MonotonicDuration least);

/// When to wake for a timer that is due: `due`, or up to `tolerance` later at an instant where
/// other timers wake too. Those instants are the multiples of a power of two of seconds (..., 1/4,
/// 1/2, 1, 2, ...), the largest that the tolerance has room for. A coarse grid is part of every
/// finer one, so that timers of different tolerance meet as well.
MonotonicTime coalescedWake(MonotonicTime due, MonotonicDuration tolerance);

/// When a timer that was due and has run at `now` is due again: one interval later or, when that
/// has passed as well, at the first later beat. `interval` is positive.
MonotonicTime nextDue(MonotonicTime due, MonotonicDuration interval, MonotonicTime now);

}  // namespace tessivane
