#pragma once

// One connection to the program's own event database, for one thread at a time (the activity
// queue); owned by `BackendEventStore`. SQLite runs without a mutex of its own.
//
// A statement that fails has no effect, gives the neutral value that its operation names, leaves
// SQLite's message in `lastError`, and counts in `failures`: whoever must know whether all of a
// longer piece of work went well compares the count before and after.
//
// Statements are prepared once and kept by their text until the connection closes, so texts must
// be constants and values parameters.

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/BackendSQLValue.h"
#include "support/DatabaseRow.h"
#include "support/FunctionRef.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tessivane {

class BackendDatabase final {
 public:
  using Arguments = std::initializer_list<BackendSQLValue>;

  /// Opens the file, making it and its directories if need be. Nothing when it cannot be opened. A
  /// file that is no database or may not be written opens all the same; its statements fail.
  static std::unique_ptr<BackendDatabase> open(const std::string& path);

  BackendDatabase(const BackendDatabase&) = delete;
  BackendDatabase& operator=(const BackendDatabase&) = delete;
  ~BackendDatabase();

  /// Runs a script up to its first failing statement. True when there was none.
  bool exec(const std::string& sql);

  /// Steps one statement once and returns how many rows the last writing statement changed, or -1
  /// on failure. Texts are bound up to their first NUL.
  std::int64_t run(std::string_view sql, Arguments arguments = {});

  /// The rows of one statement; on failure those gathered before it.
  std::vector<DatabaseRow> query(std::string_view sql, Arguments arguments = {});

  /// The same without copies, for results that may be large. The visitor runs no statement here.
  void visit(std::string_view sql,
             Arguments arguments,
             FunctionRef<void(const StatementRow&)> visitor);

  /// Why the last statement that failed did so. Never cleared.
  const std::optional<std::string>& lastError() const { return lastError_; }

  /// How many statements have failed on this connection.
  std::uint64_t failures() const { return failures_; }

  /// True between a "begin" and its end. SQLite ends a transaction by itself, undoing it, after
  /// some failures (a full disk, a read or write error).
  bool inTransaction() const;

  /// False when the file that is open was deleted, moved away or replaced under its path. Costs one
  /// stat.
  bool isInPlace() const;

  /// True when the file at the path has no content, as that of a new database has until its first
  /// statement and none after that. Costs one stat.
  bool isEmptied() const;

  /// True once a statement has met something that is no database, or a damaged one.
  bool isDamaged() const { return isDamaged_; }

  /// Gives the file at `path`, which nobody has open, the name "{path}.damaged", and its log one to
  /// match; what had these names is replaced. False when that fails.
  static bool setAside(const std::string& path);

  /// Opens the file anew if it could not be written when it was opened, as SQLite would not try
  /// again. Not within a transaction.
  void reopenIfReadOnly();

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };
  struct TextHash {
    using is_transparent = void;  // NOLINT(readability-identifier-naming): the library's name
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>{}(text);
    }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

  BackendDatabase(std::string path, sqlite3* db) : path_(std::move(path)), db_(db) {}

  sqlite3_stmt* prepare(std::string_view sql, Arguments arguments);
  void conclude(sqlite3_stmt* statement, bool succeeded);
  void fail(int result, std::string message);
  void noteLock(bool wasLocked);

  std::string path_;
  sqlite3* db_;
  std::unordered_map<std::string, Statement, TextHash, std::equal_to<>> statements_;
  std::optional<std::string> lastError_;
  std::uint64_t failures_ = 0;
  bool isDamaged_ = false;
  int vainWaits_ = 0;  // for a lock, in a row
};

}  // namespace tessivane
