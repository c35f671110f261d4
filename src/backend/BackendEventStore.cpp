#include "backend/BackendEventStore.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#include "backend/BackendEventRow.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

constexpr const char* schema = R"(pragma journal_mode = wal;
pragma synchronous = normal;
create table if not exists events(
    ts real not null, root text not null, session_id text, kind text not null, ref text not null,
    title text not null, detail text, branch text, session_title text, owner text, engine text,
    unique(kind, root, ref));
create index if not exists events_ts on events(ts);
create table if not exists edit_minutes(
    root text not null, session_id text not null, minute integer not null,
    files integer not null, paths text not null,
    primary key(root, session_id, minute));
create table if not exists seen_items(key text primary key, ts real not null);
create table if not exists cursors(
    path text primary key, inode integer not null, offset integer not null, mtime real not null, seen real not null);
create table if not exists kv(key text primary key, value text not null);)";

constexpr std::string_view insertEvent =
    "insert or ignore into events(ts, root, session_id, kind, ref, title, detail, branch, "
    "session_title, owner, engine)\nvalues (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";

constexpr std::string_view selectPullRequest =
    "select rowid as id, root, ts, title, branch, detail from events\n"
    "where kind = ? and ref = ? and (detail = ? or (detail is null and root = ?))\n"
    "order by root like 'github:%'";

constexpr std::string_view updatePullRequest =
    "update events set ts = ?, title = ?, branch = coalesce(?, branch), "
    "detail = coalesce(detail, ?),\n    root = ? where rowid = ?";

// Stored numbers keep their bits.
std::int64_t signedBits(std::uint64_t number) {
  return static_cast<std::int64_t>(number);
}

BackendSQLValue rawTextOrNull(std::optional<Agent> agent) {
  return agent ? BackendSQLValue(rawValue(*agent)) : BackendSQLValue(std::monostate());
}

// The first row's column.
std::optional<std::string> firstText(const std::vector<DatabaseRow>& rows,
                                     std::string_view column) {
  const std::string* text = rows.empty() ? nullptr : rows.front().text(column);
  if (text == nullptr)
    return std::nullopt;
  return *text;
}

bool isText(const DatabaseRow& row, std::string_view column, const std::string& expected) {
  const std::string* text = row.text(column);
  return text != nullptr && *text == expected;
}

bool isUpToDate(const DatabaseRow& row, const BackendEventStore::PullRequest& pr) {
  return row.real("ts") == secondsSince1970(pr.date) && isText(row, "title", pr.title) &&
         (!pr.branch || isText(row, "branch", *pr.branch)) && row.text("detail") != nullptr;
}

std::string joinedLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += (text.empty() ? "" : "\n") + line;
  return text;
}

// Numbers in a file that something else has written may be anything.
std::int64_t boundedSum(std::int64_t stored, std::size_t added) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  const auto number = static_cast<std::int64_t>(added);
  return stored > most - number ? most : stored + number;
}

}  // namespace

std::string BackendEventStore::defaultPath() {
  return joinedPath(Paths::dataDirectory(), "Tessivane/activity.sqlite");
}

std::unique_ptr<BackendEventStore> BackendEventStore::open(const std::string& path) {
  auto db = BackendDatabase::open(path);
  return db ? std::make_unique<BackendEventStore>(std::move(db)) : nullptr;
}

BackendEventStore::BackendEventStore(std::unique_ptr<BackendDatabase> db) : db_(std::move(db)) {
  makeReady();
}

void BackendEventStore::makeReady() {
  db_->reopenIfReadOnly();
  schemaIsComplete_ = schemaIsComplete_ || db_->exec(schema);
}

bool BackendEventStore::isUsable() const {
  return db_->isInPlace() && !db_->isDamaged() && !(schemaIsComplete_ && db_->isEmptied());
}

bool BackendEventStore::insert(const ActivityEvent& event) {
  const std::string ref = BackendEventRow::refColumn(event);
  return db_->run(insertEvent,
                  {secondsSince1970(event.date),
                   event.projectRoot,
                   textOrNull(event.sessionID),
                   rawValue(event.kind),
                   ref,
                   event.title,
                   textOrNull(event.detail),
                   textOrNull(event.branch),
                   textOrNull(event.sessionTitle),
                   rawTextOrNull(event.owner),
                   rawTextOrNull(event.engine)}) == 1;
}

