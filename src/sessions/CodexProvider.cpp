#include "sessions/CodexProvider.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <functional>
#include <set>
#include <span>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "sessions/ProjectRootResolver.h"
#include "support/Files.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr Seconds stalledAfter{900};
constexpr Seconds quietAfter{120};

// The columns of the table of threads, of which every version of Codex has others.
class ThreadColumns final {
 public:
  explicit ThreadColumns(const std::vector<DatabaseRow>& tableInfo) {
    for (const DatabaseRow& row : tableInfo) {
      if (const std::string* name = row.text("name"))
        names_.insert(*name);
    }
  }

  bool contains(std::string_view name) const { return names_.contains(name); }

  /// The column, or what stands in for it.
  std::string orElse(std::string_view name, std::string_view substitute = "null") const {
    return std::string(contains(name) ? name : substitute);
  }

 private:
  std::set<std::string, std::less<>> names_;
};

std::string threadsStatement(const ThreadColumns& columns) {
  // Codex 0.120 keeps the update time in seconds only, and has no other measure of recency.
  const std::string updated =
      columns.orElse("updated_at_ms", columns.orElse("updated_at") + " * 1000");
  const std::string recency = columns.orElse("recency_at_ms", "coalesce(" + updated + ", 0)");
  return fmt::format(
      "select id, rollout_path, {updated} as updated_at_ms,"
      " length(coalesce({name}, '')) as name_len, length(coalesce(title, '')) as title_len,"
      " cwd, source, {threadSource} as thread_source, {model} as model,"
      " {nickname} as agent_nickname, {originator} as originator, {recency} as activity_ms,"
      " coalesce({createdMs}, {created} * 1000) as created_ms"
      " from threads"
      " where archived = 0 and coalesce({threadSource}, '') != 'guardian_review'"
      " and source not like '%\"guardian\"%'"
      " and max({recency}, coalesce({updated}, 0)) >= cast(? as integer)"
      " order by activity_ms desc limit {limit}",
      fmt::arg("updated", updated),
      fmt::arg("name", columns.orElse("name")),
      fmt::arg("threadSource", columns.orElse("thread_source")),
      fmt::arg("model", columns.orElse("model")),
      fmt::arg("nickname", columns.orElse("agent_nickname")),
      fmt::arg("originator", columns.orElse("originator")),
      fmt::arg("recency", recency),
      fmt::arg("createdMs", columns.orElse("created_at_ms")),
      fmt::arg("created", columns.orElse("created_at")),
      fmt::arg("limit", CodexProvider::maxThreads));
}

std::vector<DatabaseRow> titleRows(ReadOnlyDatabase& db,
                                   const std::vector<std::string>& ids,
                                   bool hasName) {
  std::string marks = "?";
  for (std::size_t i = 1; i < ids.size(); ++i)
    marks += ",?";
  return db.query(fmt::format("select id, {}, title from threads where id in ({})",
                              hasName ? "name" : "null as name",
                              marks),
                  ids);
}

std::string millisecondsText(Date date) {
  return std::to_string(
      std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count());
}

std::string_view textOf(const DatabaseRow& row, std::string_view column) {
  const std::string* text = row.text(column);
  return text == nullptr ? std::string_view() : *text;
}

std::optional<Date> dateOf(const DatabaseRow& row, std::string_view column) {
  const DatabaseValue* value = row.value(column);
  if (value == nullptr)
    return std::nullopt;
  if (const auto* text = std::get_if<std::string>(value))
    return msDate(*text);
  if (const auto* integer = std::get_if<std::int64_t>(value))
    return msDate(static_cast<double>(*integer));
  return msDate(std::get<double>(*value));
}

TitleStamp titleStamp(const DatabaseRow& row) {
  return {.updatedMs = row.integer("updated_at_ms"),
          .nameLength = row.integer("name_len").value_or(0),
          .titleLength = row.integer("title_len").value_or(0)};
}

