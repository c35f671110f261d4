#include "backend/BackendT3Edits.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "helpers/T3Database.h"
#include "helpers/TempHome.h"

namespace tessivane {
namespace {

const std::string first = "2026-10-05T12:00:00.000Z";

std::vector<BackendT3Edit> editsIn(const std::string& path, const std::string& after = first) {
  const auto db = ReadOnlyDatabase::open(path);
  return BackendT3Edits::read(*db, after).edits;
}

TEST(BackendT3EditsTest, ReadsWhatWasEdited) {
  struct Row {
    std::string name = {};
    json payload = {};
    std::vector<std::string> paths = {};  // none: the row is left out
    json fields = json::object();         // other than usual
  };
  const auto changes = [](const json& list) { return json{{"fileName", "c"}, {"changes", list}}; };
  const json odd = {7, "x", {{"path", 7}}, {{"path", ""}}, {{"path", "d\n\"e"}}};
  const json plain = {{"fileName", "c"}};
  const std::vector<Row> rows = {
      {"changes", changes({{{"path", "a"}}, {{"path", "/b"}}}), {"a", "/b"}},
      {"file name alone", {{"fileName", "src/Ä.cpp"}}, {"src/Ä.cpp"}},
      {"no changes", changes(json::array()), {"c"}},
      {"odd changes", changes(odd), {"d\n\"e"}},
      {"changes of another kind", changes({{"path", "d"}}), {"c"}},
      {"changes are text", changes("}{"), {"c"}},
      {"no path", {{"fileName", 7}}},
      {"empty path", {{"fileName", ""}}},
      {"no JSON", {}, {}, {{"payload_json", "{"}}},
      {"under way", plain, {}, {{"status", "in_progress"}}},
      {"a command", plain, {}, {{"type", "command_execution"}}},
      {"too old", plain, {}, {{"updated_at", "2026-10-05T11:59:59.999Z"}}},
      {"no date", plain, {}, {{"updated_at", "zzz"}}},
  };
  const TempHome home;
  const T3Database db(home.path("db"), T3Generation::orchestration);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    json payload = row.payload;
    payload["nativeItemRef"] = {{"nativeId", "toolu_1"}};
    json fields = {{"turn_item_id", "i"},
                   {"thread_id", "t"},
                   {"type", "file_change"},
                   {"status", "completed"},
                   {"ordinal", 0},
                   {"updated_at", first},
                   {"payload_json", payload}};
    fields.update(row.fields);
    db.execute("delete from v2_turn_items");
    db.insert("v2_turn_items", fields);
    const auto edits = editsIn(home.path("db"));
    ASSERT_EQ(edits.size(), row.paths.empty() ? 0U : 1U);
    if (row.paths.empty())
      continue;
    const BackendT3Edit expected{.itemID = "i",
                                 .threadID = "t",
                                 .nativeID = "toolu_1",
                                 .date = *isoDate(first),
                                 .paths = row.paths,
                                 .updatedAt = first};
    EXPECT_EQ(edits[0], expected);
  }
}

TEST(BackendT3EditsTest, GoesOnFromTheLastRow) {
  const TempHome home;
  const T3Database db(home.path("db"), T3Generation::orchestration);
  db.execute(R"(with recursive n(i) as (select 2999 union all select i - 1 from n where i > 0)
    insert into v2_turn_items(turn_item_id, thread_id, ordinal, type, status, updated_at,
                              payload_json)
    select 'i' || i, 't', 0, 'file_change', 'completed',
           '2026-10-05T12:' || printf('%02d:%02d', i / 60, i % 60) || '.000Z',
           '{"fileName":"f"}' from n)");
  const auto edits = editsIn(home.path("db"));
  ASSERT_EQ(edits.size(), 2000U);
  EXPECT_EQ(edits.back().itemID, "i1999");
  EXPECT_EQ(edits.back().nativeID, std::nullopt);
  const auto more = editsIn(home.path("db"), edits.back().updatedAt);
  ASSERT_EQ(more.size(), 1001U);
  EXPECT_EQ(more.front(), edits.back());
  const T3Database old(home.path("old"), T3Generation::legacy);
  EXPECT_TRUE(editsIn(home.path("old")).empty());
}

}  // namespace
}  // namespace tessivane
