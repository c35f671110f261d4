#include "support/ReadOnlyDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sqlite3.h>

#include "support/ReadOnlyVFS.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr int busyTimeoutMilliseconds = 2000;
constexpr const char* cannotOpen = "unable to open database file";

std::string logPath(const std::string& path) {
  return path + "-wal";
}

std::string indexPath(const std::string& path) {
  return path + "-shm";
}

// `path` with links followed: a log lies beside the file itself, not beside a link to it.
std::string resolvedPath(const std::string& path) {
  std::error_code error;
  const auto resolved = std::filesystem::canonical(path, error);
  return error ? path : resolved.string();
}

// True when the header says that the file's format is the write-ahead-log one: both version bytes
// are 2. A file too short to say so counts as the other.
bool isInLogMode(const std::string& path) {
  std::array<char, 20> header{};
  const auto file = RegularFile::open(path);
  if (!file || file->read(header.data(), header.size(), 0) != header.size())
    return false;
  return header[18] == 2 && header[19] == 2;
}

// Something other than a regular file under the name of a companion: a FIFO there would block.
bool hasStrangeCompanion(const std::string& path) {
  const auto isStrange = [](const std::string& companion) {
    return fileExists(companion) && !fileStamp(companion);
  };
  return isStrange(logPath(path)) || isStrange(indexPath(path)) || isStrange(path + "-journal");
}

enum class Access { throughLog, immutable, privateCopy, plain };

Access accessFor(const std::string& path, const FileStamp& database) {
  const auto log = fileStamp(logPath(path));
  const bool hasIndex = fileStamp(indexPath(path)).has_value();
  // Beside an empty database SQLite takes a log for a leftover and deletes it.
  if (database.size == 0 && (log || fileExists(path + "-journal")))
    return Access::immutable;
  if (log && hasIndex)
    return Access::throughLog;
  if (log && log->size > 0)
    return Access::privateCopy;
  if (isInLogMode(path))
    return Access::immutable;
  return Access::plain;
}

bool copyFile(const std::string& from, const std::string& to, FileStamp& stamp) {
  const auto source = RegularFile::open(from);
  if (!source || source->stamp().size > DatabaseCopy::maxBytes)
    return false;
  stamp = source->stamp();
  const int target = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (target < 0)
    return false;
  std::vector<char> chunk(1 << 18);
  bool whole = true;
  for (std::int64_t offset = 0; whole && offset < stamp.size;) {
    const auto got = source->read(chunk.data(), chunk.size(), offset);
    whole = got && *got > 0 && ::write(target, chunk.data(), *got) == static_cast<ssize_t>(*got);
    if (whole)
      offset += static_cast<std::int64_t>(*got);
  }
  return ::close(target) == 0 && whole;
}

std::string privateDirectory() {
  const char* configured = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): never set here
  const bool usable = configured != nullptr && configured[0] == '/';
  std::string directory = (usable ? std::string(configured) : "/tmp") + "/tessivane-XXXXXX";
  return ::mkdtemp(directory.data()) == nullptr ? std::string() : directory;
}

}  // namespace

std::shared_ptr<const DatabaseCopy> DatabaseCopy::make(const std::string& path) {
  const auto database = fileStamp(path);
  const auto log = fileStamp(logPath(path));
  if (!database || !log || database->size + log->size > maxBytes)
    return nullptr;
  const std::shared_ptr<DatabaseCopy> copy(new DatabaseCopy);
  copy->directory_ = privateDirectory();
  if (copy->directory_.empty())
    return nullptr;
  if (!copyFile(logPath(path), logPath(copy->path()), copy->log_))
    return nullptr;
  if (!copyFile(path, copy->path(), copy->database_))
    return nullptr;
  // A writer that came in between may have moved pages from one file to the other.
  if (!copy->isCurrent(path))
    return nullptr;
  return copy;
}

DatabaseCopy::~DatabaseCopy() {
  if (directory_.empty())
    return;
  for (const std::string& name : directoryEntries(directory_)) {
    ::unlink((directory_ + "/" + name).c_str());
  }
  ::rmdir(directory_.c_str());
}

std::string DatabaseCopy::path() const {
  return directory_ + "/copy.sqlite";
}

