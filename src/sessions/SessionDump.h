#pragma once

// Sessions as tab-separated text, for people and scripts. Pure functions.

#include <string>
#include <string_view>

#include "sessions/AgentSession.h"

namespace tessivane {

/// One line with its line end, seven columns: activity in UTC, agent, kind, status, the project's
/// last path component ("~" without a project), detail, title. A tab, line end or other control
/// character inside a column becomes a blank, so that a line stays a line and a column a column.
std::string dumpLine(const AgentSession& session);

/// `text` as one column: without control characters, white space runs as they are.
std::string dumpColumn(std::string_view text);

}  // namespace tessivane
