#pragma once

// The time of day as the timeline writes it. Pure, safe on every thread.

#include <string>

#include "support/Calendar.h"
#include "support/Date.h"

namespace tessivane {

enum class TimelineClockDigits { minutes, seconds };

/// "9:05" or "9:05:07": twelve hours, with neither a leading zero nor AM or PM.
std::string timelineClock(Date date, TimelineClockDigits digits, const Calendar& calendar);

}  // namespace tessivane
