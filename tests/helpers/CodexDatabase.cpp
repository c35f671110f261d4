#include "helpers/CodexDatabase.h"

#include <chrono>
#include <cstdint>
#include <utility>

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

template <typename Unit>
std::int64_t number(Date date) {
  return std::chrono::floor<Unit>(date.time_since_epoch()).count();
}

json orNull(const std::optional<std::string>& text) {
  return text ? json(*text) : json();
}

}  // namespace

CodexDatabase::CodexDatabase(const std::string& path, CodexVersion version)
    : db_(path), version_(version) {
  std::string columns = columnsOf120;
  if (version >= CodexVersion::v142)
    columns += columnsSince142;
  if (version >= CodexVersion::v169)
    columns += columnsSince169;
  execute("create table threads (" + columns + ")");
}

void CodexDatabase::insert(const CodexThread& thread) {
  using std::chrono::milliseconds;
  using std::chrono::seconds;
  const Date updated = thread.updated.value_or(thread.recency);
  const Date created = thread.created.value_or(thread.recency);
  json row = {{"id", thread.id},
              {"rollout_path", thread.rolloutPath},
              {"title", thread.title},
              {"cwd", thread.cwd},
              {"source", thread.source},
              {"agent_nickname", orNull(thread.agentNickname)},
              {"model", "gpt-5.4"},
              {"archived", thread.archived ? 1 : 0},
              {"created_at", number<seconds>(created)},
              {"updated_at", number<seconds>(updated)}};
  if (version_ >= CodexVersion::v142) {
    row.update({{"created_at_ms", number<milliseconds>(created)},
                {"updated_at_ms", number<milliseconds>(updated)},
                {"recency_at_ms", number<milliseconds>(thread.recency)},
                {"thread_source", orNull(thread.threadSource)}});
  }
  if (version_ >= CodexVersion::v169)
    row.update({{"name", orNull(thread.name)}, {"originator", orNull(thread.originator)}});
  db_.insert("threads", std::move(row));
}

}  // namespace tessivane
