#include "rush/RushTable.h"

#include <algorithm>
#include <memory_resource>
#include <string_view>
#include <tuple>
#include <utility>

namespace tessivane {

namespace {

using Outcome = RushHistoryEntry::Outcome;

// `session.id()` in a string that is used again, as most ids are too long to need no allocation.
const std::string& setID(std::string& id, const AgentSession& session) {
  id = rawValue(session.agent);
  id += ':';
  id += session.nativeID;
  return id;
}

// Ids are compared by their two parts. That gives the same result and the same order: no agent's
// word is the beginning of another, and the words ascend with the enumeration.
bool sameID(const AgentSession& a, const AgentSession& b) {
  return a.agent == b.agent && a.nativeID == b.nativeID;
}

const AgentSession* find(RushTable::Sessions sessions, const AgentSession& wanted) {
  const auto found =
      std::ranges::find_if(sessions, [&](const auto& session) { return sameID(session, wanted); });
  return found == sessions.end() ? nullptr : &*found;
}

// The copy of `session` in the list, else the one we have.
const AgentSession& liveCopy(RushTable::Sessions sessions, const AgentSession& session) {
  const AgentSession* live = find(sessions, session);
  return live != nullptr ? *live : session;
}

// The two parts of an id.
struct Key {
  Agent agent = Agent::claude;
  std::string_view nativeID = {};

  friend bool operator==(const Key&, const Key&) = default;
};

struct KeyHash {
  std::size_t operator()(const Key& key) const {
    return std::hash<std::string_view>{}(key.nativeID) + static_cast<std::size_t>(key.agent);
  }
};

std::optional<Key> keyOf(std::string_view id) {
  for (const Agent agent : allAgents) {
    const std::string_view word = rawValue(agent);
    if (id.starts_with(word) && id.substr(word.size()).starts_with(':'))
      return Key{.agent = agent, .nativeID = id.substr(word.size() + 1)};
  }
  return std::nullopt;
}

// The sessions of one list by id, the first of each. Borrows the list.
class SessionIndex final {
 public:
  explicit SessionIndex(RushTable::Sessions sessions) {
    sessions_.reserve(sessions.size());
    for (const AgentSession& session : sessions)
      sessions_.try_emplace(Key{session.agent, session.nativeID}, &session);
  }

  const AgentSession* find(std::string_view id) const {
    const auto key = keyOf(id);
    const auto found = key ? sessions_.find(*key) : sessions_.end();
    return found == sessions_.end() ? nullptr : found->second;
  }

 private:
  // One piece of memory instead of one for each session.
  std::pmr::monotonic_buffer_resource memory_;
  std::pmr::unordered_map<Key, const AgentSession*, KeyHash> sessions_{&memory_};
};

// Forgets what new activity or time has made void.
void pruneDone(RushTable& table, const SessionIndex& live, Date now, const Calendar& calendar) {
  std::optional<Date> start;  // asking the calendar is dear, and seldom needed
  std::erase_if(table.done, [&](const auto& entry) {
    if (const AgentSession* session = live.find(entry.first))
      return session->activity != entry.second;
    if (!start)
      start = windowStart(now, calendar);
    return entry.second < *start;
  });
}

// Wakes who has slept long enough or has a request that is newer than the snooze. To the queue
// they are as good as new.
void settleSnoozes(RushTable& table, const SessionIndex& live, Date now) {
  for (auto entry = table.snoozed.begin(); entry != table.snoozed.end();) {
    RushSnoozed& snooze = entry->second;
    bool wakes = snooze.until <= now;
    if (const AgentSession* session = live.find(entry->first)) {
      if (session->status != SessionStatus::needsYou)
        snooze.waitingOnApproval = false;  // answered: the next request breaks through
      else if (!snooze.waitingOnApproval)
        wakes = true;
    }
    if (!wakes) {
      ++entry;
      continue;
    }
    table.dealOrder.erase(entry->first);
    entry = table.snoozed.erase(entry);
  }
}

// A member of the queue with all that its place depends on.
struct Waiting {
  enum class Group { request, finishedTurn, dealtBefore };

  Group group = Group::request;
  std::int64_t rank = 0;
  const AgentSession* session = nullptr;

