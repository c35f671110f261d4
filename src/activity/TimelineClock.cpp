#include "activity/TimelineClock.h"

#include <chrono>

#include <fmt/format.h>

namespace tessivane {

std::string timelineClock(Date date, TimelineClockDigits digits, const Calendar& calendar) {
  const std::chrono::hh_mm_ss time(calendar.timeOfDay(date));
  const auto hour = std::chrono::make12(time.hours()).count();
  if (digits == TimelineClockDigits::minutes)
    return fmt::format("{}:{:02}", hour, time.minutes().count());
  return fmt::format("{}:{:02}:{:02}", hour, time.minutes().count(), time.seconds().count());
}

}  // namespace tessivane
