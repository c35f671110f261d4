#pragma once

// The rules of Rush: who sits at the seat, who waits behind it and in which order, what has been
// put away and for how long. A plain value without timer, clock or lock, owned by the controller
// and used on its thread alone. No operation can fail: unknown ids, an empty list and an empty
// history are ordinary input.
//
// Every operation takes the list of sessions as the store published it, the time, and the calendar
// that tells what "today" is. Of two sessions with one id in a list the first counts.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "rush/RushFilter.h"
#include "rush/RushHistoryEntry.h"
#include "rush/RushSnooze.h"
#include "rush/RushStats.h"
#include "sessions/AgentSession.h"
#include "support/Calendar.h"
#include "support/Date.h"

namespace tessivane {

/// What an operation did to the seat.
struct RushChange {
  /// Somebody has just been seated; nothing to react to; the seat has just become empty.
  enum class Kind { dealt, none, emptied };

  Kind kind = Kind::none;
  std::optional<AgentSession> session = {};  ///< who was dealt

  friend bool operator==(const RushChange&, const RushChange&) = default;
};

struct RushTable {
  using Sessions = std::span<const AgentSession>;

  static constexpr std::size_t maxHistory = 100;
  /// How long the seat is kept for a session that the list has lost.
  static constexpr Seconds missingGrace = Seconds(10);

  std::optional<AgentSession> seat = {};  ///< the newest copy of whoever is being dealt with
  std::optional<Date> seatMissingSince = {};
  /// By id: the `activity` that a session had when it was marked done. Any other brings it back.
  std::unordered_map<std::string, Date> done = {};
  std::unordered_map<std::string, RushSnoozed> snoozed = {};  ///< by id
  RushFilter filter = {};
  bool hold = false;  ///< keep a seated session that starts to work or goes idle
  RushStats stats = {};
  /// By id: the number of the last deal. Without one a session counts as new.
  std::unordered_map<std::string, std::int64_t> dealOrder = {};
  std::int64_t nextDeal = 0;
  std::deque<RushHistoryEntry> history = {};  ///< newest first, at most `maxHistory`
  std::int64_t nextHistoryID = 0;
  std::optional<std::string> returnedSeatID = {};  ///< held like `hold` since `back` seated it
  std::optional<std::string> nextUpID = {};        ///< goes first, since `back` displaced it

  /// Who waits, in the order of dealing: new requests, the oldest first; newly finished turns, the
  /// newest first; then what was dealt before, the longest ago first. Before all of them whom
  /// `back` has displaced. The pointers lead into `sessions`: nothing is copied.
  std::vector<const AgentSession*> queue(Sessions sessions,
                                         Date now,
                                         const Calendar& calendar) const;

  /// Takes in a new list, or the same one at a later time: forgets and wakes what is due, then
  /// looks whether the seated session may stay.
  RushChange sync(Sessions sessions, Date now, const Calendar& calendar);

  /// The seated session goes behind everybody; when nobody waits it stays. On an empty seat this
  /// and the next three deal.
  RushChange skip(Sessions sessions, Date now, const Calendar& calendar);
  /// The seated session waits no more until it does something new. If it already works again, the
  /// person has replied, and that is what counts.
  RushChange markDone(Sessions sessions, Date now, const Calendar& calendar);
  /// The seated session waits no more before `until`, unless it newly needs the person.
  RushChange snooze(Date until, Sessions sessions, Date now, const Calendar& calendar);
  /// A seated session that the new filter does not let through moves on.
  RushChange setFilter(RushFilter newFilter, Sessions sessions, Date now, const Calendar& calendar);

  /// Undoes the newest entry of the history and seats its session, whatever that is doing. The one
  /// that it displaces is next.
  RushChange back(Sessions sessions);
  /// Seats a session out of the queue. The one that it displaces waits again, uncounted.
  RushChange take(const AgentSession& wanted,
                  Sessions sessions,
                  Date now,
                  const Calendar& calendar);
  /// Ends every snooze; those who wake count as new. Deals nobody: `sync` is to follow.
  void wakeSnoozed();

  bool isSeatMissing() const { return seatMissingSince.has_value(); }
  bool hasExpiredSnooze(Date now) const;
  /// How many sessions wait for an approval that `filter` does not let through.
  std::size_t approvalsHiddenByFilter(Sessions sessions, Date now, const Calendar& calendar) const;

  friend bool operator==(const RushTable&, const RushTable&) = default;

 private:
  bool isAvailable(const AgentSession& session, const std::string& id, Date now) const;
  RushChange dealNext(Sessions sessions, Date now, const Calendar& calendar);
  RushChange dealt(const AgentSession& session);
  void record(const AgentSession& session, RushHistoryEntry::Outcome outcome, Date now);
  RushChange syncSeat(Sessions sessions, Date now, const Calendar& calendar);
  void uncount(const RushHistoryEntry& entry);
};

}  // namespace tessivane
