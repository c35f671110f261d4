#pragma once

// Stores what GitHub tells of pull requests, each under the project and session that it belongs to.
// On the activity queue, owned by the activity store.

#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/BackendGitHubPolls.h"
#include "backend/BackendGitScan.h"
#include "backend/BackendPass.h"
#include "github/GitHubAttribution.h"
#include "sessions/AgentSession.h"
#include "sessions/ProjectRootResolver.h"

namespace tessivane {

class BackendGitHubIngest final {
 public:
  /// `roots` outlives it.
  explicit BackendGitHubIngest(ProjectRootResolver& roots) : roots_(roots), attribution_(roots) {}

  /// From where the next poll asks.
  static std::optional<std::string> cursor(BackendEventStore& store);

  /// Brings the store in line with these pull requests, as far as they were opened or merged within
  /// its window, and moves the cursor if all of it was stored. `commonDirs`: the repositories that
  /// are known here.
  void store(const BackendPolled& polled,
             const BackendGitScan::Sessions& sessions,
             const std::set<std::string>& commonDirs,
             const BackendPass& pass);

 private:
  using Branch = std::optional<std::string>;

  void storeAll(const std::vector<GitHubPR>& prs,
                const BackendGitScan::Sessions& sessions,
                const std::set<std::string>& commonDirs,
                const BackendPass& pass);
  Branch branchOf(const AgentSession& session, const BackendGitScan::Sessions& sessions);
  Branch treesBranch(const AgentSession& session);

  ProjectRootResolver& roots_;
  GitHubAttribution attribution_;
  std::unordered_map<std::string, Branch> codexBranches_;  // by rollout, on which it began
};

}  // namespace tessivane
