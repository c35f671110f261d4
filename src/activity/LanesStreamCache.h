#pragma once

// Keeps the lanes view's stream between updates, and makes again only what the change asks for:
// the filtered events when the events or the filter differ, the sections when other events come
// into the visible span or the buckets change.
//
// Owned by the view, on the main thread. What it hands out points into the events that it was last
// updated with: update it before each use.

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "activity/ActivityEvent.h"
#include "activity/LanesGrouping.h"
#include "support/Date.h"

namespace tessivane {

struct LanesStreamInput {
  /// The feed's. `revision` tells that their content has changed; where they lie is looked at too.
  std::span<const ActivityEvent> events = {};
  std::int64_t revision = 0;
  std::set<ActivityKind> kinds = {};
  std::set<std::string> projects = {};  ///< roots; empty: all
  // The visible span: after `start`, up to and including `end`.
  Date start = distantPast;
  Date end = distantPast;
  Seconds bucket{60};
};

class LanesStreamCache final {
 public:
  /// What the sections were made from: a version of the filtered events, the span of places in
  /// them, and the width of the buckets in seconds.
  struct GroupKey {
    std::uint64_t version = 0;
    std::size_t lo = 0;
    std::size_t hi = 0;
    double bucket = 0;

    friend bool operator==(const GroupKey&, const GroupKey&) = default;
  };

  LanesStreamCache() = default;
  // Rows point into the sections.
  LanesStreamCache(const LanesStreamCache&) = delete;
  LanesStreamCache& operator=(const LanesStreamCache&) = delete;
  ~LanesStreamCache() = default;

  void update(const LanesStreamInput& input);

  const std::vector<LanesSection>& sections() const { return sections_; }
  /// The rows of all sections, from top to bottom.
  const std::vector<const LanesRow*>& rows() const { return rows_; }
  /// What passes the filter, whether visible or not, ascending by date.
  const std::vector<const ActivityEvent*>& filtered() const { return filtered_; }
  /// Counts up when `filtered` is another list, or has the same events with other content.
  std::uint64_t filterVersion() const { return filterVersion_; }
  /// How often sections have been made.
  std::size_t groupings() const { return groupings_; }

  /// The place of the first event later than the date, in a list that ascends by date.
  static std::size_t firstIndex(std::span<const ActivityEvent* const> events, Date after);

 private:
  struct Source {
    const ActivityEvent* events = nullptr;
    std::size_t count = 0;
    std::int64_t revision = 0;

    friend bool operator==(const Source&, const Source&) = default;
  };

  void updateFilter(const LanesStreamInput& input);
  void group(Seconds bucket);

  Source source_;
  std::set<ActivityKind> kinds_;
  std::set<std::string> projectFilter_;
  bool hasFiltered_ = false;
  std::vector<const ActivityEvent*> filtered_;
  std::uint64_t filterVersion_ = 0;
  GroupKey groupKey_;
  std::vector<LanesSection> sections_;
  std::vector<const LanesRow*> rows_;
  std::size_t groupings_ = 0;
};

}  // namespace tessivane
