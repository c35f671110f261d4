#pragma once

// The computer's clock, the one place where the program reads it or waits for it to go on. Safe on
// every thread.

#include <stop_token>

#include "support/Date.h"

namespace tessivane {

/// The time now. It jumps when the clock is set.
Date systemNow();

/// Blocks for that long, or until `stop` is requested. The time in which the machine is suspended
/// does not count. More than a day counts as one.
void sleepFor(Seconds duration, const std::stop_token& stop);

}  // namespace tessivane
