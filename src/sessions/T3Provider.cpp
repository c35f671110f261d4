#include "sessions/T3Provider.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "sessions/ProjectRootResolver.h"
#include "sessions/Resources.h"
#include "sessions/T3Schema.h"
#include "sessions/T3ThreadState.h"
#include "support/Files.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t maxEnvironmentBytes = 4096;

constexpr std::string_view legacyStatement =
    R"(select t.thread_id, t.title, t.pending_approval_count, t.pending_user_input_count,
       t.updated_at, t.settled_at,
       coalesce(t.worktree_path, p.workspace_root) as cwd,
       coalesce(json_extract(t.model_selection_json, '$.model'), '') as model,
       coalesce(json_extract(t.model_selection_json, '$.instanceId'),
                json_extract(t.model_selection_json, '$.provider'), '') as provider,
       s.status as session_status, s.active_turn_id,
       (select m.text from projection_thread_messages m
         where m.thread_id = t.thread_id and m.role = 'assistant'
         order by m.created_at desc limit 1) as last_text
from projection_threads t
left join projection_projects p on p.project_id = t.project_id
left join projection_thread_sessions s on s.thread_id = t.thread_id
where t.deleted_at is null and t.archived_at is null and julianday(t.updated_at) >= julianday(?)
order by t.updated_at desc limit 200)";

// After a failure for a writer's lock the next query would wait just as long.
bool waitedForLock(const ReadOnlyDatabase& db) {
  return db.lastError() == "database is locked";
}

// Text to be shown; empty when the row has none.
std::string shownText(const DatabaseRow& row, std::string_view column) {
  const std::string* text = row.text(column);
  return text == nullptr ? std::string() : repairedUTF8(*text);
}

std::string rawText(const DatabaseRow& row, std::string_view column) {
  const std::string* text = row.text(column);
  return text == nullptr ? std::string() : *text;
}

std::string modelText(const DatabaseRow& row) {
  const std::string provider = shownText(row, "provider");
  const std::string model = shownText(row, "model");
  if (provider.empty() || model.empty())
    return provider + model;
  return provider + " / " + model;
}

std::int64_t pendingCount(const DatabaseRow& row) {
  constexpr std::int64_t limit = 1'000'000;  // far from where a sum would overflow
  std::int64_t count = 0;
  for (const auto* column : {"pending_count", "pending_approval_count", "pending_user_input_count"})
    count += std::clamp(row.integer(column).value_or(0), -limit, limit);
  return count;
}

std::optional<Agent> agentOfDriver(std::string_view driver) {
  if (driver == "codex")
    return Agent::codex;
  if (driver == "claudeAgent")
    return Agent::claude;
  return std::nullopt;
}

}  // namespace

T3Provider::T3Provider(std::vector<std::string> dbPaths, Clock now)
    : dbPaths_(std::move(dbPaths)), now_(std::move(now)) {}

std::vector<AgentSession> T3Provider::sessions(Date since, ProjectRootResolver& roots) {
  owners_.clear();
  diagnostic_.reset();
  const auto path = std::find_if(dbPaths_.begin(), dbPaths_.end(), fileExists);
  if (path == dbPaths_.end())
    return {};
  environment_ = escapedEnvironment(*path);
  const auto db = ReadOnlyDatabase::open(*path, &copies_);
  if (!db) {
    diagnostic_ = "T3 database is unreadable: could not open the file";
    return {};
  }
  return finish(rows(*db, isoTextWithMilliseconds(since)), {since, now_(), roots});
}

std::vector<DatabaseRow> T3Provider::rows(ReadOnlyDatabase& db, const std::string& since) {
  const auto tables = t3TableNames(db);
  if (db.lastError()) {
    diagnostic_ = "T3 database is unreadable: " + *db.lastError();
    return {};
  }
  // A file of the newer schema has the older tables too, frozen as they were when it was made.
  if (tables.contains("orchestration_v2_projection_threads"))
    return orchestrationRows(db, since);
  if (tables.contains("projection_threads"))
    return legacyRows(db, since);
  diagnostic_ = "Unsupported T3 database schema";
  return {};
}

std::vector<DatabaseRow> T3Provider::legacyRows(ReadOnlyDatabase& db, const std::string& since) {
  static constexpr std::string_view failure = "T3 legacy query failed: ";
  const auto& tables = t3LegacyTables();
  const auto columns = t3Columns(db, tables);
  if (!columns) {
    diagnostic_ = std::string(failure) + *db.lastError();
    return {};
  }
  auto rows = db.query(t3FittedStatement(legacyStatement, tables, *columns), {since});
  if (!db.lastError())
    return rows;
  diagnostic_ = std::string(failure) + *db.lastError();
  if (waitedForLock(db))
    return rows;
  // One model selection that is no JSON ends the statement. The other threads are still wanted.
  auto spared =
      db.query(t3FittedStatement(legacyStatement, tables, *columns, T3BadJSON::isAbsent), {since});
  return db.lastError() ? rows : spared;
}

