#include "activity/TimelineGeometry.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tessivane {

namespace {

constexpr double maxLength = 1e6;
constexpr double narrowWidth = 640;
constexpr double roomAfterNow = 112;
constexpr double roomAfterNowWhenNarrow = 64;
constexpr double leftMargin = 12;
constexpr double topMargin = 40;
constexpr double bottomMargin = 50;
constexpr std::array aboveDistances = {30.0, 62.0, 104.0, 160.0, 216.0};
constexpr std::array belowDistances = {66.0, 116.0, 170.0};

double usableLength(double length) {
  return length > 0 ? std::min(length, maxLength) : 0;
}

}  // namespace

bool TimelineRect::contains(TimelinePoint point, double margin) const {
  return point.x >= x - margin && point.x <= maxX() + margin && point.y >= y - margin &&
         point.y <= maxY() + margin;
}

TimelineGeometry TimelineGeometry::make(TimelineSize size, ActivityRange range) {
  TimelineGeometry result;
  result.width = usableLength(size.width);
  result.height = usableLength(size.height);
  result.nowX = result.width - (result.width < narrowWidth ? roomAfterNowWhenNarrow : roomAfterNow);
  result.mid = std::round(result.height * 0.5) - 6;
  result.span = tessivane::span(range);
  result.pointsPerSecond =
      std::max((result.nowX - leftMargin) / result.span.count(), minPointsPerSecond);
  for (const double distance : aboveDistances) {
    if (result.mid - distance > topMargin)
      result.aboveRows.push_back(result.mid - distance);
  }
  for (const double distance : belowDistances) {
    if (result.mid + distance < result.height - bottomMargin)
      result.belowRows.push_back(result.mid + distance);
  }
  return result;
}

const std::vector<double>& TimelineGeometry::rows(TimelineSide side) const {
  return side == TimelineSide::above ? aboveRows : belowRows;
}

double TimelineGeometry::x(Date date, Date end) const {
  const Seconds age = elapsed(withinCalendar(date), withinCalendar(end));
  return std::clamp(nowX - age.count() * pointsPerSecond, -maxX, maxX);
}

}  // namespace tessivane
