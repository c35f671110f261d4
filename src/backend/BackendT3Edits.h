#pragma once

// The file edits that T3 Code has recorded in its own database, which is only ever read. Used on
// the activity queue.

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

struct BackendT3Edits {
  /// The edits from `after`, a text of T3's own form of times, on: the oldest first, at most 2,000
  /// rows. Those of that very time come again. What is no edit or has no path is left out. Empty
  /// for a database of the older schema and on failure; `db` has the error.
  static std::vector<BackendT3Edit> read(ReadOnlyDatabase& db, const std::string& after);
};

}  // namespace tessivane
