#pragma once

// Where git keeps the files of a repository, read from the files themselves (the layout that
// gitrepository-layout(5) describes): no git command is run and nothing in a repository is written.
// Functions over paths, safe on every thread. What cannot be read yields nothing.
//
// A "common directory" is what all worktrees of a repository share. Every path that is given back
// is standardized.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "git/BackendReflogFile.h"

namespace tessivane {

struct BackendGitLayout {
  /// A repository with more logs than that is read in part.
  static constexpr std::size_t maxLogs = 50'000;

  /// The git directory of the working tree at `path` alone: its ".git" directory, or the one that
  /// its ".git" file names. Nothing when `path` is no working tree.
  static std::optional<std::string> gitDir(const std::string& path);

  /// The common directory of the working tree at `path`: its git directory, or what that leads to
  /// through "commondir". Nothing when `path` is no working tree.
  static std::optional<std::string> commonDir(const std::string& path);

  /// The directory above a common directory called ".git".
  static std::optional<std::string> mainWorktree(const std::string& dir);

  /// The working tree that belongs to the common directory itself: `mainWorktree`, or, as for a
  /// submodule's, the one that its config names if the ".git" file there leads back.
  static std::optional<std::string> ownWorktree(const std::string& dir);

  /// The working tree, the repository's own or a linked one, whose HEAD is on the branch.
  static std::optional<std::string> worktreeOnBranch(const std::string& dir,
                                                     std::string_view branch);

  /// The branch that a HEAD file names. A detached HEAD has none.
  static std::optional<std::string> currentBranch(const std::string& headFile);

  /// "owner/repo" of the remote "origin", by `slug`.
  static std::optional<std::string> remoteSlug(const std::string& dir);

  /// "owner/repo" in lower case, from the address of a repository on GitHub in any of the forms
  /// that git takes; nothing for another host. A port in a "scheme://" address is left out.
  static std::optional<std::string> slug(std::string_view url);

  /// The reflogs of HEAD, of the branches and of the HEADs of linked worktrees, in this order and
  /// each group sorted by path. Only regular files; git's lock files and links to directories are
  /// left out.
  static std::vector<BackendReflogFile> reflogFiles(const std::string& dir);
};

}  // namespace tessivane
