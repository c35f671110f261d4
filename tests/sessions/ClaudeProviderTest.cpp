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

json message(const char* type, json message, std::string time) {
  message["role"] = type;
  return {{"message", std::move(message)},
          {"type", type},
          {"timestamp", std::move(time)},
          {"entrypoint", "cli"},
          {"cwd", "/work tree"}};
}

// Content is plain text or a list of blocks.
json user(json content, std::string time = "2026-10-05T11:00:00.000Z") {
  return message("user", {{"content", std::move(content)}}, std::move(time));
}

json assistant(json content, std::string time = "2026-10-05T11:00:01.000Z") {
  return message(
      "assistant", {{"model", "opus"}, {"content", std::move(content)}}, std::move(time));
}

json list(std::initializer_list<json> blocks) {
  return json::array_t(blocks);
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

// All that a tail holds, in words.
std::string described(const TranscriptTail& tail) {
  std::string words = tail.lastMessageDate ? isoText(*tail.lastMessageDate).substr(11) : "never";
  words += tail.interrupted ? " interrupted" : "";
  words += tail.lastIsAssistant ? " assistant" : "";
  const auto add = [&words](const char* name, const std::optional<std::string>& value) {
    if (value)
      words += std::string(" ") + name + "=" + *value;
  };
  add("tool", tail.pendingTool);
  add("text", tail.lastText.empty() ? std::nullopt : std::optional(tail.lastText));
  add("title", tail.title);
  add("mode", tail.permissionMode);
  add("model", tail.model);
  return words;
}

class ClaudeProviderTest : public testing::Test {
 protected:
  static constexpr const char* metadataDirectory =
      "Library/Application Support/Claude/claude-code-sessions/account/org/";

  std::string transcript(const std::string& id, std::string_view lines) {
    return home_.write(".claude/projects/p/" + id + ".jsonl", lines, now_);
  }
  std::string transcript(const std::string& id, std::initializer_list<json> lines) {
    return transcript(id, jsonLines(lines));
  }

  void metadata(const std::string& name, const json& object) {
    home_.write(metadataDirectory + name, object.dump(), now_);
  }

  // A pass touches nothing, whatever it finds.
  std::vector<AgentSession> sessions() {
    const std::string before = home_.listing();
    auto found = provider_.sessions(since_, roots_);
    EXPECT_TRUE(home_.listing() == before);
    return found;
  }

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
    TranscriptTail tail;
    std::optional<std::string> mode;
    double age = 0;
    StatusAndDetail expected;
  };
  using enum SessionStatus;
  const Row rows[] = {{true, interrupted, {}, 0, {needsYou, "Interrupted, waiting on you"}},
                      {false, interrupted, {}, 0, {idle, "Interrupted"}},
                      {false, none, {}, -5, {working, "Working"}},
                      {false, none, {}, 119.999, {working, "Working"}},
                      {false, none, {}, 120, {idle, "Idle"}},
                      {false, tool, {}, 119.999, {working, "Running Bash"}},
                      {false, tool, {}, 120, {needsYou, "Bash may need your approval"}},
                      {false, tool, "default", 120, {needsYou, "Bash may need your approval"}},
                      {false, tool, "plan", 1e9, {needsYou, "Bash may need your approval"}},
                      {false, tool, "auto", 899.999, {working, "Running Bash"}},
                      {false, tool, "auto", 900, {idle, "Stalled in Bash"}},
                      {false, tool, "bypassPermissions", 899.999, {working, "Running Bash"}},
                      {false, tool, "bypassPermissions", 900, {idle, "Stalled in Bash"}},
                      {false, done, {}, 14.999, {working, "Finishing"}},
                      {false, done, {}, 15, {yourTurn, "Done, your turn"}}};
  for (const auto& [awaiting, tail, mode, age, expected] : rows) {
    EXPECT_EQ(ClaudeProvider::status(awaiting, tail, mode, Seconds(age)), expected)
        << expected.detail << " " << age;
  }
}

