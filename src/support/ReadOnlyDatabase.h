#pragma once

// Reads SQLite databases that other applications may be writing at this moment, without disturbing
// them and without leaving anything beside them. One thread at a time; made by a provider for the
// length of a pass.
//
// How a file is opened depends on what lies beside it (observed with SQLite 3.40.1): a plain
// read-only connection creates "-shm" and "-wal" files where a write-ahead-log database has none,
// and an immutable one does not see what is in the log. See `ReadOnlyDatabase::open`.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/DatabaseRow.h"
#include "support/Files.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tessivane {

/// A database and its write-ahead log copied to a private directory, which goes with the value.
class DatabaseCopy final {
 public:
  /// Database and log together; a larger pair is not copied.
  static constexpr std::int64_t maxBytes = 256LL << 20;

  /// Nothing when a file is missing, too large, changes meanwhile, or the copy cannot be written.
  static std::shared_ptr<const DatabaseCopy> make(const std::string& path);

  DatabaseCopy(const DatabaseCopy&) = delete;
  DatabaseCopy& operator=(const DatabaseCopy&) = delete;
  ~DatabaseCopy();

  /// Where the copied database is.
  std::string path() const;

  /// True while both files at `source` are still those that were copied.
  bool isCurrent(const std::string& source) const;

 private:
  DatabaseCopy() = default;

  std::string directory_;
  FileStamp database_;
  FileStamp log_;
};

/// The last copy that was needed, kept by a provider so that an unchanged pair is copied once.
using DatabaseCopyMemo = std::shared_ptr<const DatabaseCopy>;

class ReadOnlyDatabase final {
 public:
  /// Nothing when no regular file is at `path` or it cannot be opened. `copies`, if given, outlives
  /// the database.
  ///
  /// - Log with its "-shm" index: "mode=ro", which sees every commit, and "readonly_shm=1", which
  ///   leaves the index untouched.
  /// - Log without an index: a private copy of both files, as SQLite would create the index.
  /// - No log, but the header says write-ahead log: "immutable=1", as SQLite would create both
  ///   companions. It is reopened as soon as the file changes.
  /// - Anything else: "mode=ro".
  ///
  /// Each is reopened by the next query when a log turns up or goes away.
  static std::unique_ptr<ReadOnlyDatabase> open(const std::string& path,
                                                DatabaseCopyMemo* copies = nullptr);

  ReadOnlyDatabase(const ReadOnlyDatabase&) = delete;
  ReadOnlyDatabase& operator=(const ReadOnlyDatabase&) = delete;
  ~ReadOnlyDatabase();

  /// Runs one statement with text parameters and returns its rows. On failure `lastError` is set
  /// and the rows up to there are returned. Waits at most two seconds for a writer's lock.
  std::vector<DatabaseRow> query(std::string_view sql, const std::vector<std::string>& params = {});

  /// Why the last `query` failed; nothing if it did not.
  const std::optional<std::string>& lastError() const { return lastError_; }

  /// The URI of the open connection, for tests and problem reports; empty while closed.
  const std::string& uri() const { return uri_; }

 private:
  ReadOnlyDatabase(std::string path, DatabaseCopyMemo* copies);

  void connect();
  void close();
  void reopenIfStale();
  std::vector<DatabaseRow> stepThrough(sqlite3_stmt* statement);

  std::string path_;  // links followed
  DatabaseCopyMemo* copies_;
  DatabaseCopyMemo copy_;  // set only while a private copy is open
  sqlite3* db_ = nullptr;
  std::optional<FileStamp> snapshot_;  // set only while open as immutable
  bool readsLog_ = false;              // set only while open through a log and its index
  std::string uri_;
  std::optional<std::string> lastError_;
};

}  // namespace tessivane
