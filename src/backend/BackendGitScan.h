#pragma once

// Reads what was appended to the reflogs of a repository and stores the commits and new branches it
// tells of, each tied to the session that made it. On the activity queue; made and kept by the
// activity store, which brackets the scans of a pass in a `BackendTransaction`.
//
// Logs are read by chunks from the cursors in the store, so that a scan's memory does not grow with
// them. A cursor moves only when all that its repository told was stored.

#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "activity/ActivityEvent.h"
#include "backend/BackendEventStore.h"
#include "backend/BackendGitEvents.h"
#include "git/BackendReflogFile.h"
#include "sessions/ProjectRootResolver.h"
#include "support/Date.h"
#include "support/FunctionRef.h"

namespace tessivane {

class BackendGitScan final {
 public:
  /// Events of a start-up pass are none that the person sees happen, however fresh.
  enum class Pass { startUp, live };

  /// The sessions there are, and what some of them tell of their branch, by `AgentSession::id`.
  struct Sessions {
    std::vector<AgentSession> list = {};
    std::unordered_map<std::string, std::string> branches = {};
  };

  /// `backfill`: how far back a log counts that was not read before. Store and resolver must
  /// outlive the scan.
  BackendGitScan(BackendEventStore& store,
                 ProjectRootResolver& roots,
                 Clock clock,
                 std::chrono::seconds backfill);

  using OnNew = FunctionRef<void(const ActivityEvent&)>;

  /// Scans the repository with that common directory and calls with each event that is new to the
  /// store. False when something could not be stored; the next scan then begins where this one did.
  bool scan(const std::string& dir, Pass pass, const Sessions& sessions, OnNew onNew);

 private:
  struct Run;

  void readLog(Run& run, const BackendReflogFile& file);
  void noteBranch(const std::string& hash, const std::string& branch);
  void tellCommit(Run& run, const BackendReflogFile& file, const BackendReflogEntry& entry);
  void tellCreations(Run& run);
  void tell(Run& run, const std::string& seenKey, std::optional<ActivityEvent> event);

  BackendEventStore& store_;
  ProjectRootResolver& roots_;
  Clock clock_;
  std::chrono::seconds backfill_;
  // On which branch a commit was made, by its hash.
  std::unordered_map<std::string, std::string> branchBySHA_;
};

}  // namespace tessivane