bool DatabaseCopy::isCurrent(const std::string& source) const {
  return fileStamp(source) == database_ && fileStamp(logPath(source)) == log_;
}

std::unique_ptr<ReadOnlyDatabase> ReadOnlyDatabase::open(const std::string& path,
                                                         DatabaseCopyMemo* copies) {
  std::unique_ptr<ReadOnlyDatabase> database(new ReadOnlyDatabase(resolvedPath(path), copies));
  database->connect();
  if (database->db_ == nullptr)
    return nullptr;
  return database;
}

ReadOnlyDatabase::ReadOnlyDatabase(std::string path, DatabaseCopyMemo* copies)
    : path_(std::move(path)), copies_(copies) {}

ReadOnlyDatabase::~ReadOnlyDatabase() {
  close();
}

void ReadOnlyDatabase::connect() {
  const auto stamp = fileStamp(path_);
  if (!stamp || hasStrangeCompanion(path_))
    return;
  const Access access = accessFor(path_, *stamp);
  std::string file = path_;
  const char* vfs = readOnlyVFSName();
  if (access == Access::privateCopy) {
    DatabaseCopyMemo& memo = copies_ != nullptr ? *copies_ : copy_;
    if (!memo || !memo->isCurrent(path_))
      memo = DatabaseCopy::make(path_);
    if (!memo)
      return;
    copy_ = memo;
    file = copy_->path();
    vfs = nullptr;  // SQLite may make an index beside the copy
  } else if (copies_ != nullptr) {
    copies_->reset();
  }
  uri_ = "file:" + percentEncoded(file, "/");
  uri_ += access == Access::immutable ? "?immutable=1" : "?mode=ro";
  if (access == Access::throughLog)
    uri_ += "&readonly_shm=1";
  constexpr int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(uri_.c_str(), &db_, flags, vfs) != SQLITE_OK) {
    close();
    return;
  }
  sqlite3_busy_timeout(db_, busyTimeoutMilliseconds);
  readsLog_ = access == Access::throughLog;
  if (access == Access::immutable)
    snapshot_ = stamp;
}

void ReadOnlyDatabase::close() {
  sqlite3_close_v2(db_);
  db_ = nullptr;
  snapshot_.reset();
  readsLog_ = false;
  copy_.reset();
  uri_.clear();
}

void ReadOnlyDatabase::reopenIfStale() {
  if (db_ == nullptr) {
    connect();
    return;
  }
  const bool copyStale = copy_ && !copy_->isCurrent(path_);
  const bool snapshotStale = snapshot_ && fileStamp(path_) != snapshot_;
  const bool logStale = !copy_ && fileExists(logPath(path_)) != readsLog_;
  if (!copyStale && !snapshotStale && !logStale)
    return;
  close();
  connect();
}

std::vector<DatabaseRow> ReadOnlyDatabase::query(std::string_view sql,
                                                 const std::vector<std::string>& params) {
  lastError_.reset();
  reopenIfStale();
  if (db_ == nullptr) {
    lastError_ = cannotOpen;
    return {};
  }
  std::vector<DatabaseRow> rows;
  sqlite3_stmt* statement = nullptr;
  int result =
      sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (result == SQLITE_OK) {
    for (std::size_t i = 0; i < params.size(); ++i) {
      sqlite3_bind_text(statement,
                        static_cast<int>(i + 1),
                        params[i].data(),
                        static_cast<int>(params[i].size()),
                        SQLITE_TRANSIENT);
    }
    rows = stepThrough(statement);
    result = sqlite3_finalize(statement);
  } else {
    lastError_ = sqlite3_errmsg(db_);
  }
  // What lies beside the file is no longer what the mode was chosen for: the next query looks anew.
  if (result == SQLITE_CANTOPEN)
    close();
  return rows;
}

std::vector<DatabaseRow> ReadOnlyDatabase::stepThrough(sqlite3_stmt* statement) {
  std::vector<DatabaseRow> rows;
  if (statement == nullptr)
    return rows;  // a statement of nothing but white space
  if (stepToRows(statement, rows) != SQLITE_DONE)
    lastError_ = sqlite3_errmsg(db_);
  return rows;
}

}  // namespace tessivane
