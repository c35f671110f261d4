#include "sessions/ClaudeProvider.h"

#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "helpers/JSONL.h"
#include "helpers/TempHome.h"
#include "sessions/ProjectRootResolver.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;

json user(json content, std::string time = "2026-10-05T11:00:00.000Z") {
  return {{"type", "user"},
          {"message", {{"role", "user"}, {"content", std::move(content)}}},
          {"timestamp", std::move(time)},
          {"entrypoint", "cli"},
          {"cwd", "/work tree"}};
}

json assistant(json content, std::string time = "2026-10-05T11:00:01.000Z") {
  return {{"message", {{"model", "opus"}, {"content", std::move(content)}, {"role", "assistant"}}},
          {"type", "assistant"},
          {"timestamp", std::move(time)},
          {"entrypoint", "cli"},
          {"cwd", "/work tree"}};
}

json text(std::string text) {
  return {{"type", "text"}, {"text", std::move(text)}};
}

json toolUse(std::string name) {
  return {{"type", "tool_use"}, {"id", "toolu_1"}, {"name", std::move(name)}, {"input", {}}};
}

json toolResult(json content) {
  return {{"tool_use_id", "toolu_1"}, {"type", "tool_result"}, {"content", std::move(content)}};
}

class ClaudeProviderTest : public testing::Test {
 protected:
  static constexpr const char* metadataDirectory =
      "Library/Application Support/Claude/claude-code-sessions/account/org/";

  std::string transcript(const std::string& id, std::string_view lines) {
    return home_.write(".claude/projects/p/" + id + ".jsonl", lines, now_);
  }

  void metadata(const std::string& name, const json& object) {
    home_.write(metadataDirectory + name, object.dump(), now_);
  }

  std::vector<AgentSession> sessions() { return provider_.sessions(since_, roots_); }

  // The one session there is.
  AgentSession session() {
    const auto found = sessions();
    EXPECT_EQ(found.size(), 1U);
    return found.empty() ? AgentSession{} : found.front();
  }