  friend bool operator<(const Waiting& a, const Waiting& b) {
    return std::tie(a.group, a.rank, a.session->agent, a.session->nativeID) <
           std::tie(b.group, b.rank, b.session->agent, b.session->nativeID);
  }
};

Waiting newcomer(const AgentSession& session) {
  const std::int64_t activity = session.activity.time_since_epoch().count();
  if (session.status == SessionStatus::needsYou)
    return {.group = Waiting::Group::request, .rank = activity, .session = &session};
  return {.group = Waiting::Group::finishedTurn, .rank = -activity, .session = &session};
}

void lower(std::int64_t& counter) {
  counter = std::max<std::int64_t>(counter - 1, 0);
}

}  // namespace

bool RushTable::isAvailable(const AgentSession& session, const std::string& id, Date now) const {
  const bool isRequest = session.status == SessionStatus::needsYou;
  if (session.isNoise() || (!isRequest && session.status != SessionStatus::yourTurn))
    return false;
  if (seat && sameID(*seat, session))
    return false;
  if (const auto entry = done.find(id); entry != done.end() && entry->second == session.activity)
    return false;
  const auto entry = snoozed.find(id);
  if (entry == snoozed.end() || entry->second.until <= now)
    return true;
  return isRequest && !entry->second.waitingOnApproval;
}

std::vector<const AgentSession*> RushTable::queue(Sessions sessions,
                                                  Date now,
                                                  const Calendar& calendar) const {
  const Date earliest = filter.earliestActivity(now, calendar);
  std::vector<Waiting> waiting;
  waiting.reserve(sessions.size());
  std::string id;
  for (const AgentSession& session : sessions) {
    if (!filter.matchesSince(earliest, session) || !isAvailable(session, setID(id, session), now))
      continue;
    const auto order = dealOrder.find(id);
    waiting.push_back(order == dealOrder.end() ? newcomer(session)
                                               : Waiting{.group = Waiting::Group::dealtBefore,
                                                         .rank = order->second,
                                                         .session = &session});
  }
  std::ranges::stable_sort(waiting, std::less{});

  std::vector<const AgentSession*> queue;
  queue.reserve(waiting.size());
  for (const Waiting& member : waiting)
    queue.push_back(member.session);
  if (nextUpID) {
    const auto first = std::ranges::find_if(
        queue, [&](const AgentSession* session) { return setID(id, *session) == *nextUpID; });
    if (first != queue.end())
      std::rotate(queue.begin(), first, first + 1);
  }
  return queue;
}

RushChange RushTable::sync(Sessions sessions, Date now, const Calendar& calendar) {
  if (!done.empty() || !snoozed.empty()) {
    const SessionIndex live(sessions);
    pruneDone(*this, live, now, calendar);
    settleSnoozes(*this, live, now);
  }
  return seat ? syncSeat(sessions, now, calendar) : dealNext(sessions, now, calendar);
}

RushChange RushTable::syncSeat(Sessions sessions, Date now, const Calendar& calendar) {
  const AgentSession* live = find(sessions, *seat);
  if (live == nullptr) {
    // A clock that was set back must not keep the seat until it has caught up.
    if (!seatMissingSince || *seatMissingSince > now)
      seatMissingSince = now;
    if (elapsed(*seatMissingSince, now) < missingGrace)
      return {};
    record(*seat, Outcome::movedOn, now);
    return dealNext(sessions, now, calendar);
  }

  seat = *live;
  seatMissingSince.reset();
  const bool isHeld = hold || returnedSeatID == seat->id();
  switch (seat->status) {
    case SessionStatus::needsYou:
      return {};
    case SessionStatus::yourTurn:
      if (seat->kind == SessionKind::session)
        return {};
      record(*seat, Outcome::movedOn, now);
      break;
    case SessionStatus::working:
      if (isHeld)
        return {};
      ++stats.played;
      record(*seat, Outcome::played, now);
      break;
    case SessionStatus::idle:
      if (isHeld)
        return {};
      record(*seat, Outcome::movedOn, now);
      break;
  }
  return dealNext(sessions, now, calendar);
}

RushChange RushTable::skip(Sessions sessions, Date now, const Calendar& calendar) {
  if (seat) {
    if (queue(sessions, now, calendar).empty())
      return {};
    ++stats.skipped;
    record(*seat, Outcome::skipped, now);
  }
  return dealNext(sessions, now, calendar);
}

RushChange RushTable::markDone(Sessions sessions, Date now, const Calendar& calendar) {
  if (seat) {
    const AgentSession& live = liveCopy(sessions, *seat);
    if (live.status == SessionStatus::working) {
      ++stats.played;
      record(live, Outcome::played, now);
    } else {
      done[live.id()] = live.activity;
      ++stats.done;
      record(live, Outcome::done, now);
    }
  }
  return dealNext(sessions, now, calendar);
}

RushChange RushTable::snooze(Date until, Sessions sessions, Date now, const Calendar& calendar) {
  if (seat) {
    const AgentSession& live = liveCopy(sessions, *seat);
    snoozed[live.id()] = {.until = until,
                          .waitingOnApproval = live.status == SessionStatus::needsYou};
    ++stats.snoozed;
    record(live, Outcome::snoozed, now);
  }
  return dealNext(sessions, now, calendar);
}

RushChange RushTable::setFilter(RushFilter newFilter,
                                Sessions sessions,
                                Date now,
                                const Calendar& calendar) {
  filter = std::move(newFilter);
  if (seat) {
    const AgentSession& live = liveCopy(sessions, *seat);
    if (filter.matches(live, now, calendar))
      return {};
    record(live, Outcome::movedOn, now);
  }
  return dealNext(sessions, now, calendar);
}

RushChange RushTable::back(Sessions sessions) {
  if (history.empty())
    return {};
  const RushHistoryEntry entry = std::move(history.front());
  history.pop_front();
  uncount(entry);
  nextUpID = seat ? std::optional(seat->id()) : std::nullopt;
  seat = liveCopy(sessions, entry.session);
  seatMissingSince.reset();
  returnedSeatID = seat->id();
  return {.kind = RushChange::Kind::dealt, .session = seat};
}

void RushTable::uncount(const RushHistoryEntry& entry) {
  switch (entry.outcome) {
    case Outcome::played:
      lower(stats.played);
      break;
    case Outcome::skipped:
      lower(stats.skipped);
      break;
    case Outcome::done:
      lower(stats.done);
      done.erase(entry.session.id());
      break;
    case Outcome::snoozed:
      lower(stats.snoozed);
      snoozed.erase(entry.session.id());
      break;
    case Outcome::movedOn:
      break;
  }
}

RushChange RushTable::take(const AgentSession& wanted,
                           Sessions sessions,
                           Date now,
                           const Calendar& calendar) {
  for (const AgentSession* member : queue(sessions, now, calendar)) {
    if (sameID(*member, wanted))
      return dealt(*member);
  }
  return {};
}

void RushTable::wakeSnoozed() {
  for (const auto& entry : snoozed)
    dealOrder.erase(entry.first);
  snoozed.clear();
}

bool RushTable::hasExpiredSnooze(Date now) const {
  return std::ranges::any_of(snoozed,
                             [now](const auto& entry) { return entry.second.until <= now; });
}

std::size_t RushTable::approvalsHiddenByFilter(Sessions sessions,
                                               Date now,
                                               const Calendar& calendar) const {
  const Date earliest = filter.earliestActivity(now, calendar);
  std::string id;
  const auto hidden = std::ranges::count_if(sessions, [&](const AgentSession& session) {
    return session.status == SessionStatus::needsYou && !filter.matchesSince(earliest, session) &&
           isAvailable(session, setID(id, session), now);
  });
  return static_cast<std::size_t>(hidden);
}

RushChange RushTable::dealNext(Sessions sessions, Date now, const Calendar& calendar) {
  const bool wasOccupied = seat.has_value();
  seat.reset();
  seatMissingSince.reset();
  returnedSeatID.reset();
  const auto waiting = queue(sessions, now, calendar);
  if (waiting.empty())
    return {.kind = wasOccupied ? RushChange::Kind::emptied : RushChange::Kind::none};
  nextUpID.reset();
  return dealt(*waiting.front());
}

RushChange RushTable::dealt(const AgentSession& session) {
  seat = session;
  seatMissingSince.reset();
  dealOrder[session.id()] = nextDeal++;
  return {.kind = RushChange::Kind::dealt, .session = seat};
}

void RushTable::record(const AgentSession& session, Outcome outcome, Date now) {
  history.push_front({.id = nextHistoryID++, .session = session, .outcome = outcome, .at = now});
  if (history.size() > maxHistory)
    history.pop_back();
}

}  // namespace tessivane
