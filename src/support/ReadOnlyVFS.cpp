#include "support/ReadOnlyVFS.h"

#include <sqlite3.h>

namespace tessivane {

namespace {

sqlite3_vfs* baseVFS() {
  return sqlite3_vfs_find(nullptr);
}

int openForReading(
    sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  // Only files with a name are somebody's; SQLite's own temporary files have none.
  if (name != nullptr) {
    flags &= ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_DELETEONCLOSE);
    flags |= SQLITE_OPEN_READONLY;
  }
  return baseVFS()->xOpen(baseVFS(), name, file, flags, outFlags);
}

int refuseToDelete(sqlite3_vfs* /*vfs*/, const char* /*name*/, int /*syncDirectory*/) {
  return SQLITE_IOERR_DELETE;
}

}  // namespace

const char* readOnlyVFSName() {
  static constexpr const char* name = "tessivane-read-only";
  static const bool registered = [] {
    if (baseVFS() == nullptr)
      return false;
    static sqlite3_vfs vfs = *baseVFS();
    vfs.pNext = nullptr;
    vfs.zName = name;
    vfs.xOpen = openForReading;
    vfs.xDelete = refuseToDelete;
    return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK;
  }();
  return registered ? name : nullptr;
}

}  // namespace tessivane
