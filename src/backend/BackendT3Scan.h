#pragma once

// Takes over the file edits that T3 Code has recorded. On the activity queue, owned by the activity
// store; T3's database is only read, and no more often than the interval allows.
//
// An edit is filed under its thread's session, or, for a thread without one, under the thread's key
// and the project that T3's database names. When that names none the edit waits, for as long as the
// store remembers anything, and the stored cursor does not pass it.

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "backend/BackendPass.h"
#include "backend/BackendT3Edits.h"
#include "sessions/AgentSession.h"
#include "sessions/ProjectRootResolver.h"
#include "support/Date.h"
#include "support/ReadOnlyDatabase.h"

namespace tessivane {

class BackendT3Scan final {
 public:
  /// Sessions by `AgentSession::id`.
  using SessionsByID = std::unordered_map<std::string, const AgentSession*>;

  struct Options {
    std::string path = {};
    Seconds interval{5};
    std::chrono::seconds backfill{};
  };

  /// `roots` outlives it.
  BackendT3Scan(ProjectRootResolver& roots, Options options);

  /// How long the next scan must wait.
  Seconds wait(Date now);
  bool hasWaiting() const { return !waiting_.empty(); }

  void scan(const BackendPass& pass, const SessionsByID& sessions);

  /// To be called after the transaction of each pass that was to scan. One that was not stored is
  /// to scan again, and reads from the stored cursor on.
  void settle(bool stored);

 private:
  using Waiting = std::map<std::string, BackendT3Edit>;  // by item

  Date position(const BackendPass& pass) const;
  void readPages(ReadOnlyDatabase& db, const BackendPass& pass, const SessionsByID& sessions);
  bool file(ReadOnlyDatabase& db,
            const BackendT3Edit& edit,
            const BackendPass& pass,
            const SessionsByID& sessions);
  std::optional<std::string> rootOf(ReadOnlyDatabase& db, const std::string& threadID);
  void fileWaiting(ReadOnlyDatabase& db, const BackendPass& pass, const SessionsByID& sessions);
  void storeCursor(const BackendPass& pass) const;

  ProjectRootResolver& roots_;
  const Options options_;
  DatabaseCopyMemo copies_;
  Date lastScan_ = distantPast;
  std::optional<Date> position_;  // how far the database is read; nothing when only the store knows
  Waiting waiting_;
};

}  // namespace tessivane