BackendEventStore::History BackendEventStore::history(Date since) {
  History history;
  db_->visit("select * from events where ts >= ? order by ts",
             {secondsSince1970(since)},
             [&history](const StatementRow& row) {
               if (auto event = BackendEventRow::event(row))
                 history.events.push_back(std::move(*event));
             });
  db_->visit("select * from edit_minutes where minute >= ? order by minute",
             {BackendEventRow::minute(since)},
             [&history](const StatementRow& row) {
               if (auto bucket = BackendEventRow::bucket(row))
                 history.edits.push_back(std::move(*bucket));
             });
  return history;
}

std::optional<BackendFileCursor> BackendEventStore::cursor(std::string_view path) {
  const auto rows = db_->query("select inode, offset, mtime from cursors where path = ?", {path});
  if (rows.empty())
    return std::nullopt;
  const auto inode = rows.front().integer("inode");
  const auto offset = rows.front().integer("offset");
  const auto mtime = rows.front().real("mtime");
  if (!inode || !offset || !mtime)
    return std::nullopt;
  return BackendFileCursor{.inode = static_cast<std::uint64_t>(*inode),
                           .offset = static_cast<std::uint64_t>(*offset),
                           .mtime = *mtime};
}

void BackendEventStore::setCursor(const BackendFileCursor& cursor,
                                  std::string_view path,
                                  Date now) {
  db_->run(
      "insert or replace into cursors(path, inode, offset, mtime, seen) values (?, ?, ?, ?, ?)",
      {path,
       signedBits(cursor.inode),
       signedBits(cursor.offset),
       cursor.mtime,
       secondsSince1970(now)});
}

// The key and the count belong together: with the key alone the edit would never be counted. A
// savepoint holds them together also where the scan got no transaction.
std::optional<EditBucket> BackendEventStore::addEdit(const Edit& edit) {
  if (db_->run("savepoint edit") < 0)
    return std::nullopt;
  EditBucket bucket;
  const bool counted = countEdit(edit, bucket) && db_->run("release edit") >= 0;
  if (counted)
    return bucket;
  // Unless the failure has undone the whole transaction already.
  if (db_->inTransaction()) {
    db_->run("rollback to edit");
    db_->run("release edit");
  }
  return std::nullopt;
}

bool BackendEventStore::countEdit(const Edit& edit, EditBucket& bucket) {
  if (!markSeen(edit.key, edit.date))
    return false;
  const std::int64_t minute = BackendEventRow::minute(edit.date);
  const std::string_view session = edit.sessionID ? std::string_view(*edit.sessionID) : "";
  const auto failures = db_->failures();
  const auto rows = db_->query(
      "select files, paths from edit_minutes where root = ? and session_id = ? and minute = ?",
      {edit.root, session, minute});
  if (db_->failures() != failures)
    return false;
  std::vector<std::string> paths = BackendEventRow::paths(firstText(rows, "paths").value_or(""));
  for (const std::string& path : edit.paths) {
    if (paths.size() < BackendEventRow::maxPaths && std::ranges::count(paths, path) == 0)
      paths.push_back(path);
  }
  const auto stored = rows.empty() ? std::nullopt : rows.front().integer("files");
  bucket = {.projectRoot = edit.root,
            .projectName = BackendEventRow::projectName(edit.root),
            .sessionID = edit.sessionID,
            .start = Date(std::chrono::minutes(minute)),
            .files = boundedSum(stored.value_or(0), edit.paths.size()),
            .paths = std::move(paths)};
  const std::string lines = joinedLines(bucket.paths);
  return db_->run(
             "insert or replace into edit_minutes(root, session_id, minute, files, paths) "
             "values (?, ?, ?, ?, ?)",
             {edit.root, session, minute, bucket.files, lines}) >= 0;
}

