#include "sessions/T3ThreadState.h"

namespace tessivane {

bool T3ThreadState::isSettled() const {
  if (settledOverride == "settled")
    return !settledAt || !unsettledAt || *settledAt >= *unsettledAt;
  return settledAt && *settledAt >= activity;
}

StatusAndDetail T3ThreadState::status(Date now) const {
  const std::string& word = sessionStatus;
  if (pending > 0)
    return {SessionStatus::needsYou, "Waiting for approval/input"};
  if (word == "running" || word == "queued" || word == "starting" || hasActiveTurn)
    return {SessionStatus::working, "Working"};
  if (word == "error" || word == "failed")
    return {SessionStatus::needsYou, "Errored"};
  if (isSettled())
    return {SessionStatus::idle, "Settled"};
  if (snoozedUntil && *snoozedUntil > now)
    return {SessionStatus::idle, "Snoozed in T3"};
  return {SessionStatus::yourTurn, "Done, your turn"};
}

}  // namespace tessivane