std::string titleOf(const DatabaseRow& row) {
  const std::string_view name = textOf(row, "name");
  const auto line = ProviderCacheText::firstLine(name.empty() ? textOf(row, "title") : name,
                                                 CodexProvider::maxTitleCharacters);
  return line ? repairedUTF8(*line) : std::string(untitled);
}

// Codex writes the sources of threads that other threads spawned as JSON objects.
SessionKind kindOf(const DatabaseRow& row) {
  const std::string_view source = textOf(row, "source");
  if (textOf(row, "thread_source") == "subagent" || source.starts_with('{'))
    return SessionKind::subagent;
  if (source == "automation" || source == "exec")
    return SessionKind::automation;
  return SessionKind::session;
}

std::string shownTitle(const DatabaseRow& row, const std::string& title) {
  const std::string nickname = repairedUTF8(textOf(row, "agent_nickname"));
  if (nickname.empty())
    return title;
  return std::string(prefixCharacters(nickname + ": " + title, CodexProvider::maxTitleCharacters));
}

// N of "state_N.sqlite".
std::optional<std::int64_t> stateNumber(std::string_view name) {
  constexpr std::string_view prefix = "state_";
  constexpr std::string_view suffix = ".sqlite";
  if (!name.starts_with(prefix) || !name.ends_with(suffix))
    return std::nullopt;
  name.remove_prefix(prefix.size());
  name.remove_suffix(suffix.size());
  std::int64_t number = 0;
  const char* const end = name.data() + name.size();
  const auto parsed = std::from_chars(name.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end)
    return std::nullopt;
  return number;
}

}  // namespace

CodexProvider::CodexProvider(std::string directory, std::optional<std::string> dbPath, Clock now)
    : directory_(std::move(directory)), dbPath_(std::move(dbPath)), now_(std::move(now)) {}

std::optional<std::string> CodexProvider::latestStateDatabase(const std::string& directory) {
  std::optional<std::int64_t> highest;
  std::string latest;
  for (std::string& name : directoryEntries(directory)) {
    const auto number = stateNumber(name);
    if (!number || (highest && *number <= *highest))
      continue;
    highest = number;
    latest = std::move(name);
  }
  if (!highest)
    return std::nullopt;
  return joinedPath(directory, latest);
}

CodexProvider::Status CodexProvider::status(const std::optional<std::string>& lifecycle,
                                            std::string_view lastMessage,
                                            Seconds age) {
  const auto made = [lastMessage](SessionStatus status, std::string_view detail) {
    return Status{status, std::string(detail), std::string(lastMessage)};
  };
  const std::string_view event = lifecycle ? std::string_view(*lifecycle) : std::string_view();
  if (std::ranges::find(RolloutTail::needsInput, event) != RolloutTail::needsInput.end())
    return made(SessionStatus::needsYou, "Waiting for approval");
  if (event == "task_complete")
    return made(SessionStatus::yourTurn, "Done, your turn");
  if (event == "turn_aborted")
    return made(SessionStatus::idle, "Aborted");
  const bool started = event == "task_started";
  if (age < (started ? stalledAfter : quietAfter))
    return made(SessionStatus::working, "Working");
  return made(SessionStatus::idle, started ? "Stalled" : "Idle");
}

std::vector<AgentSession> CodexProvider::sessions(Date since, ProjectRootResolver& roots) {
  lastError_.reset();
  const auto path = dbPath_ ? dbPath_ : latestStateDatabase(directory_);
  if (!path)
    return {};
  const auto db = ReadOnlyDatabase::open(*path, &copies_);
  if (db == nullptr) {
    if (fileExists(*path))
      lastError_ = "Codex database could not be opened";
    return {};
  }
  // Each query may wait for a writer, so the first one that fails ends the pass.
  const ThreadColumns columns(db->query("pragma table_info(threads)"));
  if (db->lastError())
    return fail(*db);
  const auto rows = db->query(threadsStatement(columns), {millisecondsText(since)});
  if (db->lastError())
    return fail(*db);
  const auto titles = resolveTitles(rows, *db, columns.contains("name"));
  if (db->lastError())
    return fail(*db);

  const Pass pass{since, now_(), roots};
  std::vector<AgentSession> sessions;
  for (const DatabaseRow& row : rows) {
    if (auto made = session(row, titles, pass))
      sessions.push_back(std::move(*made));
  }
  return sessions;
}

