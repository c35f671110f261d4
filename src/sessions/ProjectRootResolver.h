#pragma once

// Maps working directories to project roots, and project roots to git's common directories. Safe
// on every thread: its own lock covers the walk through the file system. Owned by
// `SessionDiscovery`, shared with the activity backend. What it has found it keeps for the run.

#include <optional>
#include <string>
#include <unordered_map>

#include "support/Mutex.h"

namespace tessivane {

class ProjectRootResolver final {
 public:
  /// `home` is never taken for a project, even when it holds a repository.
  explicit ProjectRootResolver(std::string home);

  /// The nearest directory at or above `cwd` that holds an entry named ".git", a linked worktree's
  /// file included. Where there is none below the home directory or "/", `cwd` as it was given.
  std::string root(const std::string& cwd);

  /// The common git directory of the project that holds `cwd`; nothing outside a repository.
  std::optional<std::string> gitCommonDir(const std::string& cwd);

 private:
  std::string rootWithLock(const std::string& cwd) REQUIRES_LOCK(lock_);

  const std::string home_;
  Mutex lock_;
  std::unordered_map<std::string, std::string> cache_ GUARDED_BY(lock_);
  std::unordered_map<std::string, std::string> commonDirs_ GUARDED_BY(lock_);
};

}  // namespace tessivane
