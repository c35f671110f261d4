#pragma once

// The civil calendar of one time zone, for "today", "yesterday" and midnight. A value; every use
// works on its own copy of the zone's rules, so threads may share one.

#include <chrono>
#include <optional>
#include <string>

#include "support/Date.h"

namespace tessivane {

class Calendar final {
 public:
  /// The calendar of the zone that this computer is set to (TZ, else /etc/localtime), read now.
  static Calendar current();

  /// `zone` is an Olson name such as "America/New_York"; an unknown one counts as UTC.
  explicit Calendar(std::string zone);

  /// The first instant of the day that contains `date`. That is midnight, or the first instant
  /// after the gap where the clocks skip midnight.
  std::optional<Date> startOfDay(Date date) const;

  /// `date` moved by whole calendar days, at the same time of day where that exists.
  std::optional<Date> addingDays(int days, Date date) const;

  /// `hour` o'clock (0 to 23) on the day that contains `date`, whether that is before or after it.
  /// An hour that the clocks skip gives the first instant after the gap, one that they go through
  /// twice the first of the two.
  std::optional<Date> atHour(int hour, Date date) const;

  /// What a clock in the zone shows at `date`, as the time since its twelve at night: under 24
  /// hours.
  std::chrono::seconds timeOfDay(Date date) const;

  const std::string& zone() const { return zone_; }

  friend bool operator==(const Calendar&, const Calendar&) = default;

 private:
  std::string zone_;
};

}  // namespace tessivane
