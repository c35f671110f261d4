#include "StatementRecorder.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

namespace tessivane {

namespace {

struct Recording {
  struct Entry {
    sqlite3* db = nullptr;
    RecordedConnection connection = {};
  };
  std::vector<Entry> entries;
};

Recording* recording = nullptr;

std::string uriOf(sqlite3* db) {
  const char* path = sqlite3_db_filename(db, "main");
  std::string uri = "file:";
  for (const char* character = path; *character != '\0'; ++character) {
    if (std::string_view("%?#").find(*character) == std::string_view::npos)
      uri += *character;
    else
      uri += fmt::format("%{:02X}", static_cast<unsigned>(*character));
  }
  uri += "?mode=ro";
  for (const char* parameter : {"immutable", "readonly_shm"}) {
    if (sqlite3_uri_boolean(path, parameter, 0) != 0)
      uri += fmt::format("&{}=1", parameter);
  }
  return uri;
}

int statementBegins(unsigned /*event*/, void* context, void* statement, void* /*text*/) {
  auto* const begun = static_cast<sqlite3_stmt*>(statement);
  if (recording == nullptr || sqlite3_db_handle(begun) != context)
    return 0;
  char* const sql = sqlite3_expanded_sql(begun);
  if (sql == nullptr)
    return 0;
  // What SQLite runs by itself within a statement is expanded to a comment.
  const bool isNested = std::string_view(sql).starts_with("--") &&
                        !std::string_view(sqlite3_sql(begun)).starts_with("--");
  // An address may come up again, so the latest connection is the one.
  const auto entry = std::find_if(recording->entries.rbegin(),
                                  recording->entries.rend(),
                                  [context](const auto& one) { return one.db == context; });
  if (!isNested && entry != recording->entries.rend())
    entry->connection.statements.emplace_back(sql);
  sqlite3_free(sql);
  return 0;
}

int connectionOpened(sqlite3* db, char** /*error*/, const sqlite3_api_routines* /*unused*/) {
  if (recording == nullptr)
    return SQLITE_OK;
  recording->entries.push_back(Recording::Entry{db, RecordedConnection{uriOf(db), {}}});
  return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, statementBegins, db);
}

void require(bool condition, sqlite3* db, std::string_view what) {
  if (!condition)
    throw std::runtime_error(fmt::format("{}: {}", what, sqlite3_errmsg(db)));
}

std::size_t stepThrough(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  require(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK, db, sql);
  std::size_t rows = 0;
  int result = sqlite3_step(statement);
  for (; result == SQLITE_ROW; result = sqlite3_step(statement))
    ++rows;
  require(result == SQLITE_DONE, db, sql);
  sqlite3_finalize(statement);
  return rows;
}

}  // namespace

std::vector<RecordedConnection> recordStatements(FunctionRef<void()> work) {
  Recording made;
  recording = &made;
  auto* const hook = reinterpret_cast<void (*)()>(connectionOpened);
  sqlite3_auto_extension(hook);
  work();
  sqlite3_cancel_auto_extension(hook);
  recording = nullptr;
  std::vector<RecordedConnection> connections;
  for (auto& entry : made.entries) {
    if (!entry.connection.statements.empty())
      connections.push_back(std::move(entry.connection));
  }
  return connections;
}

std::size_t runPlainly(const std::vector<RecordedConnection>& connections) {
  constexpr int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
  std::size_t rows = 0;
  for (const RecordedConnection& connection : connections) {
    sqlite3* db = nullptr;
    require(sqlite3_open_v2(connection.uri.c_str(), &db, flags, nullptr) == SQLITE_OK,
            db,
            connection.uri);
    for (const std::string& sql : connection.statements)
      rows += stepThrough(db, sql);
    sqlite3_close(db);
  }
  return rows;
}

}  // namespace tessivane
