#pragma once

// The computer's clock, the one place where the program reads it. Safe on every thread.

#include "support/Date.h"

namespace tessivane {

/// The time now. It jumps when the clock is set.
Date systemNow();

}  // namespace tessivane
