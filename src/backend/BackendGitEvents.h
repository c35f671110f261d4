#pragma once

// Which entries of a repository's reflogs count as commits, which session made what, and which
// event comes of it. Pure functions over values, safe on every thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "activity/ActivityEvent.h"
#include "git/BackendBranchCreation.h"
#include "git/BackendReflogEntry.h"
#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

/// A session in one of the working trees of the repository that is looked at.
struct BackendGitSession {
  AgentSession session = {};
  std::string tree = {};                        ///< its working tree
  std::optional<std::string> ownBranch = {};    ///< as its transcript or thread tells
  std::optional<std::string> treesBranch = {};  ///< on which its working tree is

  const std::optional<std::string>& branch() const { return ownBranch ? ownBranch : treesBranch; }
};

struct BackendGitCommit {
  std::string hash = {};
  Date date = distantPast;
  std::string message = {};              ///< of the reflog entry
  std::optional<std::string> tree = {};  ///< the working tree it was made in, when known
  std::optional<std::string> branch = {};
};

struct BackendGitEvents {
  /// How long before a commit or a new branch its session may have shown itself last.
  static constexpr std::chrono::seconds patience{120};

  /// True for commits, amended, merged and initial ones included; rebases, cherry-picks and moves
  /// of HEAD are none.
  static bool isCommit(const BackendReflogEntry& entry);

  /// The commit's subject out of the message of its entry, on one line of at most 200 characters.
  static std::string title(std::string_view message);

  /// The session in the commit's working tree that made it, or null. One that says it is on another
  /// branch, or that was last active too long before, did not.
  static const BackendGitSession* sessionOf(const BackendGitCommit& commit,
                                            const std::vector<BackendGitSession>& sessions);

  /// The session that a new worktree or branch belongs to, or null: one in the new worktree, else
  /// one that is on the branch and was not last active too long before.
  static const BackendGitSession* sessionOf(const BackendBranchCreation& creation,
                                            const std::vector<BackendGitSession>& sessions);

  /// The event of a commit, with the session's project or the commit's working tree as its root.
  /// Nothing when neither is known. `firstSeen` is not set.
  static std::optional<ActivityEvent> event(const BackendGitCommit& commit,
                                            const BackendGitSession* session);

  /// The event of a new branch or worktree. `home` is the root when neither a session nor a new
  /// worktree gives one.
  static std::optional<ActivityEvent> event(const BackendBranchCreation& creation,
                                            const BackendGitSession* session,
                                            const std::optional<std::string>& home);
};

}  // namespace tessivane
