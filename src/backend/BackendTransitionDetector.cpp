#include "backend/BackendTransitionDetector.h"

#include <algorithm>
#include <utility>

#include "backend/BackendEventRow.h"
#include "backend/BackendSessionEvent.h"

namespace tessivane {

namespace {

std::optional<ActivityKind> transition(std::optional<SessionStatus> before,
                                       const AgentSession& session,
                                       Date now) {
  if (session.status == SessionStatus::needsYou) {
    const bool isNews = before ? before != SessionStatus::needsYou
                               : now - session.activity <= BackendTransitionDetector::newsLimit;
    return isNews ? std::optional(ActivityKind::needsYou) : std::nullopt;
  }
  const bool finished = session.status == SessionStatus::yourTurn &&
                        before == SessionStatus::working && session.kind == SessionKind::session;
  return finished ? std::optional(ActivityKind::finished) : std::nullopt;
}

ActivityEvent makeEvent(const AgentSession& session, ActivityKind kind, Date now) {
  auto event = BackendSessionEvent::make(session, kind, std::min(now, session.activity));
  if (!session.detail.empty())
    event.detail = session.detail;
  event.firstSeen = now;
  event.id = BackendEventRow::id(kind, event.projectRoot, BackendEventRow::refColumn(event));
  return event;
}

}  // namespace

std::vector<ActivityEvent> BackendTransitionDetector::diff(
    const std::vector<AgentSession>& sessions, Date now) {
  Statuses current;
  for (const AgentSession& session : sessions)
    current[session.id()] = session.status;
  std::vector<ActivityEvent> events;
  if (previous_) {
    for (const AgentSession& session : sessions) {
      const auto before = previous_->find(session.id());
      const auto kind = transition(
          before == previous_->end() ? std::nullopt : std::optional(before->second), session, now);
      if (kind)
        events.push_back(makeEvent(session, *kind, now));
    }
  }
  previous_ = std::move(current);
  return events;
}

}  // namespace tessivane
