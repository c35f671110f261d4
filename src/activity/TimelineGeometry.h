#pragma once

// Where the axis, "now" and the rows of cards lie in a timeline of a given size, and the shapes
// that a layout is made of. Plain values, safe on every thread. Lengths are points, y runs
// downward.

#include <vector>

#include "activity/ActivityEvent.h"
#include "support/Date.h"

namespace tessivane {

struct TimelineSize {
  double width = 0;
  double height = 0;

  friend bool operator==(const TimelineSize&, const TimelineSize&) = default;
};

struct TimelinePoint {
  double x = 0;
  double y = 0;

  friend bool operator==(const TimelinePoint&, const TimelinePoint&) = default;
};

struct TimelineRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double maxX() const { return x + width; }
  double maxY() const { return y + height; }
  /// True for a point inside or on the border of the rectangle, widened by `margin` on each side.
  bool contains(TimelinePoint point, double margin = 0) const;

  friend bool operator==(const TimelineRect&, const TimelineRect&) = default;
};

/// On which side of the axis a card stands.
enum class TimelineSide { above, below };

struct TimelineGeometry {
  double width = 0;
  double height = 0;
  double nowX = 0;  ///< where the end of the window lies
  double mid = 0;   ///< the axis
  Seconds span = {};
  double pointsPerSecond = minPointsPerSecond;
  std::vector<double> aboveRows = {};  ///< the rows' centres, the one next to the axis first
  std::vector<double> belowRows = {};

  static constexpr double minPointsPerSecond = 0.0001;
  /// No marker lies further out than this, whenever its event happened: coordinates stay exact, and
  /// nothing that a window can show is so far away.
  static constexpr double maxX = 1e7;

  /// A length that is no positive number counts as 0, one of over a million points as a million.
  static TimelineGeometry make(TimelineSize size, ActivityRange range);

  /// True when there is no room at all.
  bool isEmpty() const { return width <= 0 || height <= 0; }
  const std::vector<double>& rows(TimelineSide side) const;
  /// Where `date` lies on the axis when `end` lies at `nowX`; never beyond `maxX`.
  double x(Date date, Date end) const;

  friend bool operator==(const TimelineGeometry&, const TimelineGeometry&) = default;
};

}  // namespace tessivane
