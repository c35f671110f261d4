#pragma once

// Where git keeps the files of a repository, read from the files themselves: no git command is run
// and nothing in a repository is written. Functions over paths, safe on every thread.

#include <optional>
#include <string>

namespace tessivane {

struct BackendGitLayout {
  /// The directory that all worktrees of the repository share, for the working tree at `path`:
  /// its ".git" directory, or what its ".git" file leads to through "commondir" (git's
  /// gitrepository-layout). Standardized; nothing when `path` is no working tree.
  static std::optional<std::string> commonDir(const std::string& path);
};

}  // namespace tessivane
