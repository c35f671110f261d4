#pragma once

// The bars under the timeline's axis: which project's files were edited when. Plain values, safe on
// every thread.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "activity/ActivityEvent.h"
#include "activity/TimelineGeometry.h"

namespace tessivane {

/// The edits of one project in one slot of time.
struct TimelineEditMark {
  std::string id = {};  ///< "edit:{projectRoot}|{number of the slot since 1970}"
  std::string projectRoot = {};
  std::string projectName = {};
  std::optional<std::string> sessionID = {};  ///< nothing when several sessions edited
  Date start = distantPast;
  Seconds length = {};
  std::int64_t files = 0;
  std::vector<std::string> paths = {};  ///< each once, in the order of the buckets
  double x = 0;
  double height = 0;

  friend bool operator==(const TimelineEditMark&, const TimelineEditMark&) = default;
};

/// The buckets that begin at or before `end`, summed up by project and slot (a minute, ten for the
/// six-hour range), in the order in which project and slot are first met. A project's place in
/// `projectOrder` shifts its marks sideways, so that those of several projects stay apart. A
/// negative number of files counts as 0.
std::vector<TimelineEditMark> timelineEditMarks(std::vector<EditBucket> edits,
                                                const TimelineGeometry& geometry,
                                                Date end,
                                                ActivityRange range,
                                                std::span<const std::string> projectOrder);

}  // namespace tessivane
