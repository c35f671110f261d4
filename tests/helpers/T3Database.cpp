#include "helpers/T3Database.h"

#include <string_view>
#include <utility>

namespace tessivane {

namespace {

// Columns in the order of T3's migrations.
constexpr const char* legacySchema = R"(
create table projection_projects (project_id text primary key, title text not null,
  workspace_root text not null, scripts_json text not null, created_at text not null,
  updated_at text not null, deleted_at text, default_model_selection_json text);
create table projection_threads (thread_id text primary key, project_id text not null,
  title text not null, branch text, worktree_path text, latest_turn_id text,
  created_at text not null, updated_at text not null, deleted_at text,
  runtime_mode text not null default 'full-access',
  interaction_mode text not null default 'default', model_selection_json text, archived_at text,
  latest_user_message_at text, pending_approval_count integer not null default 0,
  pending_user_input_count integer not null default 0, settled_override text, settled_at text,
  snoozed_until text, unsettled_at text);
create table projection_thread_messages (message_id text primary key, thread_id text not null,
  turn_id text, role text not null, text text not null, is_streaming integer not null,
  created_at text not null, updated_at text not null, attachments_json text);
create index idx_projection_thread_messages_thread_created_id
  on projection_thread_messages(thread_id, created_at, message_id);
create table projection_thread_sessions (thread_id text primary key, status text not null,
  provider_name text, provider_session_id text, provider_thread_id text, active_turn_id text,
  last_error text, updated_at text not null);
create table provider_session_runtime (thread_id text primary key, provider_name text not null,
  adapter_key text not null, runtime_mode text not null default 'full-access',
  status text not null, last_seen_at text not null, resume_cursor_json text,
  runtime_payload_json text, provider_instance_id text);
)";

constexpr const char* orchestrationSchema = R"(
create table v2_threads (thread_id text primary key, project_id text not null,
  title text not null, default_provider text not null, runtime_mode text not null,
  interaction_mode text not null, active_provider_thread_id text, created_at text not null,
  updated_at text not null, archived_at text, deleted_at text, payload_json text not null,
  provider_instance_id text);
create index v2_threads_active_idx on v2_threads(updated_at, thread_id)
  where deleted_at is null and archived_at is null;
create table v2_runs (run_id text primary key, thread_id text not null, ordinal integer not null,
  provider text not null, provider_thread_id text, status text not null,
  requested_at text not null, completed_at text, payload_json text not null,
  provider_instance_id text);
create unique index v2_runs_thread_ordinal_idx on v2_runs(thread_id, ordinal);
create index v2_runs_recovery_idx on v2_runs(status, thread_id)
  where status in ('queued', 'preparing', 'starting', 'running', 'waiting');
create table v2_run_attempts (attempt_id text primary key, thread_id text not null,
  run_id text not null, attempt_ordinal integer not null, root_node_id text not null,
  provider text not null, provider_thread_id text not null, provider_turn_id text,
  status text not null, payload_json text not null, provider_instance_id text);
create table v2_subagents (subagent_id text primary key, thread_id text not null, run_id text,
  parent_node_id text not null, provider text not null, provider_thread_id text,
  child_thread_id text, origin text not null, status text not null, started_at text,
  completed_at text, updated_at text not null, payload_json text not null, driver text);
create index v2_subagents_child_thread_idx on v2_subagents(child_thread_id);
create table v2_provider_threads (provider_thread_id text primary key, thread_id text,
  owner_node_id text, provider text not null, provider_session_id text, status text not null,
  first_run_ordinal integer, last_run_ordinal integer, updated_at text not null,
  payload_json text not null, driver text);
create table v2_runtime_requests (runtime_request_id text primary key, thread_id text not null,
  node_id text not null, provider_turn_id text, kind text not null, status text not null,
  created_at text not null, resolved_at text, payload_json text not null);
create index v2_requests_recovery_idx on v2_runtime_requests(thread_id)
  where status = 'pending';
create table v2_messages (message_id text primary key, thread_id text not null, run_id text,
  node_id text, role text not null, streaming integer not null, created_at text not null,
  updated_at text not null, payload_json text not null);
create index v2_messages_thread_created_idx on v2_messages(thread_id, created_at, message_id);
create table v2_turn_items (turn_item_id text primary key, thread_id text not null, run_id text,
  node_id text, provider_thread_id text, provider_turn_id text, parent_item_id text,
  ordinal integer not null, type text not null, status text not null, updated_at text not null,
  payload_json text not null);
create index v2_turn_items_run_ordinal_idx on v2_turn_items(run_id, ordinal);
create index v2_turn_items_thread_run_idx on v2_turn_items(thread_id, run_id);
)";

// What "v2_" stands for.
constexpr std::string_view prefix = "orchestration_v2_projection_";

std::string withLongNames(std::string sql) {
  for (auto at = sql.find("v2_"); at != std::string::npos; at = sql.find("v2_", at + 3)) {
    if (at == 0 || sql[at - 1] != '_')
      sql.replace(at, 3, prefix);
  }
  return sql;
}

}  // namespace

T3Database::T3Database(const std::string& path, T3Generation generation) : db_(path) {
  execute(legacySchema);
  if (generation == T3Generation::orchestration)
    execute(orchestrationSchema);
}

void T3Database::execute(std::string sql) const {
  db_.execute(withLongNames(std::move(sql)));
}

void T3Database::insert(std::string table, json row) const {
  db_.insert(withLongNames(std::move(table)), std::move(row));
}

}  // namespace tessivane
