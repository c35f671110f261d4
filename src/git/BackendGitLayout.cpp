#include "git/BackendGitLayout.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <utility>

#include "git/BackendGitConfig.h"
#include "support/Files.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

namespace fs = std::filesystem;

// The pointer files of git hold one path. One far larger than any path is not git's.
constexpr std::size_t maxPointerFile = 64 * 1024;
constexpr std::size_t maxConfigFile = 4 * 1024 * 1024;

std::string resolved(std::string_view path, const std::string& base) {
  return standardizedPath(path.starts_with('/') ? std::string(path) : joinedPath(base, path));
}

std::string parentOf(const std::string& path) {
  return fs::path(path).parent_path().string();
}

// The path in a pointer file, resolved against `base`.
std::optional<std::string> pointedAt(const std::string& file, const std::string& base) {
  const auto text = readWholeFile(file, maxPointerFile);
  if (!text || trimmed(*text).empty())
    return std::nullopt;
  return resolved(trimmed(*text), base);
}

// The path after "gitdir:" in a worktree's ".git" file.
std::optional<std::string_view> gitdirOf(std::string_view text) {
  constexpr std::string_view prefix = "gitdir:";
  while (!text.empty()) {
    const auto line = text.substr(0, text.find('\n'));
    if (line.starts_with(prefix)) {
      const auto path = trimmed(line.substr(prefix.size()));
      if (path.empty())
        return std::nullopt;
      return path;
    }
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  return std::nullopt;
}

// The working tree of a linked worktree's git directory, which names the tree's ".git" file.
std::optional<std::string> linkedWorktree(const std::string& admin) {
  const auto dotGit = pointedAt(joinedPath(admin, "gitdir"), admin);
  if (!dotGit || lastPathComponent(*dotGit) != ".git")
    return std::nullopt;
  return parentOf(*dotGit);
}

// The git directories of the linked worktrees.
std::vector<std::string> adminDirectories(const std::string& dir) {
  const std::string worktrees = joinedPath(dir, "worktrees");
  auto paths = directoryEntries(worktrees);
  for (std::string& path : paths)
    path = joinedPath(worktrees, path);
  std::ranges::sort(paths);
  return paths;
}

// The logs below `heads`. Links are not followed downwards, so that a loop of them ends here.
std::vector<BackendReflogFile> branchLogs(const std::string& heads,
                                          const std::optional<std::string>& worktree) {
  std::vector<BackendReflogFile> files;
  std::error_code failure;
  constexpr auto options = fs::directory_options::skip_permission_denied;
  fs::recursive_directory_iterator entries(heads, options, failure);
  for (; !failure && entries != fs::end(entries); entries.increment(failure)) {
    const std::string path = entries->path().string();
    std::error_code gone;
    if (path.ends_with(".lock") || !entries->is_regular_file(gone))
      continue;
    if (files.size() == BackendGitLayout::maxLogs)
      break;
    files.push_back({.path = path,
                     .worktree = worktree,
                     .branch = repairedUTF8(std::string_view(path).substr(heads.size() + 1))});
  }
  std::ranges::sort(files, {}, &BackendReflogFile::path);
  return files;
}

// What follows the host's name in the address, its first ":" or "/" included.
std::optional<std::string_view> behindHost(std::string_view lowered) {
  constexpr std::string_view host = "github.com";
  constexpr std::string_view nameCharacters = "abcdefghijklmnopqrstuvwxyz0123456789-_";
  for (auto at = lowered.find(host); at != std::string_view::npos;
       at = lowered.find(host, at + 1)) {
    const auto rest = lowered.substr(at + host.size());
    const bool isWhole = at == 0 || nameCharacters.find(lowered[at - 1]) == std::string_view::npos;
    if (isWhole && (rest.starts_with(':') || rest.starts_with('/')))
      return rest;
  }
  return std::nullopt;
}

void dropFirst(std::string_view& text, std::string_view characters) {
  text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

}  // namespace

std::optional<std::string> BackendGitLayout::gitDir(const std::string& path) {
  const std::string dotGit = joinedPath(path, ".git");
  std::error_code failure;
  if (fs::is_directory(dotGit, failure))
    return standardizedPath(dotGit);
  const auto pointer = readWholeFile(dotGit, maxPointerFile);
  const auto gitdir = pointer ? gitdirOf(*pointer) : std::nullopt;
  if (!gitdir)
    return std::nullopt;
  return resolved(*gitdir, path);
}

std::optional<std::string> BackendGitLayout::commonDir(const std::string& path) {
  auto own = gitDir(path);
  if (!own || *own == standardizedPath(joinedPath(path, ".git")))
    return own;
  if (auto common = pointedAt(joinedPath(*own, "commondir"), *own))
    return common;
  return own;
}

std::optional<std::string> BackendGitLayout::mainWorktree(const std::string& dir) {
  if (lastPathComponent(dir) != ".git")
    return std::nullopt;
  return parentOf(standardizedPath(dir));
}

std::optional<std::string> BackendGitLayout::ownWorktree(const std::string& dir) {
  if (auto tree = mainWorktree(dir))
    return tree;
  const auto config = readWholeFile(joinedPath(dir, "config"), maxConfigFile);
  const auto named = config ? BackendGitConfig::value(*config, "[core]", "worktree") : std::nullopt;
  if (!named || named->empty())
    return std::nullopt;
  auto tree = resolved(*named, dir);
  if (gitDir(tree) != standardizedPath(dir))
    return std::nullopt;
  return tree;
}

std::optional<std::string> BackendGitLayout::worktreeOnBranch(const std::string& dir,
                                                              std::string_view branch) {
  if (currentBranch(joinedPath(dir, "HEAD")) == branch) {
    if (auto tree = ownWorktree(dir))
      return tree;
  }
  for (const std::string& admin : adminDirectories(dir)) {
    if (currentBranch(joinedPath(admin, "HEAD")) != branch)
      continue;
    if (auto tree = linkedWorktree(admin))
      return tree;
  }
  return std::nullopt;
}

std::optional<std::string> BackendGitLayout::currentBranch(const std::string& headFile) {
  constexpr std::string_view prefix = "ref: refs/heads/";
  const auto text = readWholeFile(headFile, maxPointerFile);
  const auto line = text ? trimmed(*text) : std::string_view();
  if (!line.starts_with(prefix) || line.size() == prefix.size())
    return std::nullopt;
  return repairedUTF8(line.substr(prefix.size()));
}

std::optional<std::string> BackendGitLayout::remoteSlug(const std::string& dir) {
  const auto config = readWholeFile(joinedPath(dir, "config"), maxConfigFile);
  const auto url =
      config ? BackendGitConfig::value(*config, "[remote \"origin\"]", "url") : std::nullopt;
  if (!url)
    return std::nullopt;
  return slug(*url);
}

std::optional<std::string> BackendGitLayout::slug(std::string_view url) {
  const std::string lowered = loweredASCII(url);
  auto rest = behindHost(lowered).value_or("");
  if (rest.starts_with(':') && lowered.find("://") != std::string::npos) {
    rest.remove_prefix(1);
    dropFirst(rest, "0123456789");
  }
  dropFirst(rest, ":/");
  const auto owner = rest.substr(0, rest.find('/'));
  rest.remove_prefix(owner.size());
  dropFirst(rest, "/");
  auto repository = rest.substr(0, rest.find('/'));
  if (repository.ends_with(".git"))
    repository.remove_suffix(4);
  if (owner.empty() || repository.empty())
    return std::nullopt;
  return std::string(owner) + '/' + std::string(repository);
}

std::vector<BackendReflogFile> BackendGitLayout::reflogFiles(const std::string& dir) {
  const auto tree = ownWorktree(dir);
  std::vector<BackendReflogFile> files;
  if (const auto head = joinedPath(dir, "logs/HEAD"); fileStamp(head))
    files.push_back({.path = head, .worktree = tree, .headFile = joinedPath(dir, "HEAD")});
  std::ranges::move(branchLogs(joinedPath(dir, "logs/refs/heads"), tree),
                    std::back_inserter(files));
  for (const std::string& admin : adminDirectories(dir)) {
    const std::string log = joinedPath(admin, "logs/HEAD");
    if (files.size() > maxLogs || !fileStamp(log))
      continue;
    files.push_back({.path = log,
                     .worktree = linkedWorktree(admin),
                     .headFile = joinedPath(admin, "HEAD"),
                     .isLinked = true});
  }
  return files;
}

}  // namespace tessivane
