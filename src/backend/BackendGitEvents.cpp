#include "backend/BackendGitEvents.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "backend/BackendEventRow.h"
#include "backend/BackendSessionEvent.h"
#include "support/FunctionRef.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t maxTitleCharacters = 200;

bool wasActive(const BackendGitSession& candidate, Date date) {
  return candidate.session.activity >= date - BackendGitEvents::patience;
}

// Conversations of a person come first, then what was active nearest to the date. Where both leave
// a tie, the session that was active later, and then the id, so that the list's order is of no
// matter.
const BackendGitSession* best(const std::vector<BackendGitSession>& sessions,
                              Date date,
                              FunctionRef<bool(const BackendGitSession&)> qualifies) {
  const auto rank = [date](const BackendGitSession& candidate) {
    const Date activity = candidate.session.activity;
    return std::tuple(candidate.session.kind != SessionKind::session,
                      activity < date ? date - activity : activity - date,
                      activity < date,
                      candidate.session.id());
  };
  const BackendGitSession* winner = nullptr;
  for (const BackendGitSession& candidate : sessions) {
    if (qualifies(candidate) && (winner == nullptr || rank(candidate) < rank(*winner)))
      winner = &candidate;
  }
  return winner;
}

// An event at the session's project, else at `root`; nothing when that is not known either.
std::optional<ActivityEvent> eventAt(ActivityKind kind,
                                     Date date,
                                     const BackendGitSession* session,
                                     const std::optional<std::string>& root) {
  ActivityEvent event{.kind = kind, .date = date};
  if (session != nullptr)
    event = BackendSessionEvent::make(session->session, kind, date);
  if (event.projectRoot.empty())
    event.projectRoot = root.value_or("");
  if (event.projectRoot.empty())
    return std::nullopt;
  event.projectName = BackendEventRow::projectName(event.projectRoot);
  return event;
}

void giveRef(ActivityEvent& event, std::string ref) {
  event.id = BackendEventRow::id(event.kind, event.projectRoot, ref);
  event.ref = std::move(ref);
}

}  // namespace

bool BackendGitEvents::isCommit(const BackendReflogEntry& entry) {
  return entry.message.starts_with("commit:") || entry.message.starts_with("commit (");
}

std::string BackendGitEvents::title(std::string_view message) {
  constexpr std::string_view separator = ": ";
  const auto colon = message.find(separator);
  if (colon == std::string_view::npos)
    return {};  // "commit:" alone is a commit with an empty message
  const std::string line = collapsedWhitespace(message.substr(colon + separator.size()));
  return std::string(prefixCharacters(line, maxTitleCharacters));
}

const BackendGitSession* BackendGitEvents::sessionOf(
    const BackendGitCommit& commit, const std::vector<BackendGitSession>& sessions) {
  return best(sessions, commit.date, [&commit](const BackendGitSession& candidate) {
    const bool elsewhere =
        candidate.ownBranch && commit.branch && candidate.ownBranch != commit.branch;
    return candidate.tree == commit.tree && !elsewhere && wasActive(candidate, commit.date);
  });
}

const BackendGitSession* BackendGitEvents::sessionOf(
    const BackendBranchCreation& creation, const std::vector<BackendGitSession>& sessions) {
  const auto* inside = best(sessions, creation.date, [&creation](const auto& candidate) {
    return candidate.tree == creation.worktree;
  });
  if (inside != nullptr || !creation.branch)
    return inside;
  return best(sessions, creation.date, [&creation](const BackendGitSession& candidate) {
    return candidate.branch() == creation.branch && wasActive(candidate, creation.date);
  });
}

std::optional<ActivityEvent> BackendGitEvents::event(const BackendGitCommit& commit,
                                                     const BackendGitSession* session) {
  auto event = eventAt(ActivityKind::commit, commit.date, session, commit.tree);
  if (!event)
    return std::nullopt;
  event->title = title(commit.message);
  event->branch = commit.branch;
  giveRef(*event, commit.hash);
  return event;
}

std::optional<ActivityEvent> BackendGitEvents::event(const BackendBranchCreation& creation,
                                                     const BackendGitSession* session,
                                                     const std::optional<std::string>& home) {
  auto event = eventAt(
      ActivityKind::branched, creation.date, session, creation.worktree ? creation.worktree : home);
  if (!event)
    return std::nullopt;
  event->title = creation.name;
  if (creation.worktree)
    event->detail = "worktree";
  event->branch = creation.branch;
  giveRef(*event, creation.key());
  return event;
}

}  // namespace tessivane
