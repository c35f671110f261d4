#pragma once

// The command-line mode that prints the queue which a fresh run of Rush would deal, and ends.

#include <cstdio>
#include <string>

#include "sessions/AgentSession.h"

namespace tessivane {

/// One line with its line end, six columns: those of `dumpLine` without the kind.
std::string rushDumpLine(const AgentSession& session);

/// Prints the queue of this user's sessions, with nothing put away and the default filter, whatever
/// is stored. The exit status: 0, or 1 when `output` cannot be written.
int runRushDump(std::FILE* output, std::FILE* errors);

}  // namespace tessivane
