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

std::vector<BackendT3Edit> BackendT3Edits::read(ReadOnlyDatabase& db, const std::string& after) {
  JSONReader reader;
  std::vector<BackendT3Edit> edits;
  for (const DatabaseRow& row : db.query(statement, {after})) {
    if (auto edit = editOf(reader, row))
      edits.push_back(std::move(*edit));
  }
  return edits;
}

}  // namespace tessivane
