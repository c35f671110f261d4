#include "activity/LanesLayout.h"

#include <cmath>

namespace tessivane {

namespace {

constexpr double leastInterval = 1e-6;  // seconds; dates tell no less apart

}  // namespace

std::vector<Date> LanesLayout::ticks(Seconds interval) const {
  const double step = interval.count();
  if (!(step >= leastInterval) || !std::isfinite(step))
    return {};
  // One to each side, as a division may miss a multiple by a hair.
  const double first = std::floor(secondsSince1970(start) / step);
  const double last = std::ceil(secondsSince1970(end) / step);
  if (last < first || last - first > mostTicks)
    return {};
  std::vector<Date> result;
  const int steps = static_cast<int>(last - first);
  for (int i = 0; i <= steps; ++i) {
    const auto date = dateFromSeconds((first + i) * step);
    // Far from 1970 the numbers are too coarse for the smallest intervals.
    const bool isNew = date && (result.empty() || *date > result.back());
    if (isNew && *date >= start && *date <= end)
      result.push_back(*date);
  }
  return result;
}

}  // namespace tessivane
