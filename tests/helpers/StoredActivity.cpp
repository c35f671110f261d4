#include "helpers/StoredActivity.h"

#include <functional>
#include <memory>

#include <sqlite3.h>

namespace tessivane {

namespace {

struct Closer {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Connection = std::unique_ptr<sqlite3, Closer>;

// For reading, so that the last one who closes it writes nothing either.
Connection opened(const std::string& path) {
  sqlite3* db = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  Connection connection(db);
  if (result != SQLITE_OK)
    return nullptr;
  sqlite3_busy_timeout(db, 1000);
  return connection;
}

std::optional<std::string> text(sqlite3_stmt* row, int column) {
  const unsigned char* bytes = sqlite3_column_text(row, column);
  if (bytes == nullptr)
    return std::nullopt;
  return std::string(bytes, bytes + sqlite3_column_bytes(row, column));
}

bool forEachRow(sqlite3* db, const char* sql, const std::function<void(sqlite3_stmt*)>& visit) {
  sqlite3_stmt* statement = nullptr;
  int result = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  while (result == SQLITE_OK || result == SQLITE_ROW) {
    result = sqlite3_step(statement);
    if (result == SQLITE_ROW)
      visit(statement);
  }
  sqlite3_finalize(statement);
  return result == SQLITE_DONE;
}

}  // namespace

std::optional<StoredActivity> StoredActivity::read(const std::string& path) {
  const Connection db = opened(path);
  if (db == nullptr)
    return std::nullopt;
  StoredActivity stored;
  // One transaction, so that all is of one moment.
  const bool isWhole =
      forEachRow(db.get(), "begin", [](sqlite3_stmt*) {}) &&
      forEachRow(db.get(),
                 "select kind, root, ref, title, detail, branch, session_id, ts from events",
                 [&stored](sqlite3_stmt* row) {
                   stored.events.push_back({.kind = text(row, 0).value_or(""),
                                            .root = text(row, 1).value_or(""),
                                            .ref = text(row, 2).value_or(""),
                                            .title = text(row, 3).value_or(""),
                                            .detail = text(row, 4),
                                            .branch = text(row, 5),
                                            .sessionID = text(row, 6),
                                            .ts = sqlite3_column_double(row, 7)});
                 }) &&
      forEachRow(db.get(),
                 "select root, session_id, minute, files from edit_minutes",
                 [&stored](sqlite3_stmt* row) {
                   stored.edits[{text(row, 0).value_or(""),
                                 text(row, 1).value_or(""),
                                 sqlite3_column_int64(row, 2)}] = sqlite3_column_int64(row, 3);
                 }) &&
      forEachRow(db.get(),
                 "select key from seen_items",
                 [&stored](sqlite3_stmt* row) { stored.seen.insert(text(row, 0).value_or("")); }) &&
      forEachRow(db.get(), "select path, inode, offset from cursors", [&stored](sqlite3_stmt* row) {
        stored.cursors[text(row, 0).value_or("")] = {
            .inode = static_cast<std::uint64_t>(sqlite3_column_int64(row, 1)),
            .offset = static_cast<std::uint64_t>(sqlite3_column_int64(row, 2))};
      });
  if (!isWhole)
    return std::nullopt;
  return stored;
}

std::string StoredActivity::integrity(const std::string& path) {
  const Connection db = opened(path);
  std::string found;
  if (db == nullptr || !forEachRow(db.get(), "pragma integrity_check", [&found](sqlite3_stmt* row) {
        found += text(row, 0).value_or("") + "\n";
      }))
    return "cannot be read";
  found.pop_back();
  return found;
}

}  // namespace tessivane
