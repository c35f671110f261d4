#pragma once

// The forms in which events and runs of edits stand in the event database, and the way back from
// rows to records. Pure functions, safe on every thread.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "activity/ActivityEvent.h"
#include "support/DatabaseRow.h"

namespace tessivane {

struct BackendEventRow {
  /// What a project is called: the last component of its root, "~" when there is none.
  static std::string projectName(std::string_view root);

  /// "{kind}:{root}:{ref}": the id under which the feed knows an event, live or from its row.
  static std::string id(ActivityKind kind, std::string_view root, std::string_view ref);

  /// The `ref` column: the event's ref, or "{sessionID}@{whole seconds since 1970}" when it has
  /// none, with "-" for a missing session.
  static std::string refColumn(const ActivityEvent& event);

  /// The minute of an instant, counted from 1970, rounded down.
  static std::int64_t minute(Date date);

  /// How many paths a run of edits keeps, to be shown.
  static constexpr std::size_t maxPaths = 3;

  /// The paths in a `paths` column: at most three, one a line.
  static std::vector<std::string> paths(std::string_view column);

  /// The event in a row of "events". Nothing for a kind that this version does not know, a date
  /// that is none, and a row without kind, root, ref or ts.
  static std::optional<ActivityEvent> event(const StatementRow& row);

  /// The run of edits in a row of "edit_minutes"; nothing for one without root, minute or files.
  static std::optional<EditBucket> bucket(const StatementRow& row);
};

}  // namespace tessivane
