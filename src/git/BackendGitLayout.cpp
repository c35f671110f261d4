#include "git/BackendGitLayout.h"

#include <filesystem>
#include <string_view>

#include "support/Files.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

// The pointer files of git hold one path. One far larger than any path is not git's.
constexpr std::size_t maxPointerFile = 64 * 1024;

std::string resolved(std::string_view path, const std::string& base) {
  return standardizedPath(path.starts_with('/') ? std::string(path) : joinedPath(base, path));
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

}  // namespace

std::optional<std::string> BackendGitLayout::commonDir(const std::string& path) {
  const std::string dotGit = joinedPath(path, ".git");
  std::error_code failure;
  if (std::filesystem::is_directory(dotGit, failure))
    return standardizedPath(dotGit);
  const auto pointer = readWholeFile(dotGit, maxPointerFile);
  if (!pointer)
    return std::nullopt;
  const auto gitdir = gitdirOf(*pointer);
  if (!gitdir)
    return std::nullopt;
  const std::string own = resolved(*gitdir, path);
  const auto common = readWholeFile(joinedPath(own, "commondir"), maxPointerFile);
  if (!common || trimmed(*common).empty())
    return own;
  return resolved(trimmed(*common), own);
}

}  // namespace tessivane
