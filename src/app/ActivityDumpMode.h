#pragma once

// The command-line mode that prints what the program has stored of the last time, and ends. It only
// reads: no database comes into being, nor a file beside it.

#include <cstdio>
#include <string>

#include "activity/ActivityEvent.h"
#include "support/Date.h"

namespace tessivane {

/// Prints the events in the database at `path` since `since`, the oldest first, one a line: time in
/// UTC, kind, project, title of the session, ref, title. Nothing when there is no database. The
/// exit status: 0, or 1 when it cannot be read, which is told on `errors`, or `output` cannot be
/// written.
int dumpActivity(const std::string& path, Date since, std::FILE* output, std::FILE* errors);

/// The same for this user's database and the range that ends now.
int runActivityDump(ActivityRange range, std::FILE* output, std::FILE* errors);

}  // namespace tessivane
