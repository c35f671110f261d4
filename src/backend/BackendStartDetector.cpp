#include "backend/BackendStartDetector.h"

#include <utility>

#include "backend/BackendEventStore.h"
#include "backend/BackendSessionEvent.h"

namespace tessivane {

std::vector<ActivityEvent> BackendStartDetector::events(const std::vector<AgentSession>& sessions,
                                                        Date now) {
  std::vector<ActivityEvent> events;
  for (const AgentSession& session : sessions) {
    if (session.kind == SessionKind::automation || !session.startedAt)
      continue;
    if (!seen_.insert(session.id()).second || *session.startedAt < now - BackendEventStore::window)
      continue;
    auto event = BackendSessionEvent::started(session, session.id(), *session.startedAt, now);
    if (session.kind == SessionKind::subagent)
      event.detail = rawValue(SessionKind::subagent);
    events.push_back(std::move(event));
  }
  return events;
}

}  // namespace tessivane
