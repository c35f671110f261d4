#pragma once

// A new branch or a new worktree, as the reflogs of a repository tell it. Plain values and pure
// functions, safe on every thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "git/BackendReflogFile.h"
#include "support/Date.h"
#include "support/FunctionRef.h"

namespace tessivane {

struct BackendBranchCreation {
  std::string name = {};                     ///< the branch, or the worktree's directory name
  std::optional<std::string> branch = {};    ///< nothing for a worktree with a detached HEAD
  std::optional<std::string> worktree = {};  ///< of a new worktree, its path
  Date date = distantPast;

  using BranchOf = FunctionRef<std::optional<std::string>(const BackendReflogFile&)>;

  /// What the entries of all logs of one repository create, in the order of time. Entries that do
  /// not come from a null hash matter only when they tell of a rename. `branchOf` is asked for the
  /// branch that the HEAD of a linked worktree's log is on.
  ///
  /// A renamed branch keeps its log, creation included, and is no new branch; the null hash that
  /// the rename of its branch leaves in a worktree's HEAD log makes no new worktree. A branch made
  /// together with a worktree, as "git worktree add -b" does, counts as the worktree.
  static std::vector<BackendBranchCreation> detect(const std::vector<BackendReflogPair>& pairs,
                                                   BranchOf branchOf);

  /// "{worktree or branch}:{name}@{whole seconds since 1970}": the event's ref.
  std::string key() const;

  /// "branched:{common directory}:{worktree:path or branch:name}@{seconds}", by which the creation
  /// is handled once.
  std::string seenKey(std::string_view commonDir) const;

  friend bool operator==(const BackendBranchCreation&, const BackendBranchCreation&) = default;
};

}  // namespace tessivane
