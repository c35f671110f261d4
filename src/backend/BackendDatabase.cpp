#include "backend/BackendDatabase.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sqlite3.h>

#include "support/Paths.h"

namespace tessivane {

namespace {

constexpr int busyTimeoutMilliseconds = 2000;

// A scan may run thousands of statements. If each waited its two seconds for a lock that somebody
// keeps, the queue would stand still for hours.
constexpr int maxVainWaits = 2;

struct Binder {
  sqlite3_stmt* statement;
  int position;

  // Not copied: the caller's text lives until the statement is reset.
  int operator()(std::string_view text) const {
    if (text.data() == nullptr)
      text = "";
    const auto size = strnlen(text.data(), text.size());
    return sqlite3_bind_text64(statement, position, text.data(), size, SQLITE_STATIC, SQLITE_UTF8);
  }
  int operator()(std::int64_t number) const {
    return sqlite3_bind_int64(statement, position, number);
  }
  int operator()(double number) const { return sqlite3_bind_double(statement, position, number); }
  int operator()(std::monostate /*null*/) const { return sqlite3_bind_null(statement, position); }
};

sqlite3* opened(const std::string& path) {
  constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return nullptr;
  }
  sqlite3_busy_timeout(db, busyTimeoutMilliseconds);
  return db;
}

bool isBusy(int result) {
  return (result & 0xff) == SQLITE_BUSY;
}

}  // namespace

void BackendDatabase::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

std::unique_ptr<BackendDatabase> BackendDatabase::open(const std::string& path) {
  makePrivateDirectory(std::filesystem::path(path).parent_path());
  sqlite3* db = opened(path);
  if (db == nullptr)
    return nullptr;
  return std::unique_ptr<BackendDatabase>(new BackendDatabase(path, db));
}

BackendDatabase::~BackendDatabase() {
  statements_.clear();
  sqlite3_close(db_);
}

bool BackendDatabase::exec(const std::string& sql) {
  char* message = nullptr;
  const int result = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message);
  if (result != SQLITE_OK)
    fail(result, message == nullptr ? sqlite3_errmsg(db_) : message);
  sqlite3_free(message);
  if (result == SQLITE_OK || isBusy(result))
    noteLock(isBusy(result));
  return result == SQLITE_OK;
}

std::int64_t BackendDatabase::run(std::string_view sql, Arguments arguments) {
  sqlite3_stmt* statement = prepare(sql, arguments);
  if (statement == nullptr)
    return -1;
  const int result = sqlite3_step(statement);
  const bool succeeded = result == SQLITE_ROW || result == SQLITE_DONE;
  const std::int64_t changes = sqlite3_changes(db_);
  conclude(statement, succeeded);
  return succeeded ? changes : -1;
}

std::vector<DatabaseRow> BackendDatabase::query(std::string_view sql, Arguments arguments) {
  std::vector<DatabaseRow> rows;
  if (sqlite3_stmt* statement = prepare(sql, arguments))
    conclude(statement, stepToRows(statement, rows) == SQLITE_DONE);
  return rows;
}

void BackendDatabase::visit(std::string_view sql,
                            Arguments arguments,
                            FunctionRef<void(const StatementRow&)> visitor) {
  if (sqlite3_stmt* statement = prepare(sql, arguments))
    conclude(statement, stepThroughRows(statement, visitor) == SQLITE_DONE);
}

bool BackendDatabase::inTransaction() const {
  return sqlite3_get_autocommit(db_) == 0;
}

bool BackendDatabase::isInPlace() const {
  int moved = 0;
  const int result = sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return result != SQLITE_OK || moved == 0;
}

bool BackendDatabase::isEmptied() const {
  std::error_code failure;
  return std::filesystem::file_size(path_, failure) == 0 && !failure;
}

bool BackendDatabase::setAside(const std::string& path) {
  const std::string aside = path + ".damaged";
  std::error_code failure;
  std::filesystem::rename(path, aside, failure);
  // Beside a new file the old log would be taken for that one's.
  std::error_code ignored;
  std::filesystem::rename(path + "-wal", aside + "-wal", ignored);
  std::filesystem::remove(path + "-shm", ignored);
  return !failure;
}

void BackendDatabase::reopenIfReadOnly() {
  sqlite3* db = sqlite3_db_readonly(db_, "main") == 1 ? opened(path_) : nullptr;
  if (db == nullptr)
    return;
  statements_.clear();
  sqlite3_close(db_);
  db_ = db;
  vainWaits_ = 0;
}

sqlite3_stmt* BackendDatabase::prepare(std::string_view sql, Arguments arguments) {
  auto found = statements_.find(sql);
  if (found == statements_.end()) {
    std::string text(sql);
    sqlite3_stmt* made = nullptr;
    const int result = sqlite3_prepare_v2(db_, text.c_str(), -1, &made, nullptr);
    if (result != SQLITE_OK || made == nullptr) {
      fail(result, sqlite3_errmsg(db_));
      if (isBusy(result))
        noteLock(true);
      return nullptr;
    }
    found = statements_.emplace(std::move(text), Statement(made)).first;
  }
  sqlite3_stmt* statement = found->second.get();
  int position = 0;
  for (const BackendSQLValue& argument : arguments) {
    if (std::visit(Binder{.statement = statement, .position = ++position}, argument) != SQLITE_OK) {
      conclude(statement, false);
      return nullptr;
    }
  }
  return statement;
}

// Ends a use of the statement: what is left open would keep its locks and its borrowed texts.
void BackendDatabase::conclude(sqlite3_stmt* statement, bool succeeded) {
  const int result = succeeded ? SQLITE_OK : sqlite3_errcode(db_);
  const bool busy = isBusy(result);
  if (!succeeded)
    fail(result, sqlite3_errmsg(db_));
  if (busy || (succeeded && sqlite3_stmt_readonly(statement) == 0))
    noteLock(busy);
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
}

void BackendDatabase::fail(int result, std::string message) {
  const int kind = result & 0xff;
  isDamaged_ = isDamaged_ || kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB;
  lastError_ = std::move(message);
  ++failures_;
}

// After some vain waits in a row nobody waits until a writing statement gets through. Reading ones
// tell nothing, as a writer does not stop them.
void BackendDatabase::noteLock(bool wasLocked) {
  const int before = vainWaits_;
  vainWaits_ = wasLocked ? std::min(vainWaits_ + 1, maxVainWaits) : 0;
  if ((before == maxVainWaits) != (vainWaits_ == maxVainWaits))
    sqlite3_busy_timeout(db_, wasLocked ? 0 : busyTimeoutMilliseconds);
}

}  // namespace tessivane
