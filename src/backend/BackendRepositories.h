#pragma once

// The repositories that sessions work in, by their common git directories. On the activity queue,
// owned by the activity store; reads git's files only.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sessions/AgentSession.h"
#include "sessions/ProjectRootResolver.h"

namespace tessivane {

class BackendRepositories final {
 public:
  using Dirs = std::set<std::string>;

  /// `roots` outlives it.
  explicit BackendRepositories(ProjectRootResolver& roots) : roots_(roots) {}

  /// Takes over where the sessions work. True when that makes other repositories than before.
  bool update(const std::vector<AgentSession>& sessions);

  const Dirs& dirs() const { return dirs_; }
  /// The repositories that these projects belong to.
  Dirs dirsOf(const std::vector<std::string>& projects);

  /// The repository one of whose logs, or a directory of logs, is at that path.
  std::optional<std::string> dirOfLog(std::string_view path) const;

  /// "owner/repo" of the repository that the project belongs to.
  std::optional<std::string> slug(const std::string& project);

 private:
  ProjectRootResolver& roots_;
  Dirs dirs_;
  std::unordered_map<std::string, std::optional<std::string>> slugs_;  // by common directory
};

}  // namespace tessivane
