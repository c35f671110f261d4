#pragma once

// The stretch of time that the lanes view shows, and how wide. A plain value.

#include <vector>

#include "support/Date.h"

namespace tessivane {

struct LanesLayout {
  static constexpr double mostTicks = 10'000;

  Date start = distantPast;
  Date end = distantPast;
  double width = 0;  ///< points

  /// The multiples of `interval` since 1970 from `start` to `end`, both included, so that the ticks
  /// of one layout meet those of the next. None for an interval that is not finite or below a
  /// microsecond, for years outside 1 to 9999, and when there would be more than ten thousand:
  /// nobody could tell those apart.
  std::vector<Date> ticks(Seconds interval) const;

  friend bool operator==(const LanesLayout&, const LanesLayout&) = default;
};

}  // namespace tessivane
