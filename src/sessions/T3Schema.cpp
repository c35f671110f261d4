#include "sessions/T3Schema.h"

namespace tessivane {

namespace {

// "a, b, c", appended piece by piece.
class List final {
 public:
  explicit List(std::string_view separator = ", ") : separator_(separator) {}

  void add(std::string_view item) {
    if (!text_.empty())
      text_ += separator_;
    text_ += item;
  }

  const std::string& text() const { return text_; }

 private:
  std::string_view separator_;
  std::string text_;
};

std::string columnExpression(const T3Column& column, bool exists, T3BadJSON badJSON) {
  std::string name(column.name);
  if (!exists)
    return std::string(column.standIn) + " as " + name;
  if (column.holdsJSON && badJSON == T3BadJSON::isAbsent)
    return "case when json_valid(" + name + ") then " + name + " end as " + name;
  return name;
}

// A common table expression that takes the place of `table`, or nothing where none is needed. The
// name with "main." before it still means the real table.
std::string replacement(const T3Table& table,
                        const std::set<std::string>* existing,
                        T3BadJSON badJSON) {
  List columns;
  bool differs = false;
  for (const T3Column& column : table.columns) {
    const bool exists = existing != nullptr && existing->contains(std::string(column.name));
    const std::string expression = columnExpression(column, exists, badJSON);
    differs = differs || expression != column.name;
    columns.add(expression);
  }
  if (!differs)
    return {};
  const std::string name(table.name);
  const std::string source = existing != nullptr ? "from main." + name : "where false";
  return name + " as (select " + columns.text() + " " + source + ")";
}

}  // namespace

const std::vector<T3Table>& t3LegacyTables() {
  static const std::vector<T3Table> tables{
      {.name = "projection_threads",
       .columns = {{.name = "thread_id"},
                   {.name = "project_id"},
                   {.name = "title"},
                   {.name = "worktree_path"},
                   {.name = "updated_at"},
                   {.name = "deleted_at"},
                   {.name = "archived_at"},
                   {.name = "pending_approval_count", .standIn = "0"},
                   {.name = "pending_user_input_count", .standIn = "0"},
                   {.name = "settled_at"},
                   {.name = "model_selection_json", .holdsJSON = true}}},
      {.name = "projection_projects",
       .columns = {{.name = "project_id"}, {.name = "workspace_root"}}},
      {.name = "projection_thread_sessions",
       .columns = {{.name = "thread_id"}, {.name = "status"}, {.name = "active_turn_id"}}},
      {.name = "projection_thread_messages",
       .columns = {
           {.name = "thread_id"}, {.name = "role"}, {.name = "text"}, {.name = "created_at"}}}};
  return tables;
}

const std::vector<T3Table>& t3OrchestrationTables() {
  static const std::vector<T3Table> tables{
      {.name = "orchestration_v2_projection_runs",
       .columns = {{.name = "run_id"},
                   {.name = "thread_id"},
                   {.name = "ordinal"},
                   {.name = "status"},
                   {.name = "requested_at"},
                   {.name = "completed_at"},
                   {.name = "payload_json"}}},
      {.name = "orchestration_v2_projection_run_attempts",
       .columns = {{.name = "thread_id"},
                   {.name = "provider_thread_id"},
                   {.name = "payload_json"}}},
      {.name = "orchestration_v2_projection_provider_threads",
       .columns = {{.name = "provider_thread_id"},
                   {.name = "thread_id"},
                   {.name = "payload_json"}}},
      {.name = "orchestration_v2_projection_runtime_requests",
       .columns = {{.name = "thread_id"}, {.name = "kind"}, {.name = "status"}}},
      {.name = "orchestration_v2_projection_messages",
       .columns = {{.name = "message_id"},
                   {.name = "thread_id"},
                   {.name = "role"},
                   {.name = "created_at"},
                   {.name = "updated_at"},
                   {.name = "payload_json"}}},
      {.name = "orchestration_v2_projection_turn_items",
       .columns = {{.name = "run_id"}, {.name = "ordinal"}, {.name = "type"}, {.name = "status"}}},
      {.name = "orchestration_v2_projection_subagents",
       .columns = {{.name = "subagent_id"},
                   {.name = "child_thread_id"},
                   {.name = "status"},
                   {.name = "updated_at"}}},
      {.name = "projection_projects",
       .columns = {{.name = "project_id"}, {.name = "workspace_root"}}},
      {.name = "provider_session_runtime",
       .columns = {
           {.name = "thread_id"}, {.name = "provider_name"}, {.name = "resume_cursor_json"}}}};
  return tables;
}

std::set<std::string> t3TableNames(ReadOnlyDatabase& db) {
  std::set<std::string> names;
  for (const DatabaseRow& row : db.query("select name from sqlite_master where type = 'table'")) {
    if (const std::string* name = row.text("name"))
      names.insert(*name);
  }
  return names;
}

std::optional<T3Columns> t3Columns(ReadOnlyDatabase& db, const std::vector<T3Table>& tables) {
  // Only the tables in question are named: one of a kind that this SQLite can't read would end the
  // query.
  List names;
  for (const T3Table& table : tables)
    names.add("'" + std::string(table.name) + "'");
  const auto rows = db.query(
      "select item.name as item, field.name as field "
      "from sqlite_master item join pragma_table_info(item.name) field "
      "where item.type = 'table' and item.name in (" +
      names.text() + ")");
  if (db.lastError())
    return std::nullopt;
  T3Columns columns;
  for (const DatabaseRow& row : rows) {
    const std::string* table = row.text("item");
    const std::string* column = row.text("field");
    if (table != nullptr && column != nullptr)
      columns[*table].insert(*column);
  }
  return columns;
}

std::string t3FittedStatement(std::string_view statement,
                              const std::vector<T3Table>& tables,
                              const T3Columns& columns,
                              T3BadJSON badJSON) {
  List replacements;
  for (const T3Table& table : tables) {
    const auto existing = columns.find(std::string(table.name));
    const std::string text =
        replacement(table, existing == columns.end() ? nullptr : &existing->second, badJSON);
    if (!text.empty())
      replacements.add(text);
  }
  if (replacements.text().empty())
    return std::string(statement);
  return "with " + replacements.text() + " select * from (" + std::string(statement) + "\n)";
}

}  // namespace tessivane
