#pragma once

// A SQLite file layer that cannot change a foreign directory: files are opened for reading only,
// none is created, none is deleted. SQLite itself would create an empty "-wal" when the writer
// takes its own away between our look and our open, and deletes a log beside an empty database.

namespace tessivane {

/// The name under which the layer is registered with SQLite, for sqlite3_open_v2; null when SQLite
/// has no default layer. Safe on every thread.
const char* readOnlyVFSName();

}  // namespace tessivane