std::vector<DatabaseRow> T3Provider::orchestrationRows(ReadOnlyDatabase& db,
                                                       const std::string& since) {
  static constexpr std::string_view identityFailure = "T3 identity query failed: ";
  const auto& tables = t3OrchestrationTables();
  const auto columns = t3Columns(db, tables);
  if (!columns) {
    diagnostic_ = std::string(identityFailure) + *db.lastError();
    return {};
  }
  readOwners(db.query(t3FittedStatement(sql("t3-identities"), tables, *columns)));
  if (db.lastError())
    diagnostic_ = std::string(identityFailure) + *db.lastError();
  if (waitedForLock(db))
    return {};
  auto rows = db.query(t3FittedStatement(sql("t3-threads"), tables, *columns), {since});
  if (db.lastError())
    diagnostic_ = "T3 thread query failed: " + *db.lastError();
  return rows;
}

void T3Provider::readOwners(const std::vector<DatabaseRow>& identities) {
  for (const DatabaseRow& row : identities) {
    const std::string* thread = row.text("thread_id");
    const std::string* native = row.text("native_id");
    const std::string* driver = row.text("driver");
    if (thread == nullptr || native == nullptr || driver == nullptr)
      continue;
    if (const auto agent = agentOfDriver(*driver))
      owners_[sessionKey(*agent, *native)].insert(*thread);
  }
}

std::vector<AgentSession> T3Provider::finish(const std::vector<DatabaseRow>& rows,
                                             const Pass& pass) {
  std::vector<AgentSession> sessions;
  std::set<std::string> threads;
  for (const DatabaseRow& row : rows) {
    if (const std::string* thread = row.text("thread_id"))
      threads.insert(*thread);
    if (auto session = makeSession(row, pass))
      sessions.push_back(std::move(*session));
  }
  lastTexts_.prune(threads);
  return sessions;
}

std::optional<AgentSession> T3Provider::makeSession(const DatabaseRow& row, const Pass& pass) {
  const std::string* thread = row.text("thread_id");
  const auto time = activity(row);
  if (thread == nullptr || !time)
    return std::nullopt;
  const T3ThreadState state{.activity = *time,
                            .pending = pendingCount(row),
                            .sessionStatus = rawText(row, "session_status"),
                            .hasActiveTurn = row.text("active_turn_id") != nullptr,
                            .settledOverride = rawText(row, "settled_override"),
                            .settledAt = date(row, "settled_at"),
                            .unsettledAt = date(row, "unsettled_at"),
                            .snoozedUntil = date(row, "snoozed_until")};
  if (*time < pass.since && state.pending <= 0)
    return std::nullopt;

  AgentSession session{.agent = Agent::t3, .nativeID = *thread, .activity = *time};
  session.title = shownText(row, "title");
  if (session.title.empty())
    session.title = untitled;
  session.cwd = rawText(row, "cwd");
  session.projectPath = pass.roots.root(session.cwd);
  session.model = modelText(row);
  auto [status, detail] = state.status(pass.now);
  session.status = status;
  session.detail = std::move(detail);
  session.lastMessage = lastMessage(*thread, row.text("last_text"));
  if (environment_)
    session.openURL = threadURL(*thread, *environment_);
  if (rawText(row, "relationship") == "subagent")
    session.kind = SessionKind::subagent;
  session.startedAt = date(row, "created_at");
  return session;
}

std::optional<Date> T3Provider::date(const DatabaseRow& row, std::string_view column) {
  const std::string* text = row.text(column);
  return text == nullptr ? std::nullopt : dates_.date(*text);
}

std::optional<Date> T3Provider::activity(const DatabaseRow& row) {
  std::optional<Date> latest;
  for (const auto* column : {"last_message_at", "run_requested_at", "run_completed_at"})
    latest = std::max(latest, date(row, column));
  return latest ? latest : date(row, "updated_at");
}

std::string T3Provider::lastMessage(const std::string& thread, const std::string* raw) {
  if (raw == nullptr)
    return {};
  ProviderCacheTextStamp stamp{*raw};
  if (const std::string* known = lastTexts_.cached(thread, stamp))
    return *known;
  const std::string repaired = repairedUTF8(*raw);
  std::string cleaned(prefixCharacters(trimmed(repaired), AgentSession::maxMessageCharacters));
  return lastTexts_.store(thread, std::move(stamp), std::move(cleaned));
}

std::optional<std::string> T3Provider::escapedEnvironment(const std::string& dbPath) {
  const auto slash = dbPath.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : dbPath.substr(0, slash);
  const auto file = readWholeFile(joinedPath(directory, "environment-id"), maxEnvironmentBytes);
  if (!file || !isValidUTF8(*file) || trimmed(*file).empty())
    return std::nullopt;
  return percentEncoded(trimmed(*file));
}

std::optional<std::string> T3Provider::threadURL(std::string_view thread,
                                                 std::string_view escapedEnvironment) {
  if (!isValidUTF8(thread))
    return std::nullopt;
  return "t3code://threads/" + std::string(escapedEnvironment) + "/" + percentEncoded(thread);
}

std::string_view T3Provider::sql(std::string_view name) {
  if (name == "t3-identities")
    return resources::t3IdentitiesSql;
  if (name == "t3-threads")
    return resources::t3ThreadsSql;
  return {};
}

}  // namespace tessivane
