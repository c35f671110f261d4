#pragma once

// Finds a row for each card, so that cards of one row keep their distance and a card stays in the
// row where it stood. Pure, safe on every thread.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "activity/TimelineGeometry.h"

namespace tessivane {

/// The row of each card by its item's id: what the next layout is told of the previous one.
using TimelineRows = std::unordered_map<std::string, int>;

/// A card that looks for a row.
struct TimelineCandidate {
  std::string_view id = {};
  TimelineSide side = TimelineSide::above;
  TimelineSizeClass size = TimelineSizeClass::small;
  double left = 0;
  double right = 0;
};

/// Points of air between two cards of one row.
inline constexpr double timelineCardAir = 8;

/// The rows that a card may stand in, the best one first.
std::span<const int> allowedTimelineRows(TimelineSide side, TimelineSizeClass size);

/// One answer for each candidate: its row, or nothing when none is free. Who comes first is served
/// first, but those who had a row are asked before all others whether that one is still free.
std::vector<std::optional<int>> placeTimelineCards(std::span<const TimelineCandidate> candidates,
                                                   const TimelineGeometry& geometry,
                                                   const TimelineRows& previousRows);

}  // namespace tessivane
