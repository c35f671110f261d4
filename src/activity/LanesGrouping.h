#pragma once

// The lanes view's stream: events newest first, in buckets of time, the commits that a session made
// within one bucket folded into one row. Pure functions.
//
// Rows point into the events that they were made from, and are good for as long as those stay
// where they are. Thousands of them are made again on every step of time; copies of the events
// would cost more than everything else.

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "activity/ActivityEvent.h"
#include "support/Date.h"

namespace tessivane {

struct LanesRow {
  using Commits = std::vector<const ActivityEvent*>;
  /// One event, or several commits of one session, newest first. No pointer is null.
  using Content = std::variant<const ActivityEvent*, Commits>;

  std::int64_t bin = 0;  ///< the number of its section's bucket
  Content content = static_cast<const ActivityEvent*>(nullptr);

  /// "e{event's id}"; of commits "g{session or project}-{bin}", be it one or several. Unique if the
  /// events' ids are. Made on demand: of thousands of rows a view shows some dozens.
  std::string id() const;
  std::span<const ActivityEvent* const> events() const;

  friend bool operator==(const LanesRow&, const LanesRow&) = default;
};

struct LanesSection {
  std::string id = {};
  Date start = distantPast;  ///< of the bucket
  std::vector<LanesRow> rows = {};

  friend bool operator==(const LanesSection&, const LanesSection&) = default;
};

struct LanesGrouping {
  /// The events in sections of `bucket`, newest first; those of one date by id, ascending. A bucket
  /// that is not a number or below a millisecond counts as one millisecond.
  static std::vector<LanesSection> sections(std::span<const ActivityEvent* const> events,
                                            Seconds bucket);

  /// The row with the event that is nearest to the date, of two that are equally near the first.
  /// A commit counts where it was made, not where its row stands. Null without rows.
  static const LanesRow* nearestRow(std::span<const LanesRow* const> rows, Date date);
};

}  // namespace tessivane
