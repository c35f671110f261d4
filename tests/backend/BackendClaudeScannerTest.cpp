#include "backend/BackendClaudeScanner.h"

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleLines.h"
#include "StoreFixture.h"
#include "helpers/TempHome.h"

namespace tessivane {
namespace {

using namespace claude;
namespace fs = std::filesystem;
using Findings = std::vector<BackendFinding>;

const std::string pull = "https://github.com/Me/Shed/pull/7";

BackendFinding opened(std::optional<std::string> title = {}, Date when = noon) {
  return BackendPRFinding{.number = 7, .slug = "me/shed", .title = std::move(title), .date = when};
}
BackendFinding merged(std::int64_t number) {
  return BackendPRFinding{.kind = ActivityKind::prMerged, .number = number, .date = noon};
}
BackendFinding edited(const char* id, const char* path, Date when = noon) {
  return BackendEditFinding{.key = std::string("native:") + id, .paths = {path}, .date = when};
}

json with(json line, const char* key, const json& value) {
  line[key] = value;
  return line;
}
json failed(json line) {
  line["message"]["content"][0]["is_error"] = true;
  return line;
}

TEST(BackendClaudeScannerTest, TellsWhatAnExchangeComesTo) {
  struct Row {
    const char* what = "";
    std::vector<json> lines = {};
    Findings expected = {};
  };
  const json create = bash("t1", "git push && gh pr create --title 'Add it'");
  const json merge = bash("t1", "gh pr merge 12");
  const json noted = {{"gitOperation", {{"pr", {{"number", 7}, {"url", pull}}}}}};
  const json oddly = {{"gitOperation", {{"pr", {{"number", 1.5}}}}}};
  const json pieces = {{{"text", "Created"}}, {{"text", pull}}, {{"x", 1}}};
  const json block = create["message"]["content"][0];
  const json nameless = {{"type", "tool_use"}, {"name", "Edit"}, {"input", {{"file_path", "/"}}}};
  const json snapshot = {{"type", "prompt_snapshot"}, {"tools", {{{"name", "Edit"}}}}};
  const std::vector<Row> rows = {
      {"created", {create, result("t1", pull)}, {opened("Add it")}},
      {"as the client noted", {create, result("t1", "done", noted)}, {opened("Add it")}},
      {"told in pieces", {create, result("t1", pieces)}, {opened("Add it")}},
      {"pieces that are none", {create, result("t1", {{{"text", pull}}, 1})}},
      {"no URL", {create, result("t1", "done")}},
      {"failed, and that is that", {create, failed(result("t1", pull)), result("t1", pull)}},
      {"told once", {create, result("t1", pull), result("t1", pull)}, {opened("Add it")}},
      {"another's result", {create, result("t2", pull), result("t1", pull)}, {opened("Add it")}},
      {"merged", {merge, result("t1", "ok")}, {merged(12)}},
      {"merged in between",
       {create, edit("t2", "/p/a"), with(merge, "type", "assistant"), result("t1", "")},
       {edited("t2", "/p/a"), merged(12)}},
      {"a number that is none", {bash("t1", "gh pr merge"), result("t1", "", oddly)}},
      {"later on", {bash("t1", "gh pr merge --auto 1"), result("t1", pull)}},
      {"edits by each tool",
       {toolUse("a", "Edit", {{"file_path", "/a"}}),
        toolUse("b", "Write", {{"file_path", "/b\u00FC\""}}),
        toolUse("c", "MultiEdit", {{"file_path", "/c"}}),
        toolUse("d", "NotebookEdit", {{"file_path", "/d"}}),
        toolUse("e", "Edit", {{"path", "/e"}})},
       {edited("a", "/a"), edited("b", "/b\u00FC\""), edited("c", "/c")}},
      {"several blocks",
       {message("assistant",
                {{{"type", "text"}, {"text", "x"}},
                 nameless,
                 toolUse("a", "Read", {{"file_path", "/a"}})["message"]["content"][0],
                 edit("b", "/b")["message"]["content"][0]})},
       {edited("b", "/b")}},
      {"no list of blocks", {message("assistant", {block, 1}), result("t1", pull)}},
      {"a date that is none",
       {with(edit("a", "/a"), "timestamp", "yesterday")},
       {edited("a", "/a", distantPast)}},
      // Bookkeeping that repeats messages.
      {"nested messages",
       {{{"type", "progress"}, {"data", edit("a", "/a")}},
        {{"type", "attachment"}, {"attachment", snapshot}},
        {{"type", "queue-operation"}, {"content", "gh pr merge 12"}},
        {{"type", "pr-link"}, {"prNumber", 7}, {"prUrl", pull}}}},
      {"queued before it is said",
       {create, {{"type", "queue-operation"}, {"message", result("t1", pull)["message"]}}}},
  };
  for (const Row& row : rows) {
    std::string lines;
    for (const json& line : row.lines)
      lines += line.dump() + "\n";
    EXPECT_TRUE(BackendClaudeScanner().scan(lines, distantPast) == row.expected) << row.what << "\n"
                                                                                 << lines;
  }
}

TEST(BackendClaudeScannerTest, PassesOverDirtAndRequestCopies) {
  const std::string create = bash("t1", "gh pr create").dump();
  const std::string merge = bash("t1", "gh pr merge 12").dump();
  const std::string ok = result("t1", "ok").dump() + "\n";
  const auto copy = [](const std::string& type, const std::string& text) {
    return "{\"type\":\"" + type + "\",\"x\":\"gh pr merge\"," + text.substr(1) + "\n";
  };
  const std::string halfCharacter = "\xC3 \\ud83d ";
  const std::vector<std::pair<std::string, Findings>> rows = {
      {copy("api-request-blob", merge) + copy("api-request-shape", edit("a", "/a").dump()) + ok,
       {}},
      {create.substr(0, 150) + "\n" + std::string(5, '\0') + merge +
           "\n\n[\"gh pr create\"]\n\"gh pr create\"\n" + ok,
       {merged(12)}},
      {create + "\n{\"type\":\"user\",\"timestamp\":\"" + date +
           "\",\"message\":{\"content\":[{\"type\":\"tool_result\",\"tool_use_id\":\"t1\","
           "\"content\":\"" +
           halfCharacter + pull + "\"}]}}\n",
       {opened()}},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_TRUE(BackendClaudeScanner().scan(text, distantPast) == expected) << text;
}

class BackgroundCommandTest : public testing::Test {
 protected:
  Findings scan(const json& line) { return scanner_.scan(jsonLines({line}), distantPast); }

  TempHome home_;
  std::string path_ = home_.path("x.output");
  BackendClaudeScanner scanner_;
};

TEST_F(BackgroundCommandTest, IsTakenFromTheFileThatANotificationNames) {
  EXPECT_EQ(scan(bash("t1", "gh pr create")), Findings{});
  EXPECT_EQ(scan(sentToBackground("t1", path_)), Findings{});
  home_.write("x.output", pull + "\n");
  EXPECT_EQ(scan({{"type", "queue-operation"}, {"content", notification("t1", path_)}}),
            Findings{});
  EXPECT_EQ(scan(notified("t2", path_)), Findings{});
  EXPECT_EQ(scan(message("user", "<tool-use-id>t1</tool-use-id>")), Findings{});
  const json later = with(notified("t1", ""), "timestamp", "2026-10-05T13:00:00Z");
  EXPECT_EQ(scan(later), Findings{opened({}, noon + std::chrono::hours(1))});
  EXPECT_EQ(scan(later), Findings{}) << "told once";
}

TEST_F(BackgroundCommandTest, IsTakenFromWhatTheAgentReads) {
  const auto read = [](const std::string& path) {
    return result("t9", "1\t...", {{"file", {{"filePath", path}, {"content", pull}}}});
  };
  EXPECT_EQ(scan(read(path_)), Findings{}) << "nothing is waited for";
  scan(bash("t1", "gh pr create"));
  scan(sentToBackground("t1", path_));
  EXPECT_EQ(scan(read(home_.path("other"))), Findings{});
  EXPECT_EQ(scan(read(path_)), Findings{opened()});
  EXPECT_EQ(scan(read(path_)), Findings{});
}

TEST_F(BackgroundCommandTest, SurvivesAnyFileUnderTheName) {
  const auto write = [this](const std::string& text) {
    return [this, text] { home_.write("x.output", text); };
  };
  const auto makeFIFO = [this] { ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0); };
  const auto makeDirectory = [this] { home_.makeDirectory("x.output"); };
  const auto makeHuge = [this] {
    fs::resize_file(home_.write("x.output", pull + "\n"), 10'000'000'000);
  };
  const std::string most(BackendClaudeScanner::maxOutput, 'x');
  const std::string binary = "\xFF\xC3" + std::string(9, '\0') + pull + "\xE2";
  struct Row {
    const char* what = "";
    std::function<void()> make = {};
    Findings expected = {};
  };
  const std::vector<Row> rows = {
      {"nothing there", [] {}},
      {"FIFO", makeFIFO},
      {"directory", makeDirectory},
      {"10 GB", makeHuge, {opened()}},
      {"just within", write(most.substr(pull.size()) + pull), {opened()}},
      {"just past", write(most + pull)},
      {"binary", write(binary), {opened()}},
  };
  for (const Row& row : rows) {
    row.make();
    scan(bash("t1", "gh pr create"));
    scan(sentToBackground("t1", "/nowhere/else.output"));
    EXPECT_EQ(scan(notified("t1", path_)), row.expected) << row.what;
    EXPECT_EQ(scan(notified("t1", path_)), Findings{}) << row.what;
    fs::remove(path_);
  }
  // No file is known: the command stays, and a later notification may name one.
  scan(bash("t1", "gh pr create"));
  scan(result("t1", "Running in the background.", {{"backgroundTaskId", "x"}}));
  EXPECT_EQ(scan(notified("t1", "")), Findings{});
  home_.write("x.output", pull);
  EXPECT_EQ(scan(notified("t1", path_)), Findings{opened()});
}

TEST(BackendClaudeScannerTest, KnowsTheBranchThatWasNamedLast) {
  BackendClaudeScanner scanner;
  const auto branchAfter = [&scanner](const std::string& text) {
    scanner.scan(text, distantPast);
    return scanner.branch().value_or("none");
  };
  const std::string mode = "{\"type\":\"mode\"}\n";
  const std::string nested = "\"x\":{\"gitBranch\":\"deeper\"}";
  EXPECT_EQ(branchAfter(mode + "\n"), "none");
  EXPECT_EQ(branchAfter("{\"gitBranch\":\"one\"}\n{\"gitBranch\":\"two\"}\n" + mode + mode), "two");
  EXPECT_EQ(branchAfter("\n" + mode + "\n"), "two");
  // Only what a line itself names is its branch, and only a whole line counts.
  EXPECT_EQ(branchAfter("{" + nested + ",\"gitBranch\":\"t\\\"hr\u00EBe\"}\n{" + nested + "}\n"),
            "t\"hr\u00EBe");
  EXPECT_EQ(branchAfter("{\"gitBranch\":\"four\"}\n{\"gitBranch\":\"\"}\n{\"gitBranch\":7}\n"
                        "{\"type\":\"user\",\"gitBranch\":\"cut\"\n"),
            "four");
}

TEST(BackendClaudeScannerTest, ForgetsCommandsThatNothingCameOf) {
  BackendClaudeScanner scanner;
  for (std::size_t i = 0; i <= BackendClaudeScanner::maxWaiting; ++i)
    scanner.scan(jsonLines({bash("t" + std::to_string(i), "gh pr merge 1")}), noon);
  EXPECT_EQ(scanner.scan(jsonLines({result("t0", "")}), noon), Findings{});
  const auto last = "t" + std::to_string(BackendClaudeScanner::maxWaiting);
  EXPECT_EQ(scanner.scan(jsonLines({result(last, "")}), noon), Findings{merged(1)});
}

}  // namespace
}  // namespace tessivane
