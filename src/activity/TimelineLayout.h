#pragma once

// The timeline as geometry: where every marker, card, leader, edit mark and grid line of the
// current window stands, and what lies under a point. An immutable value, made anew whenever the
// feed, the size, the range or the tag sizes change; no drawing. Belongs to the thread of the text
// measure while it is made, to nobody afterwards.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "activity/ActivityEvent.h"
#include "activity/TimelineEditMark.h"
#include "activity/TimelineGeometry.h"
#include "activity/TimelineRows.h"
#include "activity/TimelineTextMeasure.h"

namespace tessivane {

/// What lies under a point.
struct TimelineHit {
  enum class Kind { item, edit };

  Kind kind = Kind::item;
  std::string id = {};

  friend bool operator==(const TimelineHit&, const TimelineHit&) = default;
};

struct TimelineGridTick {
  Date date = distantPast;
  double x = 0;

  friend bool operator==(const TimelineGridTick&, const TimelineGridTick&) = default;
};

/// A closed range of y.
struct TimelineLeader {
  double top = 0;
  double bottom = 0;

  friend bool operator==(const TimelineLeader&, const TimelineLeader&) = default;
};

/// A marker on the axis with its card, if there was room for one.
struct TimelineItem {
  /// The event's id; of several commits "group:{sessionID or projectRoot}:{id of the oldest one}",
  /// which stays the same while further commits join.
  std::string id = {};
  std::vector<ActivityEvent> events = {};  ///< newest first, never empty
  TimelineSizeClass size = TimelineSizeClass::small;
  TimelineSide side = TimelineSide::above;
  double markerX = 0;
  std::optional<int> row = {};                ///< index into the geometry's rows of that side
  std::optional<TimelineRect> rect = {};      ///< the card; there when `row` is
  std::optional<TimelineLeader> leader = {};  ///< between card and axis; there when `row` is
  std::string title = {};
  std::string label = {};
  bool isFresh = false;  ///< one of the events became known within the last 1.5 seconds

  friend bool operator==(const TimelineItem&, const TimelineItem&) = default;
};

/// What a layout is made from. It is used up: who still needs the lists hands in copies.
struct TimelineInput {
  std::vector<ActivityEvent> events = {};  ///< the visible ones, in any order
  std::vector<EditBucket> edits = {};      ///< the visible ones
  TimelineSize size = {};
  Date end = distantPast;  ///< what lies at `nowX`
  Date now = distantPast;  ///< the clock on the wall, also in a replay
  ActivityRange range = ActivityRange::h1;
  TimelineRows previousRows = {};              ///< `rows` of the layout before this one
  std::vector<std::string> projectOrder = {};  ///< project roots; the order gives edit marks a lane
  TimelineTextMeasure measure = {};
  std::int64_t version = 0;                              ///< handed on to the layout
  std::map<ActivityKind, TimelineSizeClass> sizes = {};  ///< where they differ from `defaultSize`
};

/// Where a step of the keyboard leads.
enum class TimelineStep { older, newer };

struct TimelineLayout {
  TimelineGeometry geometry = {};
  Date end = distantPast;
  std::vector<TimelineGridTick> ticks = {};  ///< a little beyond both ends of the window
  std::vector<TimelineEditMark> edits = {};
  std::vector<TimelineItem> items = {};  ///< oldest first, so that the newest is drawn on top
  TimelineRows rows = {};                ///< of every item that has a card
  std::unordered_set<std::string> freshEdits =
      {};  ///< ids of marks; filled by who shows the layout
  std::int64_t version = 0;

  /// Takes whatever comes: a size that leaves no room gives a layout without ticks, marks and
  /// items, dates outside the years 1 to 9999 count as the nearest one inside, and whatever the
  /// measure answers, cards of one row stay 8 points apart. n log n in events and edits.
  static TimelineLayout make(TimelineInput input);
  static TimelineLayout empty() { return {}; }

  /// Nothing for no id and for an unknown one. Valid as long as the layout.
  const TimelineItem* item(std::optional<std::string_view> id) const;
  const TimelineEditMark* edit(std::optional<std::string_view> id) const;

  /// The topmost card there, else the nearest marker within reach, else the topmost edit mark.
  std::optional<TimelineHit> hitTest(TimelinePoint point) const;

  /// The neighbour of the item `from`, itself at the ends; the newest item for no id or an unknown
  /// one. Nothing without items.
  const TimelineItem* step(std::optional<std::string_view> from, TimelineStep direction) const;

  friend bool operator==(const TimelineLayout&, const TimelineLayout&) = default;
};

}  // namespace tessivane
