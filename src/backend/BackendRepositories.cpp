#include "backend/BackendRepositories.h"

#include <utility>

#include "git/BackendGitLayout.h"

namespace tessivane {

namespace {

// "logs" and what is below, and the same in "worktrees/{name}". The directories themselves count:
// when one comes into being its first log may be there already, untold.
bool isOfLogs(std::string_view path) {
  constexpr std::string_view worktrees = "worktrees";
  if (path.starts_with(worktrees)) {
    path.remove_prefix(worktrees.size());
    const auto slash = path.find('/', 1);
    if (path.empty() || slash == std::string_view::npos)
      return path.empty() || path.front() == '/';
    path.remove_prefix(slash + 1);
  }
  return path == "logs" || path.starts_with("logs/");
}

}  // namespace

bool BackendRepositories::update(const std::vector<AgentSession>& sessions) {
  Dirs dirs;
  for (const AgentSession& session : sessions) {
    const std::string& place = workingDirectory(session);
    if (auto dir = place.empty() ? std::nullopt : roots_.gitCommonDir(place))
      dirs.insert(std::move(*dir));
  }
  const bool areOthers = dirs != dirs_;
  dirs_ = std::move(dirs);
  return areOthers;
}

BackendRepositories::Dirs BackendRepositories::dirsOf(const std::vector<std::string>& projects) {
  Dirs dirs;
  for (const std::string& project : projects) {
    if (auto dir = project.empty() ? std::nullopt : roots_.gitCommonDir(project))
      dirs.insert(std::move(*dir));
  }
  return dirs;
}

std::optional<std::string> BackendRepositories::dirOfLog(std::string_view path) const {
  for (auto slash = path.find('/', 1); slash != std::string_view::npos;
       slash = path.find('/', slash + 1)) {
    if (!isOfLogs(path.substr(slash + 1)))
      continue;
    std::string dir(path.substr(0, slash));
    if (dirs_.contains(dir))
      return dir;
  }
  return std::nullopt;
}

std::optional<std::string> BackendRepositories::slug(const std::string& project) {
  const auto dir = project.empty() ? std::nullopt : roots_.gitCommonDir(project);
  if (!dir)
    return std::nullopt;
  const auto [place, isNew] = slugs_.try_emplace(*dir);
  if (isNew)
    place->second = BackendGitLayout::remoteSlug(*dir);
  return place->second;
}

}  // namespace tessivane
