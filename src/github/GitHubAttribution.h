#pragma once

// To which local project, and if possible to which session, a pull request belongs: told by the
// remotes of the repositories on this computer, then by the branch. Reads git's files only. On the
// activity queue, owned by the activity store.

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "sessions/AgentSession.h"
#include "sessions/ProjectRootResolver.h"
#include "support/Date.h"
#include "support/FunctionRef.h"

namespace tessivane {

struct GitHubTarget {
  std::string projectRoot = {};
  std::string projectName = {};
  std::optional<AgentSession> session = {};

  /// The stand-in for a repository that has no clone here: "github:{repo}".
  static GitHubTarget remoteOnly(std::string_view repo);

  friend bool operator==(const GitHubTarget&, const GitHubTarget&) = default;
};

class GitHubAttribution final {
 public:
  /// `roots` outlives it.
  explicit GitHubAttribution(ProjectRootResolver& roots) : roots_(roots) {}

  struct Query {
    std::string_view repo;  ///< "owner/name" in any case
    std::optional<std::string> branch;
    Date date;
    const std::vector<std::string>& commonDirs;  ///< the first that fits stands in for the others
    const std::vector<AgentSession>& sessions;
    FunctionRef<std::optional<std::string>(const AgentSession&)> branchOf;
  };

  GitHubTarget target(const Query& query);

  /// The branch on which a Codex rollout began, from its first line (Codex 0.120 to 0.169).
  static std::optional<std::string> codexBranch(const std::string& transcriptPath);
  static std::optional<std::string> parseCodexBranch(std::string_view line);

 private:
  std::optional<AgentSession> nearestSession(const Query& query,
                                             const std::vector<std::string>& clones);
  const std::unordered_set<std::string>& slugs(const std::string& commonDir);

  ProjectRootResolver& roots_;
  std::unordered_map<std::string, std::unordered_set<std::string>> slugsByCommonDir_;
};

}  // namespace tessivane
