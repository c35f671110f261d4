#include "backend/BackendCodexScanner.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SampleLines.h"
#include "StoreFixture.h"

namespace tessivane {
namespace {

using namespace codex;

const std::string pull = "https://github.com/Me/Shed/pull/7";

json changed(const json& line, const char* pointer, const json& value) {
  json copy = line;
  copy[json::json_pointer(pointer)] = value;
  return copy;
}
json without(const json& line, const char* parent, const char* key) {
  json copy = line;
  copy[json::json_pointer(parent)].erase(key);
  return copy;
}

TEST(BackendCodexScannerTest, TellsWhatALineComesTo) {
  const BackendPRFinding opened{.number = 7, .slug = "me/shed", .title = "Add it", .date = noon};
  const auto openedAt = [&opened](Date date) {
    BackendPRFinding finding = opened;
    finding.date = date;
    return finding;
  };
  const auto edited = [](std::vector<std::string> paths) {
    return BackendEditFinding{.key = "native:c1", .paths = std::move(paths), .date = noon};
  };
  const json create = command("gh pr create -t 'Add it'", pull);
  const json patch = change("c1", {{"/p/b", {{"type", "add"}}}, {"/p/a \"\u00FC\"", nullptr}});
  const json undated = without(create, "", "timestamp");
  struct Row {
    const char* what = "";
    json line = {};
    std::vector<BackendFinding> expected = {};
  };
  const std::vector<Row> rows = {
      {"created", create, {opened}},
      {"as one text",
       changed(create, "/payload/item/command", "gh pr create -t 'Add it'"),
       {opened}},
      {"words that are none", changed(create, "/payload/item/command/0", 1), {}},
      {"failed", command("gh pr create", pull, 1), {}},
      {"still running", without(create, "/payload/item", "exit_code"), {}},
      {"no exit code", changed(create, "/payload/item/exit_code", "0"), {}},
      {"no output", without(create, "/payload/item", "aggregated_output"), {}},
      {"no such command", command("gh pr view", pull), {}},
      {"merged",
       command("gh pr merge 3", ""),
       {BackendPRFinding{.kind = ActivityKind::prMerged, .number = 3, .date = noon}}},
      {"another item", changed(create, "/payload/item/type", "AgentMessage"), {}},
      {"another record", changed(create, "/payload/type", "item_started"), {}},
      {"quoted in another record",
       {{"type", "response_item"}, {"payload", {{"type", "message"}, {"item", create}}}},
       {}},
      {"from before such records",
       {{"timestamp", "2026-10-05T12:00:00Z"},
        {"type", "event_msg"},
        {"payload", {{"type", "patch_apply_end"}, {"changes", {{"/p/a", nullptr}}}}}},
       {}},
      {"dated by its end",
       changed(undated, "/payload/completed_at_ms", 1791201600000),
       {openedAt(noon)}},
      {"dated by its end's text",
       changed(undated, "/payload/completed_at_ms", "1791201600000"),
       {openedAt(noon)}},
      {"undated", undated, {openedAt(distantPast)}},
      {"edited", patch, {edited({"/p/a \"\u00FC\"", "/p/b"})}},
      {"nothing edited", change("c1", json::object()), {}},
      {"edits without a name", without(patch, "/payload/item", "id"), {}},
      {"edits that are none", changed(patch, "/payload/item/changes", {1, 2}), {}},
  };
  std::string all;
  std::vector<BackendFinding> allExpected;
  for (const Row& row : rows) {
    const std::string text = jsonLines({row.line});
    EXPECT_EQ(BackendCodexScanner().scan(text, distantPast), row.expected) << row.what;
    // Around them what a crash leaves behind.
    all += text.substr(0, text.size() / 2) + "\n\n" + std::string(3, '\0') + text;
    allExpected.insert(allExpected.end(), row.expected.begin(), row.expected.end());
  }
  EXPECT_EQ(BackendCodexScanner().scan(all, distantPast), allExpected);
}

}  // namespace
}  // namespace tessivane
