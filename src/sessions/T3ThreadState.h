#pragma once

// What decides the status of a thread of T3 Code, and the rules that do. Plain value and pure
// functions, safe on every thread.

#include <cstdint>
#include <optional>
#include <string>

#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

struct T3ThreadState {
  Date activity = distantPast;       ///< the last message, request or end of a run
  std::int64_t pending = 0;          ///< approvals and answers that the person owes
  std::string sessionStatus = {};    ///< T3's word for the session or the run; may be empty
  bool hasActiveTurn = false;        ///< something runs, whatever the word
  std::string settledOverride = {};  ///< "settled", "active" or empty
  std::optional<Date> settledAt = {};
  std::optional<Date> unsettledAt = {};
  std::optional<Date> snoozedUntil = {};

  /// True for a thread that is put aside: by the person's choice, unless it came back later, or by
  /// having been settled at or after its last activity.
  bool isSettled() const;

  /// What is open for the person or runs goes before what the person has put aside.
  StatusAndDetail status(Date now) const;
};

}  // namespace tessivane
