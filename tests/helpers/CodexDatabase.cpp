#include "helpers/CodexDatabase.h"

#include <chrono>
#include <filesystem>
#include <stdexcept>

#include <sqlite3.h>

namespace tessivane {

namespace {

constexpr const char* columnsOf120 = R"(
    id text primary key, rollout_path text not null, created_at integer not null,
    updated_at integer not null, source text not null, model_provider text not null default '',
    cwd text not null, title text not null, sandbox_policy text not null default '{}',
    approval_mode text not null default 'never', tokens_used integer not null default 0,
    has_user_event integer not null default 0, archived integer not null default 0,
    archived_at integer, git_sha text, git_branch text, git_origin_url text,
    cli_version text not null default '', first_user_message text not null default '',
    agent_nickname text, agent_role text, memory_mode text not null default 'enabled',
    model text, reasoning_effort text, agent_path text)";

constexpr const char* columnsSince142 = R"(,
    created_at_ms integer, updated_at_ms integer, thread_source text,
    preview text not null default '', recency_at integer not null default 0,
    recency_at_ms integer not null default 0)";

constexpr const char* columnsSince169 = R"(,
    history_mode text not null default 'legacy', name text, is_pinned integer not null default 0,
    thread_section_id text, section_position integer, section_entered_at_ms integer,
    project_id text, originator text, daybreak_enabled boolean, creator_user_id text,
    creator_account_id text, attached_thread_parent_id text)";

std::string literal(const std::optional<std::string>& text) {
  if (!text)
    return "null";
  std::string quoted = "'";
  for (const char c : *text)
    quoted += c == '\'' ? std::string("''") : std::string(1, c);
  return quoted + "'";
}

template <typename Unit>
std::string number(Date date) {
  return std::to_string(std::chrono::floor<Unit>(date.time_since_epoch()).count());
}

}  // namespace

CodexDatabase::CodexDatabase(const std::string& path, CodexVersion version) : version_(version) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK)
    throw std::runtime_error("CodexDatabase: cannot open " + path);
  std::string columns = columnsOf120;
  if (version >= CodexVersion::v142)
    columns += columnsSince142;
  if (version >= CodexVersion::v169)
    columns += columnsSince169;
  execute("pragma synchronous = off; pragma journal_mode = wal; create table threads (" + columns +
          ")");
}

CodexDatabase::~CodexDatabase() {
  sqlite3_close(db_);
}

void CodexDatabase::insert(const CodexThread& thread) {
  using std::chrono::milliseconds;
  using std::chrono::seconds;
  const Date updated = thread.updated.value_or(thread.recency);
  const Date created = thread.created.value_or(thread.recency);
  std::string names = "id, rollout_path, title, cwd, source, agent_nickname, model, archived";
  std::string values;
  for (const auto& text : {thread.id, thread.rolloutPath, thread.title, thread.cwd, thread.source})
    values += literal(text) + ", ";
  values += literal(thread.agentNickname) + ", 'gpt-5.4', " + (thread.archived ? "1" : "0");
  const auto add = [&](const std::string& name, const std::string& value) {
    names += ", " + name;
    values += ", " + value;
  };
  add("created_at", number<seconds>(created));
  add("updated_at", number<seconds>(updated));
  if (version_ >= CodexVersion::v142) {
    add("created_at_ms", number<milliseconds>(created));
    add("updated_at_ms", number<milliseconds>(updated));
    add("recency_at_ms", number<milliseconds>(thread.recency));
    add("thread_source", literal(thread.threadSource));
  }
  if (version_ >= CodexVersion::v169) {
    add("name", literal(thread.name));
    add("originator", literal(thread.originator));
  }
  execute("insert into threads (" + names + ") values (" + values + ")");
}

void CodexDatabase::execute(const std::string& sql) {
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    throw std::runtime_error("CodexDatabase: " + std::string(sqlite3_errmsg(db_)) + ": " + sql);
}

}  // namespace tessivane
