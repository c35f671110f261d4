#pragma once

// A session as a list shows it: texts ready to draw. Pure values, safe on every thread.

#include <string>
#include <string_view>
#include <vector>

#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

struct SessionRow {
  std::string id = {};
  std::string title = {};
  std::string project = {};
  std::string detail = {};  ///< may be empty
  std::string agent = {};
  std::string age = {};
  SessionStatus status = SessionStatus::idle;

  friend bool operator==(const SessionRow&, const SessionRow&) = default;
};

/// How long ago in the least words: "now", "5m", "3h", "1d". A date to come counts as now.
std::string ageText(Date date, Date now);

/// The rows for a published list, in its order and without noise. Every text is on one line.
std::vector<SessionRow> sessionRows(const std::vector<AgentSession>& sessions, Date now);

/// "2 need you, 1 working": how many ask for attention, work or wait; idle ones are not told.
std::string summaryText(const std::vector<SessionRow>& rows);

}  // namespace tessivane
