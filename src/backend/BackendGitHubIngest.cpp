#include "backend/BackendGitHubIngest.h"

#include <utility>

#include "backend/BackendEventRow.h"
#include "backend/BackendSessionEvent.h"
#include "backend/BackendTranscripts.h"
#include "git/BackendGitLayout.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::string_view cursorKey = "github.cursor";

struct Happening {
  ActivityKind kind = ActivityKind::prOpened;
  Date date = distantPast;
};

std::vector<Happening> happenings(const GitHubPR& pr, Date since) {
  std::vector<Happening> found;
  if (pr.createdAt >= since)
    found.push_back({ActivityKind::prOpened, pr.createdAt});
  if (pr.mergedAt && *pr.mergedAt >= since)
    found.push_back({ActivityKind::prMerged, *pr.mergedAt});
  return found;
}

ActivityEvent eventOf(const BackendEventStore::PullRequest& pr, const GitHubTarget& target) {
  ActivityEvent event{.kind = pr.kind, .date = pr.date};
  if (target.session)
    event = BackendSessionEvent::make(*target.session, pr.kind, pr.date);
  event.id = BackendEventRow::id(pr.kind, target.projectRoot, pr.number);
  event.projectRoot = target.projectRoot;
  event.projectName = target.projectName;
  event.ref = pr.number;
  event.title = pr.title;
  event.detail = pr.slug;
  event.branch = pr.branch;
  return event;
}

void reconcile(const BackendEventStore::PullRequest& pr,
               const GitHubTarget& target,
               const BackendPass& pass) {
  using Kind = BackendEventStore::PRReconcile::Kind;
  auto result = pass.store.reconcilePR(pr);
  switch (result.kind) {
    case Kind::updated:
      pass.outbox.correct(std::move(*result.event));
      break;
    case Kind::missing: {
      ActivityEvent event = eventOf(pr, target);
      event.firstSeen = pass.firstSeen(event.date);
      pass.insert(event);
      break;
    }
    case Kind::unchanged:
      break;
  }
}

}  // namespace

std::optional<std::string> BackendGitHubIngest::cursor(BackendEventStore& store) {
  return store.value(cursorKey);
}

// What a first poll brings happened before, however fresh it is.
void BackendGitHubIngest::store(const BackendPolled& polled,
                                const BackendGitScan::Sessions& sessions,
                                const std::set<std::string>& commonDirs,
                                const BackendPass& pass) {
  BackendPass own = pass;
  own.kind = polled.catchUp ? BackendGitScan::Pass::startUp : BackendGitScan::Pass::live;
  const auto failures = pass.failures();
  storeAll(polled.prs, sessions, commonDirs, own);
  if (polled.cursor && pass.failures() == failures && !pass.isStopped())
    pass.store.setValue(cursorKey, *polled.cursor);
}

void BackendGitHubIngest::storeAll(const std::vector<GitHubPR>& prs,
                                   const BackendGitScan::Sessions& sessions,
                                   const std::set<std::string>& commonDirs,
                                   const BackendPass& pass) {
  const std::vector<std::string> dirs(commonDirs.begin(), commonDirs.end());
  // Each session is asked once, however many pull requests its repository has.
  std::unordered_map<std::string, Branch> branches;
  const auto branch = [&](const AgentSession& session) {
    const auto [place, isNew] = branches.try_emplace(session.id());
    if (isNew)
      place->second = branchOf(session, sessions);
    return place->second;
  };
  for (const GitHubPR& pr : prs) {
    const auto found = happenings(pr, pass.now - BackendEventStore::window);
    if (found.empty() || pass.isStopped())
      continue;
    const GitHubTarget target = attribution_.target({.repo = pr.repo,
                                                     .branch = pr.headRefName,
                                                     .date = pr.createdAt,
                                                     .commonDirs = dirs,
                                                     .sessions = sessions.list,
                                                     .branchOf = branch});
    for (const Happening& happening : found) {
      reconcile({.kind = happening.kind,
                 .number = std::to_string(pr.number),
                 .slug = loweredASCII(pr.repo),
                 .root = target.projectRoot,
                 .date = happening.date,
                 .title = pr.title,
                 .branch = pr.headRefName},
                target,
                pass);
    }
  }
}

// As the transcript told last, else as it began, else as the working tree is now.
BackendGitHubIngest::Branch BackendGitHubIngest::branchOf(
    const AgentSession& session, const BackendGitScan::Sessions& sessions) {
  const auto told = sessions.branches.find(session.id());
  if (told != sessions.branches.end())
    return told->second;
  if (session.transcriptPath && BackendTranscripts::isRollout(session)) {
    std::optional<std::string>& known = codexBranches_[*session.transcriptPath];
    if (!known)
      known = GitHubAttribution::codexBranch(*session.transcriptPath);
    if (known)
      return known;
  }
  return treesBranch(session);
}

BackendGitHubIngest::Branch BackendGitHubIngest::treesBranch(const AgentSession& session) {
  const auto dir = BackendGitLayout::gitDir(roots_.root(workingDirectory(session)));
  return dir ? BackendGitLayout::currentBranch(joinedPath(*dir, "HEAD")) : std::nullopt;
}

}  // namespace tessivane