std::optional<std::string> BackendEventStore::prTitle(std::int64_t number,
                                                      const std::optional<std::string>& slug,
                                                      std::string_view root) {
  const std::string ref = std::to_string(number);
  return firstText(db_->query("select title from events where kind = ? and ref = ? and "
                              "(root = ? or detail = ?) order by ts desc limit 1",
                              {rawValue(ActivityKind::prOpened), ref, root, textOrNull(slug)}),
                   "title");
}

bool BackendEventStore::hasPullRequest(ActivityKind kind,
                                       std::string_view number,
                                       std::string_view root,
                                       const std::optional<std::string>& slug) {
  return !db_->query(
                 "select 1 from events where kind = ? and ref = ? and "
                 "(root = ? or (detail is not null and detail = ?)) limit 1",
                 {rawValue(kind), number, root, textOrNull(slug)})
              .empty();
}

BackendEventStore::PRReconcile BackendEventStore::reconcilePR(const PullRequest& pr) {
  const auto rows = db_->query(selectPullRequest, {rawValue(pr.kind), pr.number, pr.slug, pr.root});
  const auto id = rows.empty() ? std::nullopt : rows.front().integer("id");
  if (!id)
    return {.kind = PRReconcile::Kind::missing};
  bool changed = false;
  for (auto twin = rows.begin() + 1; twin != rows.end(); ++twin) {
    const auto twinID = twin->integer("id");
    const std::string* root = twin->text("root");
    if (twinID && root != nullptr && isGitHubRoot(*root))
      changed |= db_->run("delete from events where rowid = ?", {*twinID}) > 0;
  }
  const std::string stored = firstText(rows, "root").value_or("");
  const bool promoted = isGitHubRoot(stored) && !isGitHubRoot(pr.root) && !isTaken(pr);
  if (promoted || !isUpToDate(rows.front(), pr)) {
    db_->run(updatePullRequest,
             {secondsSince1970(pr.date),
              pr.title,
              textOrNull(pr.branch),
              pr.slug,
              promoted ? pr.root : stored,
              *id});
    changed = true;
  }
  if (!changed)
    return {.kind = PRReconcile::Kind::unchanged};
  std::optional<ActivityEvent> event;
  db_->visit("select * from events where rowid = ?", {*id}, [&event](const StatementRow& row) {
    event = BackendEventRow::event(row);
  });
  if (!event)
    return {.kind = PRReconcile::Kind::unchanged};
  return {.kind = PRReconcile::Kind::updated, .event = std::move(event)};
}

// Another repository's pull request, of the same number, may stand under the root. Were the row put
// there all the same, the statement would fail in every pass.
bool BackendEventStore::isTaken(const PullRequest& pr) {
  return !db_->query("select 1 from events where kind = ? and ref = ? and root = ?",
                     {rawValue(pr.kind), pr.number, pr.root})
              .empty();
}

bool BackendEventStore::isSeen(std::string_view key) {
  return !db_->query("select 1 from seen_items where key = ? limit 1", {key}).empty();
}

bool BackendEventStore::markSeen(std::string_view key, Date date) {
  return db_->run("insert or ignore into seen_items(key, ts) values (?, ?)",
                  {key, secondsSince1970(date)}) == 1;
}

std::optional<std::string> BackendEventStore::value(std::string_view key) {
  return firstText(db_->query("select value from kv where key = ?", {key}), "value");
}

void BackendEventStore::setValue(std::string_view key, std::string_view value) {
  db_->run("insert or replace into kv(key, value) values (?, ?)", {key, value});
}

std::vector<std::string> BackendEventStore::localRoots() {
  std::vector<std::string> roots;
  for (const DatabaseRow& row :
       db_->query("select distinct root from events where root not like 'github:%'")) {
    if (const std::string* root = row.text("root"))
      roots.push_back(*root);
  }
  return roots;
}

void BackendEventStore::prune(Date now) {
  const Date cutOff = now - window;
  const double seconds = secondsSince1970(cutOff);
  db_->run("delete from events where ts < ?", {seconds});
  db_->run("delete from edit_minutes where minute < ?", {BackendEventRow::minute(cutOff)});
  db_->run("delete from seen_items where ts < ?", {seconds});
  db_->run("delete from cursors where seen < ?", {seconds});
}

}  // namespace tessivane
