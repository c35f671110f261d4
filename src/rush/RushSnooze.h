#pragma once

// Putting a waiting session away for a while. Plain values, safe on every thread.

#include <array>
#include <string_view>

#include "support/Calendar.h"
#include "support/Date.h"

namespace tessivane {

/// How long the person may choose.
enum class RushSnooze { quarterHour, hour, tomorrow };

inline constexpr std::array allRushSnoozes = {
    RushSnooze::quarterHour, RushSnooze::hour, RushSnooze::tomorrow};

/// "quarterHour", "hour", "tomorrow".
std::string_view rawValue(RushSnooze snooze);

/// When a snooze that begins at `from` ends. Tomorrow means eight in the morning of the next
/// calendar day, shortly after midnight too; where the clocks skip that hour, right after the gap.
Date until(RushSnooze snooze, Date from, const Calendar& calendar);

/// A snooze that somebody has taken.
struct RushSnoozed {
  Date until = distantPast;
  /// The session needed the person when it was snoozed, and has done so ever since. Only a later
  /// request may break through.
  bool waitingOnApproval = false;

  friend bool operator==(const RushSnoozed&, const RushSnoozed&) = default;
};

}  // namespace tessivane
