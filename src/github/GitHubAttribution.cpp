#include "github/GitHubAttribution.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "git/BackendGitLayout.h"
#include "github/GitHubRemoteURL.h"
#include "support/Files.h"
#include "support/JSON.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t maxConfig = std::size_t{4} * 1024 * 1024;
// Codex puts its instructions into the first line too, some tens of kilobytes of them.
constexpr std::size_t maxFirstLine = std::size_t{4} * 1024 * 1024;
constexpr std::size_t chunk = 65'536;

GitHubTarget targetAt(const std::string& root, std::optional<AgentSession> session = {}) {
  return {.projectRoot = root,
          .projectName = std::string(lastPathComponent(root)),
          .session = std::move(session)};
}

std::optional<std::string> readConfig(const std::string& commonDir) {
  return readWholeFile(joinedPath(commonDir, "config"), maxConfig);
}

std::optional<std::string> firstLine(const std::string& path) {
  const auto file = RegularFile::open(path);
  std::string line;
  std::array<char, chunk> piece{};
  while (file && line.size() < maxFirstLine) {
    const auto count =
        file->read(piece.data(), piece.size(), static_cast<std::int64_t>(line.size()));
    if (!count || *count == 0)
      return std::nullopt;
    const std::string_view text(piece.data(), *count);
    const auto end = text.find('\n');
    line += text.substr(0, end);
    if (end != std::string_view::npos)
      return line;
  }
  return std::nullopt;
}

}  // namespace

GitHubTarget GitHubTarget::remoteOnly(std::string_view repo) {
  return {.projectRoot = "github:" + std::string(repo),
          .projectName = std::string(repo.substr(repo.rfind('/') + 1))};
}

GitHubTarget GitHubAttribution::target(const Query& query) {
  const std::string repo = loweredASCII(query.repo);
  std::vector<std::string> clones;
  for (const std::string& dir : query.commonDirs) {
    if (slugs(dir).contains(repo))
      clones.push_back(dir);
  }
  if (clones.empty())
    return GitHubTarget::remoteOnly(repo);
  if (query.branch && !query.branch->empty()) {
    if (const auto session = nearestSession(query, clones))
      return targetAt(roots_.root(workingDirectory(*session)), session);
    for (const std::string& dir : clones) {
      if (const auto tree = BackendGitLayout::worktreeOnBranch(dir, *query.branch))
        return targetAt(*tree);
    }
  }
  const auto tree = BackendGitLayout::mainWorktree(clones.front());
  return tree ? targetAt(*tree) : GitHubTarget::remoteOnly(repo);
}

// Of two that were active equally near the date, the one listed first.
std::optional<AgentSession> GitHubAttribution::nearestSession(
    const Query& query, const std::vector<std::string>& clones) {
  const AgentSession* nearest = nullptr;
  const auto distance = [&query](const AgentSession& session) {
    return std::chrono::abs(elapsed(query.date, session.activity));
  };
  for (const AgentSession& session : query.sessions) {
    const auto dir = roots_.gitCommonDir(workingDirectory(session));
    if (!dir || std::ranges::find(clones, *dir) == clones.end() ||
        query.branchOf(session) != query.branch)
      continue;
    if (nearest == nullptr || distance(session) < distance(*nearest))
      nearest = &session;
  }
  if (nearest == nullptr)
    return std::nullopt;
  return *nearest;
}

const std::unordered_set<std::string>& GitHubAttribution::slugs(const std::string& commonDir) {
  const auto [entry, isNew] = slugsByCommonDir_.try_emplace(commonDir);
  if (!isNew)
    return entry->second;
  if (const auto config = readConfig(commonDir)) {
    for (const std::string& url : GitHubRemoteURL::remoteURLs(*config)) {
      if (const auto name = GitHubRemoteURL::nameWithOwner(url))
        entry->second.insert(loweredASCII(*name));
    }
  }
  return entry->second;
}

std::optional<std::string> GitHubAttribution::codexBranch(const std::string& transcriptPath) {
  const auto line = firstLine(transcriptPath);
  return line ? parseCodexBranch(*line) : std::nullopt;
}

std::optional<std::string> GitHubAttribution::parseCodexBranch(std::string_view line) {
  JSONReader reader;
  std::optional<std::string> branch;
  const bool isWhole = reader.visit(line, [&branch](std::string_view key, JSONValue& value) {
    if (key != "payload")
      return;
    value.visitFields([&branch](std::string_view payloadKey, JSONValue& payload) {
      if (payloadKey != "git")
        return;
      payload.visitFields([&branch](std::string_view gitKey, JSONValue& git) {
        if (gitKey != "branch")
          return;
        const auto text = git.text();
        branch = text ? std::optional(text->decoded()) : std::nullopt;
      });
    });
  });
  return isWhole ? branch : std::nullopt;
}

}  // namespace tessivane
