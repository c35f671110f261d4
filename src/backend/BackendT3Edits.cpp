#include "backend/BackendT3Edits.h"

#include <utility>

#include "support/JSON.h"
#include "support/Text.h"

namespace tessivane {

namespace {

// Table and keys are those of T3 Code's migrations 55 to 61; `changes` came later than `fileName`.
constexpr std::string_view statement =
    R"(select turn_item_id, thread_id, updated_at,
       json_extract(payload_json, '$.nativeItemRef.nativeId') as native_id,
       json_extract(payload_json, '$.changes') as changes,
       json_extract(payload_json, '$.fileName') as file_name
from orchestration_v2_projection_turn_items
where type = 'file_change' and status = 'completed' and updated_at >= ? and json_valid(payload_json)
order by updated_at limit 2000)";

// An archived or deleted thread is as good as any.
constexpr std::string_view directoryStatement =
    R"(select coalesce(case when json_valid(thread.payload_json)
                     then nullif(json_extract(thread.payload_json, '$.worktreePath'), '') end,
                project.workspace_root) as directory
from orchestration_v2_projection_threads thread
left join projection_projects project on project.project_id = thread.project_id
where thread.thread_id = ?)";

void addPath(JSONValue& change, std::vector<std::string>& paths) {
  change.visitFields([&paths](std::string_view key, JSONValue& value) {
    const auto path = key == "path" ? value.text() : std::nullopt;
    if (path && !path->escaped.empty())
      paths.push_back(path->decoded());
  });
}

// The paths in the text of an array of changes.
std::vector<std::string> changedPaths(JSONReader& reader, const std::string& changes) {
  std::vector<std::string> paths;
  const bool whole = reader.visit(
      R"({"changes":)" + changes + "}", [&paths](std::string_view /*key*/, JSONValue& array) {
        array.visitElements([&paths](JSONValue& change) { addPath(change, paths); });
      });
  return whole ? paths : std::vector<std::string>();
}

std::vector<std::string> pathsOf(JSONReader& reader, const DatabaseRow& row) {
  std::vector<std::string> paths;
  if (const std::string* changes = row.text("changes"))
    paths = changedPaths(reader, *changes);
  const std::string* name = row.text("file_name");
  if (paths.empty() && name != nullptr && !name->empty())
    paths.push_back(repairedUTF8(*name));
  return paths;
}

std::optional<BackendT3Edit> editOf(JSONReader& reader, const DatabaseRow& row) {
  const std::string* item = row.text("turn_item_id");
  const std::string* thread = row.text("thread_id");
  const std::string* updatedAt = row.text("updated_at");
  if (item == nullptr || thread == nullptr || updatedAt == nullptr)
    return std::nullopt;
  const auto date = isoDate(*updatedAt);
  auto paths = pathsOf(reader, row);
  if (!date || paths.empty())
    return std::nullopt;
  const std::string* native = row.text("native_id");
  return BackendT3Edit{.itemID = *item,
                       .threadID = *thread,
                       .nativeID = native == nullptr ? std::nullopt : std::optional(*native),
                       .date = *date,
                       .paths = std::move(paths),
                       .updatedAt = *updatedAt};
}

}  // namespace

BackendT3EditPage BackendT3Edits::read(ReadOnlyDatabase& db, const std::string& after) {
  JSONReader reader;
  BackendT3EditPage page;
  const auto rows = db.query(statement, {after});
  page.isFull = rows.size() >= maxRows;
  for (const DatabaseRow& row : rows) {
    const std::string* updatedAt = row.text("updated_at");
    if (updatedAt != nullptr && isoDate(*updatedAt))
      page.lastUpdatedAt = *updatedAt;
    if (auto edit = editOf(reader, row))
      page.edits.push_back(std::move(*edit));
  }
  return page;
}

std::optional<std::string> BackendT3Edits::directory(ReadOnlyDatabase& db,
                                                     const std::string& threadID) {
  const auto rows = db.query(directoryStatement, {threadID});
  const std::string* directory = rows.empty() ? nullptr : rows.front().text("directory");
  if (directory == nullptr || directory->empty())
    return std::nullopt;
  return repairedUTF8(*directory);
}

}  // namespace tessivane
