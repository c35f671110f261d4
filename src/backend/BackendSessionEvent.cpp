#include "backend/BackendSessionEvent.h"

#include <algorithm>
#include <utility>

#include "backend/BackendEventRow.h"
#include "backend/BackendSessionAgents.h"

namespace tessivane {

ActivityEvent BackendSessionEvent::make(const AgentSession& session, ActivityKind kind, Date date) {
  return {.kind = kind,
          .date = date,
          .projectRoot = session.projectPath,
          .projectName = BackendEventRow::projectName(session.projectPath),
          .sessionID = session.id(),
          .sessionTitle = session.title,
          .owner = session.agent,
          .engine = BackendSessionAgents::engine(session),
          .title = session.title};
}

ActivityEvent BackendSessionEvent::started(const AgentSession& session,
                                           std::string ref,
                                           Date start,
                                           Date now) {
  ActivityEvent event = make(session, ActivityKind::started, std::min(now, start));
  event.id = BackendEventRow::id(event.kind, event.projectRoot, ref);
  event.ref = std::move(ref);
  event.firstSeen = firstSeen(event.date, now);
  return event;
}

Date BackendSessionEvent::firstSeen(Date date, Date now) {
  return now - date < freshness ? now : distantPast;
}

}  // namespace tessivane