  TranscriptTail tailOf(std::string_view lines) {
    JSONReader reader;
    LineBuffer buffer;
    auto window = tailJSONLines(home_.write("tail.jsonl", lines), 256'000, buffer);
    return parseTranscriptTail(reader, window);
  }

  TempHome home_;
  Date now_ = *isoDate("2026-10-05T12:00:00Z");
  Date since_ = *isoDate("2026-10-04T00:00:00Z");
  ProjectRootResolver roots_{home_.path()};
  ClaudeProvider provider_{
      {.sessions = {home_.path("Library/Application Support/Claude/claude-code-sessions"),
                    home_.path(".config/Claude/claude-code-sessions")},
       .projects = home_.path(".claude/projects")},
      [this] { return now_; }};
};

TEST(ClaudeStatus, followsTheTailTheModeAndTheAge) {
  const TranscriptTail none;
  const TranscriptTail interrupted{.interrupted = true};
  const TranscriptTail done{.lastIsAssistant = true};
  const TranscriptTail tool{.lastIsAssistant = true, .pendingTool = "Bash"};
  struct Row {
    bool awaiting = false;
    TranscriptTail tail = {};
    std::optional<std::string> mode = {};
    double age = 0;
    SessionStatus status = SessionStatus::idle;
    const char* detail = "";
  };
  using enum SessionStatus;
  for (const Row& row : std::initializer_list<Row>{
           {true, interrupted, {}, 0, needsYou, "Interrupted, waiting on you"},
           {false, interrupted, {}, 0, idle, "Interrupted"},
           {false, none, {}, -5, working, "Working"},
           {false, none, {}, 119.999, working, "Working"},
           {false, none, {}, 120, idle, "Idle"},
           {false, tool, {}, 119.999, working, "Running Bash"},
           {false, tool, {}, 120, needsYou, "Bash may need your approval"},
           {false, tool, "default", 120, needsYou, "Bash may need your approval"},
           {false, tool, "plan", 1e9, needsYou, "Bash may need your approval"},
           {false, tool, "auto", 119, working, "Running Bash"},
           {false, tool, "auto", 899.999, working, "Running Bash"},
           {false, tool, "auto", 900, idle, "Stalled in Bash"},
           {false, tool, "bypassPermissions", 899.999, working, "Running Bash"},
           {false, tool, "bypassPermissions", 900, idle, "Stalled in Bash"},
           {false, done, {}, 14.999, working, "Finishing"},
           {false, done, {}, 15, yourTurn, "Done, your turn"},
       }) {
    const auto result = ClaudeProvider::status(row.awaiting, row.tail, row.mode, Seconds(row.age));
    EXPECT_EQ(result, (StatusAndDetail{row.status, row.detail})) << row.detail << " " << row.age;
  }
}

TEST_F(ClaudeProviderTest, aTailTellsTheLastMessage) {
  const std::string early = "2026-10-05T10:00:00.000Z";
  const std::string marker = "[Request interrupted by user for tool use]";
  struct Row {
    const char* name;
    std::string lines;
    TranscriptTail tail;
  };
  const auto at = [](const char* time) { return isoDate(time); };
  for (const Row& row : std::initializer_list<Row>{
           {"nothing", "", {}},
           {"no message",
            jsonLines({{{"type", "ai-title"}, {"aiTitle", "T"}}, {{"type", "mode"}}}),
            {.title = "T"}},
           {"a pending tool, with other types and dirt behind it",
            jsonLines({user("q", early), assistant(json::array({text(" a "), toolUse("Edit")}))}) +
                "{\"type\":\"user\",\"message\":{\"content\":\"cut\n" +
                jsonLines({{{"type", "system"}, {"timestamp", "2026-10-05T12:00:00Z"}}}),
            {.lastMessageDate = at("2026-10-05T11:00:01Z"),
            .lastIsAssistant = true,
            .pendingTool = "Edit",
            .lastText = "a",
            .model = "opus"}},
           {"a tool with no name",
            jsonLines({assistant(json::array({{{"type", "tool_use"}}}))}),
            {.lastMessageDate = at("2026-10-05T11:00:01Z"),
            .lastIsAssistant = true,
            .pendingTool = "tool",
            .model = "opus"}},
           {"an answered tool",
            jsonLines({assistant(json::array({toolUse("Edit")})),
                       user(json::array({toolResult("done")}), "2026-10-05T11:00:02Z")}),
            {.lastMessageDate = at("2026-10-05T11:00:02Z"), .model = "opus"}},
           {"a marker keeps the date of the message before it",
            jsonLines({assistant(json::array({text("x")}), early),
                       user(json::array({toolResult("Tool permission request failed: no")})),
                       user(json::array({text(marker)}))}),
            {.lastMessageDate = at(early.c_str()),
            .interrupted = true,
            .lastText = "x",
            .model = "opus"}},
           {"a marker inside a tool result's list",
            jsonLines({user(json::array({toolResult(json::array({text(marker)}))}), early)}),
            {.lastMessageDate = at(early.c_str()), .interrupted = true}},
           {"every text has to be a marker",
            jsonLines({user(json::array({text(marker), text("and more")}))}),
            {.lastMessageDate = at("2026-10-05T11:00:00Z")}},
           {"no text is no marker",
            jsonLines({user(json::array({{{"type", "image"}}}))}),
            {.lastMessageDate = at("2026-10-05T11:00:00Z")}},
           {"an assistant never interrupts",
            jsonLines({assistant(json::array({text(marker)}))}),
            {.lastMessageDate = at("2026-10-05T11:00:01Z"),
            .lastIsAssistant = true,
            .lastText = marker,
            .model = "opus"}},
           {"older text where the latest is empty or plain",
            jsonLines({assistant(json::array({text("older"), text("second")})),
                       assistant(json::array({text(" \n"), text("not the first")})),
                       assistant("plain"),
                       user("u")}),
            {.lastMessageDate = at("2026-10-05T11:00:00Z"), .lastText = "older", .model = "opus"}},
           {"titles: the latest line, in it the custom one",
            jsonLines({{{"customTitle", "first"}},
                       {{"aiTitle", "ai"}, {"customTitle", "mine"}, {"permissionMode", "plan"}},
                       {{"aiTitle", 7}, {"permissionMode", nullptr}},
                       user("u")}),
            {.lastMessageDate = at("2026-10-05T11:00:00Z"),
            .title = "mine",
            .permissionMode = "plan"}},
           {"bookkeeping that repeats messages inside",
            jsonLines({user("u", early),
                       {{"type", "api-request-blob"},
                        {"body", {assistant(json::array({toolUse("Edit")})), user("x")}}},
                       {{"type", "progress"}, {"data", user("y")}, {"timestamp", "x"}}}),
            {.lastMessageDate = at(early.c_str())}},
           {"wrong types",
            jsonLines({user("u", early),
                       {{"type", 3}, {"message", "x"}},
                       {{"type", "assistant"}, {"message", 5}, {"timestamp", 17}}}),
            {.lastIsAssistant = true}},
       }) {
    EXPECT_EQ(tailOf(row.lines), row.tail) << row.name;
  }
}

TEST_F(ClaudeProviderTest, cutsTheLastTextByCharacters) {
  std::string flags;
  for (int i = 0; i < 2001; ++i)
    flags += "🇩🇪";
  const auto tail = tailOf(jsonLines({assistant(json::array({text(flags)}))}));
  EXPECT_EQ(tail.lastText.size(), 2000 * std::string("🇩🇪").size());
}

TEST_F(ClaudeProviderTest, looksFurtherBackWhenOneLineFillsTheWindow) {
  const std::string question = jsonLines({user("question")});
  const auto huge = [](std::size_t size) {
    return jsonLines({{{"type", "attachment"}, {"data", std::string(size, 'x')}}});
  };
  transcript("near", question + huge(300'000));
  transcript("far", question + huge(8'000'000));
  transcript("late", huge(300'000) + question);
  const auto found = sessions();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].nativeID, "late");
  EXPECT_EQ(found[1].nativeID, "near");
  EXPECT_EQ(found[1].activity, *isoDate("2026-10-05T11:00:00Z"));
}

TEST_F(ClaudeProviderTest, aFirstPromptMakesTheTitle) {
  struct Row {
    json content;
    std::optional<std::string> prompt;
  };
  for (const Row& row : std::initializer_list<Row>{
           {"  fix \n\tthe\u00A0 bug ", "fix the bug"},
           {json::array({{{"type", "image"}}, text("look"), text("no")}), "look"},
           {"<command-message>review</command-message>\n<command-name>/review", "/review"},
           {"<command-message></command-message>", std::nullopt},
           {"<local-command-stdout>x", std::nullopt},
           {"  \n", std::nullopt},
           {json::array(), std::nullopt},
           {5, std::nullopt},
           {std::string(300, 'a'), std::string(200, 'a')},
       }) {
    transcript("id", jsonLines({user(row.content), assistant(json::array({text("ok")}))}));
    EXPECT_EQ(session().title, row.prompt.value_or("work tree")) << row.content;
  }
  auto meta = user("machine");
  meta["isMeta"] = true;
  transcript("id", jsonLines({meta, user("person")}));
  EXPECT_EQ(session().title, "person");
}

TEST_F(ClaudeProviderTest, listsATerminalSession) {
  const auto path = transcript("5f",
                               jsonLines({{{"type", "permission-mode"}, {"permissionMode", "plan"}},
                                          user("go", "2026-10-05T10:00:00.000Z"),
                                          {{"type", "ai-title"}, {"aiTitle", "A title"}},
                                          assistant(json::array({text("Done.")}))}));
  EXPECT_EQ(session(),
            (AgentSession{.agent = Agent::claude,
                          .nativeID = "5f",
                          .title = "A title",
                          .cwd = "/work tree",
                          .projectPath = "/work tree",
                          .model = "opus",
                          .activity = *isoDate("2026-10-05T11:00:01Z"),
                          .status = SessionStatus::yourTurn,
                          .detail = "Done, your turn",
                          .lastMessage = "Done.",
                          .sourceIDs = {"claude:5f"},
                          .launcher = "cli",
                          .transcriptPath = path,
                          .startedAt = isoDate("2026-10-05T10:00:00Z")}));
}

TEST_F(ClaudeProviderTest, leavesOutWhatIsNoTerminalSession) {
  auto other = user("x");
  other["entrypoint"] = "sdk-cli";
  transcript("sdk", jsonLines({other}));
  auto placeless = user("x");
  placeless.erase("cwd");
  transcript("placeless", jsonLines({placeless}));
  transcript("old-message", jsonLines({user("x", "2026-10-03T23:59:59.999Z")}));
  transcript("empty", "");
  home_.write(".claude/projects/p/old-file.jsonl", jsonLines({user("x")}), since_ - 1us);
  home_.write(".claude/projects/p/sub/deep.jsonl", jsonLines({user("x")}), now_);
  home_.write(".claude/projects/flat.jsonl", jsonLines({user("x")}), now_);
  home_.write(
      ".claude/projects/p/edge.jsonl", jsonLines({user("x", "2026-10-04T00:00:00Z")}), since_);
  EXPECT_EQ(session().nativeID, "edge");
}

TEST_F(ClaudeProviderTest, listsADesktopSession) {
  const auto path =
      transcript("cli-1", jsonLines({user("q"), assistant(json::array({text("a")}))}));
  home_.makeDirectory("repo/.git");
  metadata("local_1.json",
           {{"sessionId", "desk-1"},
            {"cliSessionId", "cli-1"},
            {"title", "Desk"},
            {"cwd", home_.path("elsewhere")},
            {"originCwd", home_.path("repo/deep")},
            {"model", "sonnet"},
            {"createdAt", 1791190800000},
            {"lastActivityAt", "1791194400000"},
            {"isArchived", false}});
  EXPECT_EQ(session(),
            (AgentSession{.agent = Agent::claude,
                          .nativeID = "desk-1",
                          .title = "Desk",
                          .cwd = home_.path("elsewhere"),
                          .projectPath = home_.path("repo"),
                          .model = "sonnet",
                          .activity = *isoDate("2026-10-05T11:00:01Z"),
                          .status = SessionStatus::yourTurn,
                          .detail = "Done, your turn",
                          .lastMessage = "a",
                          .openURL = "claude://resume?session=cli-1",
                          .sourceIDs = {"claude:cli-1"},
                          .transcriptPath = path,
                          .startedAt = isoDate("2026-10-05T09:00:00Z")}));
}

TEST_F(ClaudeProviderTest, aDesktopSessionHidesItsTranscriptEvenWhenItIsNotListed) {
  transcript("archived", jsonLines({user("x")}));
  transcript("old", jsonLines({user("x")}));
  metadata("local_a.json", {{"cliSessionId", "archived"}, {"isArchived", true}});
  metadata("local_o.json", {{"cliSessionId", "old"}, {"lastActivityAt", 1791190800000}});
  home_.setModified(std::string(metadataDirectory) + "local_o.json", since_ - 1us);
  EXPECT_TRUE(sessions().empty());
}

TEST_F(ClaudeProviderTest, aDesktopSessionNeedsNoTranscript) {
  metadata("local_bare.json", {{"lastActivityAt", 1791201600000}, {"title", ""}});  // now - 0
  metadata("other.json", {{"lastActivityAt", 1791201600000}});
  metadata("local_undated.json", {{"title", "x"}});
  metadata("local_early.json", {{"lastActivityAt", 1791071999999}});  // just before the window
  metadata("local_edge.json", {{"lastActivityAt", 1791072000000}});
  metadata("local_broken.json", "not an object");
  metadata("local_gone.json", {{"cliSessionId", "../../p/x"}, {"lastActivityAt", 1791201599000}});
  const auto found = sessions();
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].nativeID, "local_bare.json");
  EXPECT_EQ(found[0].title, "(untitled)");
  EXPECT_EQ(found[0].detail, "Working");
  EXPECT_EQ(found[0].openURL, std::nullopt);
  EXPECT_EQ(found[0].resumeCommand(), std::nullopt);
  EXPECT_EQ(found[1].nativeID, "local_edge.json");
  EXPECT_EQ(found[2].transcriptPath, std::nullopt);
}

TEST_F(ClaudeProviderTest, theMetadataSaysWhetherThePersonIsAwaited) {
  struct Row {
    json value;
    bool awaits;
  };
  for (const Row& row : std::initializer_list<Row>{{true, true},
                                                   {false, false},
                                                   {nullptr, false},
                                                   {2, true},
                                                   {0, true},
                                                   {"", true},
                                                   {json::object(), true}}) {
    metadata("local_1.json",
             {{"lastActivityAt", 1791201600000}, {"interruptedAwaitingPerson", row.value}});
    EXPECT_EQ(session().status == SessionStatus::needsYou, row.awaits) << row.value;
  }
}

TEST_F(ClaudeProviderTest, theMetadataGoesBeforeTheTranscriptWhereItSaysMore) {
  transcript(
      "c",
      jsonLines(
          {user("q"), {{"permissionMode", "auto"}}, assistant(json::array({toolUse("Edit")}))}));
  // Five minutes after the call, which is newer than the time in the metadata.
  now_ = *isoDate("2026-10-05T11:05:01Z");
  json object = {{"cliSessionId", "c"}, {"lastActivityAt", 1791190800000}};
  metadata("local_1.json", object);
  EXPECT_EQ(session().detail, "Running Edit");
  EXPECT_EQ(session().activity, *isoDate("2026-10-05T11:00:01Z"));
  object["permissionMode"] = "default";
  metadata("local_1.json", object);
  EXPECT_EQ(session().detail, "Edit may need your approval");
  object["lastActivityAt"] = 1791198240000;  // a minute before now
  now_ += 1s;
  metadata("local_1.json", object);
  EXPECT_EQ(session().activity, *isoDate("2026-10-05T11:04:00Z"));
  EXPECT_EQ(session().detail, "Running Edit");
}

TEST_F(ClaudeProviderTest, theMetadataMayLieInTheConfigDirectory) {
  home_.write(".config/Claude/claude-code-sessions/a/local_1.json",
              json{{"lastActivityAt", 1791201600000}, {"title", "Linux"}}.dump(),
              now_);
  EXPECT_EQ(session().title, "Linux");
  home_.makeDirectory("Library/Application Support/Claude/claude-code-sessions");
  EXPECT_TRUE(sessions().empty());
}

TEST_F(ClaudeProviderTest, looksForNewTranscriptsEveryThirtySeconds) {
  EXPECT_TRUE(sessions().empty());
  transcript("new", jsonLines({user("x")}));
  now_ += 29s;
  EXPECT_TRUE(sessions().empty());
  now_ += 1s;
  EXPECT_EQ(sessions().size(), 1U);
  // A clock set back does not stop the scans, nor does a new window.
  now_ -= 1h;
  transcript("second", jsonLines({user("x")}));
  EXPECT_EQ(sessions().size(), 2U);
  transcript("third", jsonLines({user("x")}));
  EXPECT_EQ(sessions().size(), 2U);
  since_ -= 1s;
  EXPECT_EQ(sessions().size(), 3U);
}

TEST_F(ClaudeProviderTest, seesAnAppendWithinOneTickOfTheFileClock) {
  transcript("a", jsonLines({user("x")}));
  EXPECT_EQ(session().status, SessionStatus::idle);
  home_.append(".claude/projects/p/a.jsonl", jsonLines({assistant(json::array({text("t")}))}));
  home_.setModified(".claude/projects/p/a.jsonl", now_);
  EXPECT_EQ(session().lastMessage, "t");
}

TEST_F(ClaudeProviderTest, oneBadFileCostsNoOther) {
  const std::string line = jsonLines({user("fine")});
  transcript("fine", line);
  transcript("nul", std::string(5000, '\0') + line);
  transcript("utf8", jsonLines({user("x")}).insert(0, "\xff\xfe{\"a\xff\":1}\n") + "\xC3");
  transcript("crlf", "{\"x\":1}\r\n" + line.substr(0, line.size() - 1) + "\r\n");
  transcript("deep", std::string(100'000, '[') + "\n" + line);
  transcript("deeper", line + "{\"type\":\"user\",\"message\":" + std::string(100'000, '[') + "\n");
  transcript("numbers",
             "{\"timestamp\":1e999,\"type\":-0,\"message\":99999999999999999999}\n" + line);
  const std::string projects = home_.path(".claude/projects/p/");
  ASSERT_EQ(::mkfifo((projects + "fifo.jsonl").c_str(), 0600), 0);
  std::filesystem::create_directory(projects + "directory.jsonl");
  std::filesystem::create_symlink("nowhere", projects + "dangling.jsonl");
  std::filesystem::create_symlink("loop.jsonl", projects + "loop.jsonl");
  const std::string desk = home_.makeDirectory(metadataDirectory);
  ASSERT_EQ(::mkfifo((desk + "/local_fifo.json").c_str(), 0600), 0);
  std::filesystem::create_directory_symlink("..", desk + "/up");
  const std::string before = home_.listing();
  std::vector<std::string> ids;
  for (const auto& found : sessions())
    ids.push_back(found.nativeID);
  EXPECT_EQ(ids,
            (std::vector<std::string>{"crlf", "deep", "deeper", "fine", "nul", "numbers", "utf8"}));
  EXPECT_EQ(home_.listing(), before);
}

}  // namespace
}  // namespace tessivane
