#include "sessions/ProjectRootResolver.h"

#include <utility>

#include "git/BackendGitLayout.h"
#include "support/Files.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

std::string findRoot(const std::string& cwd, const std::string& home) {
  std::string directory = standardizedPath(cwd);
  while (directory.starts_with('/') && directory != "/" && directory != home) {
    if (fileExists(joinedPath(directory, ".git")))
      return directory;
    const auto slash = directory.rfind('/');
    directory.resize(slash == 0 ? 1 : slash);
  }
  return cwd;
}

}  // namespace

ProjectRootResolver::ProjectRootResolver(std::string home) : home_(std::move(home)) {}

std::string ProjectRootResolver::root(const std::string& cwd) {
  const MutexLock guard(lock_);
  return rootWithLock(cwd);
}

std::optional<std::string> ProjectRootResolver::gitCommonDir(const std::string& cwd) {
  const MutexLock guard(lock_);
  const std::string root = rootWithLock(cwd);
  if (root.empty())
    return std::nullopt;
  const auto known = commonDirs_.find(root);
  if (known != commonDirs_.end())
    return known->second;
  auto found = BackendGitLayout::commonDir(root);
  // Where there is no repository yet, one may be made at any time.
  if (found)
    commonDirs_.emplace(root, *found);
  return found;
}

std::string ProjectRootResolver::rootWithLock(const std::string& cwd) {
  if (cwd.empty())
    return cwd;
  const auto known = cache_.find(cwd);
  if (known != cache_.end())
    return known->second;
  return cache_.emplace(cwd, findRoot(cwd, home_)).first->second;
}

}  // namespace tessivane
