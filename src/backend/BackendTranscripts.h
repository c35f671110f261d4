#pragma once

// The transcripts of the sessions there are, each with the scanner that reads it, and what they
// tell: edits and pull requests, attributed to their sessions and stored. On the activity queue,
// owned by the activity store.
//
// A scanner remembers commands whose result is still to come, so it must know of the same lines as
// the store: where a transaction has not moved the cursor, it is as it was before.

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/BackendClaudeScanner.h"
#include "backend/BackendCodexScanner.h"
#include "backend/BackendFinding.h"
#include "backend/BackendPass.h"
#include "backend/BackendRepositories.h"
#include "sessions/AgentSession.h"

namespace tessivane {

class BackendTranscripts final {
 public:
  /// The branch that each session's transcript named last, by `AgentSession::id`; none where it
  /// said that there is none.
  using Branches = std::unordered_map<std::string, std::string>;

  /// `repositories` outlives it.
  BackendTranscripts(BackendRepositories& repositories, std::chrono::seconds backfill);

  /// Whether the session's transcript, which it must have, is a Codex rollout.
  static bool isRollout(const AgentSession& session);

  /// Takes over the sessions. Returns the transcripts that are new or whose session has changed.
  std::set<std::string> update(const std::vector<AgentSession>& sessions);

  std::set<std::string> paths() const;
  bool contains(const std::string& path) const { return transcripts_.contains(path); }

  /// Reads what was appended and stores what it tells. The cursor moves only if all of it was
  /// stored.
  void scan(const std::string& path, const BackendPass& pass, Branches& branches);

  /// To be called after the transaction of each pass. One that was not stored as a whole may have
  /// been for some of the transcripts.
  void settle(BackendEventStore& store, bool stored);

 private:
  /// Exactly one scanner is set.
  struct BackendTranscript {
    AgentSession session = {};
    std::optional<BackendClaudeScanner> claude = {};
    std::optional<BackendCodexScanner> codex = {};
  };

  /// A scanner as it was before this pass, and how far it has read since.
  struct Before {
    BackendClaudeScanner scanner = {};
    std::optional<BackendFileCursor> reached = {};
  };

  static BackendTranscript follow(const AgentSession& session);
  void apply(const BackendFinding& finding,
             const AgentSession& session,
             const Branches& branches,
             const BackendPass& pass);
  void apply(const BackendPRFinding& finding,
             const AgentSession& session,
             const Branches& branches,
             const BackendPass& pass);

  BackendRepositories& repositories_;
  const std::chrono::seconds backfill_;
  std::unordered_map<std::string, BackendTranscript> transcripts_;  // by path
  std::unordered_map<std::string, Before> before_;                  // likewise
};

}  // namespace tessivane