TEST_F(ClaudeProviderTest, aTailTellsTheLastMessage) {
  const std::string early = "2026-10-05T10:00:00.000Z";
  const std::string marker = "[Request interrupted by user for tool use]";
  std::string flags;
  for (int i = 0; i < 2000; ++i)
    flags += "🇩🇪";
  struct Row {
    const char* name;
    std::string lines, tail;
  };
  for (const Row& row : std::initializer_list<Row>{
           {"nothing", "", "never"},
           {"no message",
            jsonLines({{{"type", "ai-title"}, {"aiTitle", "T"}}, {{"type", "mode"}}}),
            "never title=T"},
           {"a pending tool, with other types and dirt behind it",
            jsonLines({user("q", early), assistant(list({text(" a "), toolUse("Edit")}))}) +
                "{\"type\":\"user\",\"message\":{\"content\":\"cut\n" +
                jsonLines({{{"type", "system"}, {"timestamp", "2026-10-05T12:00:00Z"}}}),
            "11:00:01Z assistant tool=Edit text=a model=opus"},
           {"a tool with no name",
            jsonLines({assistant(list({{{"type", "tool_use"}}}))}),
            "11:00:01Z assistant tool=tool model=opus"},
           {"an answered tool",
            jsonLines({assistant(list({toolUse("Edit")})),
                       user(list({toolResult("done")}), "2026-10-05T11:00:02Z")}),
            "11:00:02Z model=opus"},
           {"a marker keeps the date of the message before it",
            jsonLines({assistant(list({text("x")}), early),
                       user(list({toolResult("Tool permission request failed: no")})),
                       user(list({text(marker)}))}),
            "10:00:00Z interrupted text=x model=opus"},
           {"a marker inside a tool result's list",
            jsonLines({user(list({toolResult(list({text(marker)}))}), early)}),
            "10:00:00Z interrupted"},
           {"every text has to be a marker",
            jsonLines({user(list({text(marker), text("and more")}))}),
            "11:00:00Z"},
           {"no text is no marker", jsonLines({user(list({{{"type", "image"}}}))}), "11:00:00Z"},
           {"an assistant never interrupts",
            jsonLines({assistant(list({text(marker)}))}),
            "11:00:01Z assistant text=" + marker + " model=opus"},
           {"older text where the latest is empty or plain",
            jsonLines({assistant(list({text("older"), text("second")})),
                       assistant(list({text(" \n"), text("not the first")})),
                       assistant("plain"),
                       user("u")}),
            "11:00:00Z text=older model=opus"},
           {"a long text is cut between characters",
            jsonLines({assistant(list({text(flags + "🇩🇪")}))}),
            "11:00:01Z assistant text=" + flags + " model=opus"},
           {"titles: the latest line, in it the custom one",
            jsonLines({{{"customTitle", "first"}},
                       {{"aiTitle", "ai"}, {"customTitle", "mine"}, {"permissionMode", "plan"}},
                       {{"aiTitle", 7}, {"permissionMode", nullptr}},
                       user("u")}),
            "11:00:00Z title=mine mode=plan"},
           {"bookkeeping that repeats messages inside",
            jsonLines({user("u", early),
                       {{"type", "api-request-blob"},
                        {"body", {assistant(list({toolUse("Edit")})), user("x")}}},
                       {{"type", "progress"}, {"data", user("y")}, {"timestamp", "x"}}}),
            "10:00:00Z"},
           {"wrong types",
            jsonLines({user("u", early),
                       {{"type", 3}, {"message", "x"}},
                       {{"type", "assistant"}, {"message", 5}, {"timestamp", 17}}}),
            "never assistant"},
       })
    EXPECT_EQ(described(tailOf(row.lines)), row.tail) << row.name;
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
  EXPECT_EQ(found[0].nativeID + " " + found[1].nativeID, "late near");
  EXPECT_EQ(found[1].activity, *isoDate("2026-10-05T11:00:00Z"));
}

