#pragma once

// What the card of a group of events says, and how wide that makes it. Pure, safe on every thread
// that may use the measure.

#include <span>
#include <string>

#include "activity/ActivityEvent.h"
#include "activity/TimelineTextMeasure.h"

namespace tessivane {

struct TimelineCallout {
  double width = 0;  ///< of the whole card, in whole points
  std::string title = {};
  std::string label = {};

  friend bool operator==(const TimelineCallout&, const TimelineCallout&) = default;
};

/// `group` is newest first and not empty; only commits come in groups of several. A title is cut to
/// what its size allows; a `medium` card is titled with the project's name, uncut.
TimelineCallout timelineCallout(std::span<const ActivityEvent> group,
                                TimelineSizeClass size,
                                const TimelineTextMeasure& measure);

}  // namespace tessivane
