#pragma once

// The command-line mode that prints the sessions and ends.

#include <cstdio>

namespace tessivane {

/// Makes two passes over this user's sessions, prints those of the second to `output` and the time
/// of both to `errors`. The exit status: 0, or 1 when `output` cannot be written.
int runDump(std::FILE* output, std::FILE* errors);

}  // namespace tessivane
