#pragma once

// The file edits that T3 Code has recorded in its own database, which is only ever read. Used on
// the activity queue.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "support/Date.h"
#include "support/ReadOnlyDatabase.h"

namespace tessivane {

/// One completed edit of one or more files.
struct BackendT3Edit {
  std::string itemID = {};
  std::string threadID = {};
  std::optional<std::string> nativeID = {};  ///< the agent's own id for the tool call
  Date date = distantPast;
  std::vector<std::string> paths = {};  ///< as T3 tells them, absolute or not
  std::string updatedAt = {};           ///< `date` as it is stored, for the cursor

  friend bool operator==(const BackendT3Edit&, const BackendT3Edit&) = default;
};

/// What one read gave.
struct BackendT3EditPage {
  std::vector<BackendT3Edit> edits = {};          ///< the oldest first
  std::optional<std::string> lastUpdatedAt = {};  ///< of the last row that has a date, edit or not
  bool isFull = false;                            ///< there may be more rows
};

struct BackendT3Edits {
  static constexpr std::size_t maxRows = 2000;

  /// The edits from `after`, a text of T3's own form of times, on, out of at most `maxRows` rows.
  /// Those of that very time come again. What is no edit or has no path is left out. Empty for a
  /// database of the older schema and on failure; `db` has the error.
  static BackendT3EditPage read(ReadOnlyDatabase& db, const std::string& after);

  /// Where the thread works: its worktree, else the folder of its project. Nothing when the
  /// database does not tell.
  static std::optional<std::string> directory(ReadOnlyDatabase& db, const std::string& threadID);
};

}  // namespace tessivane
