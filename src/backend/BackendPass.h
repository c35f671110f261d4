#pragma once

// One pass over what is to be scanned, as the scanners see it: where they store, for whom, and
// whether to go on. Lives on the stack of the activity queue for the length of a transaction.

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "activity/ActivityEvent.h"
#include "backend/BackendEventStore.h"
#include "backend/BackendGitScan.h"
#include "backend/BackendOutbox.h"
#include "support/Date.h"

namespace tessivane {

struct BackendPass {
  BackendEventStore& store;
  BackendOutbox& outbox;
  const std::atomic<int>& stops;  ///< above zero when the pass is to end at the next good place
  const std::string& home;
  BackendGitScan::Pass kind = BackendGitScan::Pass::startUp;
  Date now = distantPast;

  bool isStopped() const { return stops > 0; }
  /// What a piece of the pass compares, as its cursor may move only if nothing failed meanwhile.
  std::uint64_t failures() const { return store.db().failures(); }

  /// When the person is to be told that an event of that date is new.
  Date firstSeen(Date date) const;
  /// Stores the event and, if it is new, puts it into the outbox.
  void insert(const ActivityEvent& event) const;
  /// Counts the edit, its paths being as the tool wrote them, and puts the minute's new state into
  /// the outbox.
  void addEdit(BackendEventStore::Edit edit) const;
};

/// A path as it is shown: within the project from its root on, else within the home directory from
/// "~" on.
std::string shownPath(const std::string& path, const std::string& root, const std::string& home);

}  // namespace tessivane