std::vector<AgentSession> CodexProvider::fail(const ReadOnlyDatabase& db) {
  // The words may hold names out of a damaged file.
  lastError_ = "Codex database query failed: " + repairedUTF8(db.lastError().value_or(""));
  return {};
}

CodexProvider::Titles CodexProvider::resolveTitles(const std::vector<DatabaseRow>& rows,
                                                   ReadOnlyDatabase& db,
                                                   bool hasName) {
  Titles titles;
  std::set<std::string> ids;
  std::vector<std::string> missing;
  std::unordered_map<std::string, TitleStamp> stamps;
  for (const DatabaseRow& row : rows) {
    const std::string* id = row.text("id");
    if (id == nullptr || !ids.insert(*id).second)
      continue;
    const TitleStamp stamp = titleStamp(row);
    if (const std::string* known = titleCache_.cached(*id, stamp)) {
      titles.emplace(*id, *known);
    } else {
      missing.push_back(*id);
      stamps.emplace(*id, stamp);
    }
  }
  for (std::size_t first = 0; first < missing.size(); first += titlesPerQuery) {
    const std::size_t last = std::min(first + titlesPerQuery, missing.size());
    const auto from = missing.begin();
    const std::vector<std::string> chunk(from + static_cast<std::ptrdiff_t>(first),
                                         from + static_cast<std::ptrdiff_t>(last));
    for (const DatabaseRow& row : titleRows(db, chunk, hasName)) {
      const auto stamp = stamps.find(std::string(textOf(row, "id")));
      if (stamp == stamps.end())
        continue;
      ++titleFetches_;
      titles[stamp->first] = titleCache_.store(stamp->first, stamp->second, titleOf(row));
    }
    if (db.lastError())
      break;
  }
  titleCache_.prune(ids);
  return titles;
}

std::optional<AgentSession> CodexProvider::session(const DatabaseRow& row,
                                                   const Titles& titles,
                                                   const Pass& pass) {
  const std::string* id = row.text("id");
  if (id == nullptr)
    return std::nullopt;
  const std::string rollout(textOf(row, "rollout_path"));
  const RolloutTail tail = tailOf(rollout);
  const Date activity = std::max(dateOf(row, "activity_ms").value_or(distantPast),
                                 tail.lastActivity.value_or(distantPast));
  if (activity < pass.since)
    return std::nullopt;
  const auto title = titles.find(*id);
  Status status =
      CodexProvider::status(tail.lifecycle, tail.lastMessage, elapsed(activity, pass.now));

  AgentSession session;
  session.agent = Agent::codex;
  session.nativeID = repairedUTF8(*id);
  session.title = shownTitle(row, title == titles.end() ? std::string(untitled) : title->second);
  session.cwd = textOf(row, "cwd");
  session.projectPath = pass.roots.root(session.cwd);
  session.model = repairedUTF8(textOf(row, "model"));
  session.activity = activity;
  session.status = status.status;
  session.detail = std::move(status.detail);
  session.lastMessage = std::move(status.lastMessage);
  session.openURL = "codex://threads/" + session.nativeID;
  session.kind = kindOf(row);
  if (const std::string* originator = row.text("originator"))
    session.launcher = repairedUTF8(*originator);
  if (!rollout.empty())
    session.transcriptPath = rollout;
  session.startedAt = dateOf(row, "created_ms");
  return session;
}

RolloutTail CodexProvider::tailOf(const std::string& path) {
  const auto stamp = fileStamp(path);
  if (!stamp)
    return {};
  if (const RolloutTail* known = eventCache_.find(path, *stamp))
    return *known;
  return eventCache_.store(path, *stamp, readTail(path));
}

}  // namespace tessivane