TEST_F(ClaudeProviderTest, aFirstPromptMakesTheTitle) {
  const std::pair<json, std::string> rows[] = {
      {"  fix \n\tthe\u00A0 bug ", "fix the bug"},
      {list({{{"type", "image"}}, text("look"), text("no")}), "look"},
      {"<command-message>review</command-message>\n<command-name>/review", "/review"},
      {std::string(300, 'a'), std::string(200, 'a')},
      // None of use, so the directory's name stands in.
      {"<command-message></command-message>", "work tree"},
      {"<local-command-stdout>x", "work tree"},
      {"  \n", "work tree"},
      {json::array(), "work tree"},
      {5, "work tree"}};
  for (const auto& [content, title] : rows) {
    transcript("id", {user(content), assistant(list({text("ok")}))});
    EXPECT_EQ(session().title, title) << content;
  }
  auto meta = user("machine");
  meta["isMeta"] = true;
  transcript("id", {meta, user("person")});
  EXPECT_EQ(session().title, "person");
}

TEST_F(ClaudeProviderTest, listsATerminalSession) {
  const auto path = transcript("5f",
                               {{{"type", "permission-mode"}, {"permissionMode", "plan"}},
                                user("go", "2026-10-05T10:00:00.000Z"),
                                {{"type", "ai-title"}, {"aiTitle", "A title"}},
                                assistant(list({text("Done.")}))});
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
  auto started = user("x");
  started["entrypoint"] = "sdk-cli";
  transcript("sdk", {started});
  auto placeless = user("x");
  placeless.erase("cwd");
  transcript("placeless", {placeless});
  transcript("old-message", {user("x", "2026-10-03T23:59:59.999Z")});
  transcript("empty", "");
  home_.write(".claude/projects/p/old-file.jsonl", jsonLines({user("x")}), since_ - 1us);
  home_.write(".claude/projects/p/sub/deep.jsonl", jsonLines({user("x")}), now_);
  home_.write(".claude/projects/flat.jsonl", jsonLines({user("x")}), now_);
  home_.write(
      ".claude/projects/p/edge.jsonl", jsonLines({user("x", "2026-10-04T00:00:00Z")}), since_);
  EXPECT_EQ(session().nativeID, "edge");
}

TEST_F(ClaudeProviderTest, listsADesktopSession) {
  const auto path = transcript("cli-1", {user("q"), assistant(list({text("a")}))});
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
  transcript("archived", {user("x")});
  transcript("old", {user("x")});
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
  const auto isAwaited = [&](const json& value) {
    metadata("local_1.json",
             {{"lastActivityAt", 1791201600000}, {"interruptedAwaitingPerson", value}});
    return session().status == SessionStatus::needsYou;
  };
  for (const json& value : std::initializer_list<json>{true, 2, 0, "", json::object()})
    EXPECT_TRUE(isAwaited(value)) << value;
  for (const json& value : std::initializer_list<json>{false, nullptr})
    EXPECT_FALSE(isAwaited(value)) << value;
}

TEST_F(ClaudeProviderTest, theMetadataGoesBeforeTheTranscriptWhereItSaysMore) {
  transcript("c", {user("q"), {{"permissionMode", "auto"}}, assistant(list({toolUse("Edit")}))});
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
  transcript("new", {user("x")});
  now_ += 29s;
  EXPECT_TRUE(sessions().empty());
  now_ += 1s;
  EXPECT_EQ(sessions().size(), 1U);
  // A clock set back does not stop the scans, nor does a new window.
  now_ -= 1h;
  transcript("second", {user("x")});
  EXPECT_EQ(sessions().size(), 2U);
  transcript("third", {user("x")});
  EXPECT_EQ(sessions().size(), 2U);
  since_ -= 1s;
  EXPECT_EQ(sessions().size(), 3U);
}

TEST_F(ClaudeProviderTest, seesAnAppendWithinOneTickOfTheFileClock) {
  transcript("a", {user("x")});
  EXPECT_EQ(session().status, SessionStatus::idle);
  home_.append(".claude/projects/p/a.jsonl", jsonLines({assistant(list({text("t")}))}));
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
  std::string ids;
  for (const auto& found : sessions())
    ids += found.nativeID + " ";
  EXPECT_EQ(ids, "crlf deep deeper fine nul numbers utf8 ");
}

}  // namespace
}  // namespace tessivane
