#include "sessions/CodexProvider.h"

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "helpers/CodexDatabase.h"
#include "helpers/TempHome.h"
#include "sessions/ProjectRootResolver.h"

namespace tessivane {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
namespace fs = std::filesystem;

const Date now = *isoDate("2026-10-05T09:00:00.250Z");

Date ago(int seconds) {
  return now - std::chrono::seconds(seconds);
}

// Lines of a rollout, their fields in the order in which Codex writes them.
std::string record(int secondsAgo, const std::string& type, const std::string& payload) {
  return R"({"timestamp":")" + isoTextWithMilliseconds(ago(secondsAgo)) + R"(","type":")" + type +
         R"(","payload":{)" + payload + "}}\n";
}

std::string event(int secondsAgo, const std::string& name, const std::string& more = "") {
  return record(secondsAgo, "event_msg", R"("type":")" + name + "\"" + more);
}

std::string complete(int secondsAgo, const json& message) {
  return event(secondsAgo, "task_complete", R"(,"last_agent_message":)" + message.dump());
}

std::string item(int secondsAgo, const json& text = "output") {
  return record(secondsAgo, "response_item", R"("type":"message","content":)" + text.dump());
}

struct Home {
  explicit Home(CodexVersion version = CodexVersion::v169)
      : database(std::make_unique<CodexDatabase>(path, version)) {}

  std::vector<AgentSession> list(Date since = ago(86'400)) {
    return provider.sessions(since, roots);
  }

  /// What `told` says of every session, by the session's id.
  template <typename Told>
  std::map<std::string, std::string> table(Told told, Date since = ago(86'400)) {
    std::map<std::string, std::string> table;
    for (const AgentSession& session : list(since))
      table[session.nativeID] = told(session);
    return table;
  }

  TempHome home;
  std::string path = home.path(".codex/state_5.sqlite");
  std::unique_ptr<CodexDatabase> database;
  CodexProvider provider{home.path(".codex"), std::nullopt, [] { return now; }};
  ProjectRootResolver roots{home.path()};
};

std::string titleOf(const AgentSession& session) {
  return session.title;
}

std::string detailOf(const AgentSession& session) {
  return session.detail;
}

TEST(CodexProviderTest, TakesTheStateDatabaseWithTheHighestNumber) {
  using Names = std::vector<std::string>;
  const std::pair<Names, std::optional<std::string>> cases[] = {
      {{"state_4.sqlite", "state_5.sqlite", "state_x.sqlite", "state_.sqlite"}, "state_5.sqlite"},
      {{"state_9.sqlite", "state_10.sqlite", "state_11.sqlite-wal"}, "state_10.sqlite"},
      {{"state_5.sqlite", "state_6x.sqlite", "state_99999999999999999999.sqlite"},
       "state_5.sqlite"},
      {{"state_.sqlite", "state.sqlite", "logs_7.sqlite", "my_state_8.sqlite"}, std::nullopt}};
  for (const auto& [names, latest] : cases) {
    const TempHome home;
    for (const std::string& name : names)
      home.write(name, "");
    EXPECT_EQ(CodexProvider::latestStateDatabase(home.path()),
              latest ? std::optional(home.path(*latest)) : std::nullopt);
  }
  EXPECT_EQ(CodexProvider::latestStateDatabase("/nowhere/at/all"), std::nullopt);
}

TEST(CodexProviderTest, TellsTheStatusByTheLastEventAndItsAge) {
  using enum SessionStatus;
  const std::tuple<std::optional<std::string>, double, SessionStatus, std::string> cases[] = {
      {"exec_approval_request", 1e6, needsYou, "Waiting for approval"},
      {"apply_patch_approval_request", 0, needsYou, "Waiting for approval"},
      {"request_user_input", 1e6, needsYou, "Waiting for approval"},
      {"task_complete", 1e6, yourTurn, "Done, your turn"},
      {"turn_aborted", 0, idle, "Aborted"},
      {"task_started", 899.999, working, "Working"},
      {"task_started", 900, idle, "Stalled"},
      {std::nullopt, 119.999, working, "Working"},
      {std::nullopt, 120, idle, "Idle"},
      {"thread_rolled_back", 120, idle, "Idle"}};
  for (const auto& [lifecycle, age, status, detail] : cases)
    EXPECT_EQ(CodexProvider::status(lifecycle, "Said.", Seconds(age)),
              (CodexProvider::Status{status, detail, "Said."}))
        << lifecycle.value_or("none") << " " << age;
}

TEST(CodexProviderTest, ReadsTheTailOfARollout) {
  const std::string wide(60'000, 'x');
  std::string returned = complete(60, "A");
  returned.insert(returned.size() - 1, "\r");
  const std::string whole = event(9, "turn_aborted");
  const std::string cut = whole.substr(0, whole.size() - 2);
  const std::string deep = R"({"type":"event_msg","payload":)" + std::string(100'000, '[') + "\n";
  struct Case {
    std::string name, contents;
    std::string expected;  // last event, age of the last activity, message
  };
  const Case cases[] = {
      {"a finished turn",
       event(60, "task_started") + item(50) + complete(40, " \n Done.\n"),
       "task_complete 40 Done."},
      {"late records do not take the turn up again",
       complete(40, "Done.") + item(30) + event(20, "item_completed") + event(9, "warning") +
           record(8, "token_usage_record", ""),
       "task_complete 20 Done."},
      {"the newest turn counts",
       complete(60, "Old.") + event(50, "task_started") + event(40, "token_count"),
       "task_started 40 "},
      {"a request", event(40, "exec_approval_request") + item(30), "exec_approval_request 30 "},
      {"events that are only talked about",
       event(60, "task_started") + item(50, complete(50, "No.")) +
           event(40, "note", R"(,"is":{"type":"event_msg","payload":{"type":"turn_aborted"}})") +
           record(40, "response_item", R"("type":"turn_aborted","of":["event_msg"])") + item(30),
       "task_started 30 "},
      {"another order and spacing",
       R"({"payload" : {"last_agent_message": "So.", "type" : "turn_aborted"}, "type" : "event_msg"}
)" + item(10),
       "turn_aborted 10 So."},
      {"an end beyond the window",
       complete(60, "Far.") + item(50, wide) + item(40, wide) + item(30, wide),
       "none 30 "},
      {"other types under every key",
       complete(60, 7) + R"({"timestamp":1,"type":"response_item","payload":[1,2]}
{"timestamp":"soon","type":"event_msg","payload":{"type":5}}
{"timestamp":{},"type":["event_msg"],"payload":"event_msg"}
[1,"event_msg"]
"event_msg"
)",
       "task_complete 60 "},
      {"a date that is none",
       item(50) + R"({"timestamp":"soon","type":"response_item"})",
       "none 50 "},
      {"bytes that do not belong there",
       std::string(3, '\0') + returned + "\xff\"event_msg\"\n" + deep + cut,
       "task_complete 60 A"},
      {"ill-formed text",
       event(40, "task_complete", ",\"last_agent_message\":\"a\xff\\ud800\""),
       "task_complete 40 a\uFFFD\uFFFD"},
      {"a long message",
       complete(40, std::string(2'001, 'm')),
       "task_complete 40 " + std::string(2'000, 'm')},
      {"nothing of use", event(5, "warning") + record(5, "compacted", ""), "none never "},
  };
  Home codex;
  for (const auto& [name, contents, expected] : cases) {
    const auto tail = codex.provider.readTail(codex.home.write("rollout.jsonl", contents));
    const std::string age = tail.lastActivity
                                ? std::to_string((now - *tail.lastActivity).count() / 1'000'000)
                                : "never";
    EXPECT_EQ(tail.lifecycle.value_or("none") + " " + age + " " + tail.lastMessage, expected)
        << name;
  }
}

TEST(CodexProviderTest, MakesASessionOfARowAndItsRollout) {
  Home codex;
  codex.home.makeDirectory("project/.git");
  const std::string rollout = codex.home.write("rollout.jsonl", complete(40, "All done."), ago(40));
  codex.database->insert({.id = "t1",
                          .rolloutPath = rollout,
                          .recency = ago(3600),
                          .title = "Do it",
                          .cwd = codex.home.path("project/src"),
                          .originator = "codex-tui",
                          .created = ago(7200)});
  const AgentSession expected{.agent = Agent::codex,
                              .nativeID = "t1",
                              .title = "Do it",
                              .cwd = codex.home.path("project/src"),
                              .projectPath = codex.home.path("project"),
                              .model = "gpt-5.4",
                              .activity = ago(40),
                              .status = SessionStatus::yourTurn,
                              .detail = "Done, your turn",
                              .lastMessage = "All done.",
                              .openURL = "codex://threads/t1",
                              .launcher = "codex-tui",
                              .transcriptPath = rollout,
                              .startedAt = ago(7200)};
  EXPECT_THAT(codex.list(), ElementsAre(expected));

  // A rollout is read again when it has changed, and only then.
  codex.home.write("rollout.jsonl", complete(40, "All gone."), ago(40));
  EXPECT_THAT(codex.list(), ElementsAre(expected));
  codex.home.append("rollout.jsonl", event(10, "task_started"));
  EXPECT_THAT(codex.table(detailOf), ElementsAre(Pair("t1", "Working")));
}

TEST(CodexProviderTest, ListsTheThreadsOfEveryVersion) {
  const std::pair<CodexVersion, std::string> cases[] = {
      {CodexVersion::v120, ""},
      {CodexVersion::v142, ""},
      {CodexVersion::v169, ""},
      {CodexVersion::v142, "alter table threads drop column recency_at_ms"},
      {CodexVersion::v120, "alter table threads drop column model"}};
  const Date start = *isoDate("2026-10-05T08:50:00Z");
  for (const auto& [version, change] : cases) {
    SCOPED_TRACE(std::to_string(static_cast<int>(version)) + change);
    Home codex(version);
    codex.database->insert({.id = "older", .recency = start - std::chrono::seconds(1)});
    codex.database->insert({.id = "newer", .recency = start, .title = "Hi", .created = ago(7200)});
    codex.database->insert({.id = "outside", .recency = ago(90'000)});
    codex.database->insert({.id = "archived", .recency = start, .archived = true});
    codex.database->execute(change);
    const auto sessions = codex.list();
    EXPECT_EQ(codex.provider.lastError(), std::nullopt);
    ASSERT_THAT(sessions, SizeIs(2));
    EXPECT_EQ(sessions[0].nativeID + sessions[0].title, "newerHi");
    EXPECT_EQ(sessions[0].activity, start);
    EXPECT_EQ(isoText(*sessions[0].startedAt), isoText(ago(7200)));
    EXPECT_EQ(sessions[1].nativeID + sessions[1].title, "older(untitled)");
  }
}

TEST(CodexProviderTest, TellsWhoStartedAThread) {
  using Source = std::pair<std::string, std::optional<std::string>>;  // and that of the thread
  const std::pair<Source, std::string> cases[] = {
      {{"cli", std::nullopt}, "session"},
      {{"vscode", "user"}, "session"},
      {{"exec", "user"}, "automation"},
      {{"automation", std::nullopt}, "automation"},
      {{"cli", "subagent"}, "subagent"},
      {{"exec", "subagent"}, "subagent"},
      {{R"({"subagent":"review"})", std::nullopt}, "subagent"},
      {{"cli", "guardian_review"}, "not listed"},
      {{R"({"subagent":{"other":"guardian"}})", "subagent"}, "not listed"}};
  Home codex;
  std::map<std::string, std::string> expected;
  for (const auto& [sources, kind] : cases) {
    const auto& [source, threadSource] = sources;
    const std::string id = source + " " + threadSource.value_or("none");
    codex.database->insert(
        {.id = id, .recency = ago(60), .source = source, .threadSource = threadSource});
    if (kind != "not listed")
      expected[id] = kind;
  }
  EXPECT_EQ(codex.table([](const AgentSession& session) { return rawValue(session.kind); }),
            expected);
}

TEST(CodexProviderTest, MakesATitleOfNameOrFirstMessage) {
  const std::string long250(250, 'a');
  struct Case {
    std::string title;
    std::optional<std::string> name, nickname;
    std::string shown;
  };
  const Case cases[] = {{"First\nSecond", std::nullopt, std::nullopt, "First"},
                        {"\r\n\nFirst\r\nSecond", std::nullopt, "", "First"},
                        {"First\rSecond", std::nullopt, std::nullopt, "First"},
                        {"First", "Renamed\nagain", std::nullopt, "Renamed"},
                        {"First", "", std::nullopt, "First"},
                        {"\n\n", std::nullopt, "Laplace", "Laplace: (untitled)"},
                        {"", std::nullopt, std::nullopt, "(untitled)"},
                        {long250, std::nullopt, std::nullopt, std::string(200, 'a')},
                        {long250, std::nullopt, "Laplace", "Laplace: " + std::string(191, 'a')},
                        {"a\xff", std::nullopt, std::nullopt, "a\uFFFD"}};
  EXPECT_EQ(ProviderCacheText::firstLine("First", 0), std::nullopt);
  Home codex;
  std::map<std::string, std::string> expected;
  for (const auto& [title, name, nickname, shown] : cases) {
    const std::string id = "t" + std::to_string(expected.size());
    expected[id] = shown;
    codex.database->insert(
        {.id = id, .recency = ago(60), .title = title, .name = name, .agentNickname = nickname});
  }
  EXPECT_EQ(codex.table(titleOf), expected);
}

TEST(CodexProviderTest, FetchesATitleAgainOnlyWhenItsStampChanged) {
  Home codex;
  codex.database->execute("begin");
  for (int i = 0; i < 301; ++i)
    codex.database->insert({.id = "t" + std::to_string(i), .recency = ago(i), .title = "A"});
  codex.database->execute("commit");
  const auto titles = codex.table(titleOf);
  EXPECT_THAT(titles, SizeIs(300));
  EXPECT_FALSE(titles.contains("t300"));
  EXPECT_EQ(titles.at("t0") + titles.at("t199") + titles.at("t200") + titles.at("t299"), "AAAA");

  const std::tuple<std::string, std::size_t, std::string> steps[] = {
      {"", 300, "A"},
      {"update threads set title = 'B' where id = 't7'", 300, "A"},
      {"update threads set updated_at_ms = updated_at_ms + 1 where id = 't7'", 301, "B"},
      {"update threads set title = 'CC' where id = 't7'", 302, "CC"},
      {"update threads set name = 'Name' where id = 't7'", 303, "Name"},
      {"update threads set archived = 1 where id = 't7'", 304, ""},  // t300 moves up
      {"update threads set archived = 0 where id = 't7'", 305, "Name"},
  };
  for (const auto& [change, fetches, title] : steps) {
    SCOPED_TRACE(change);
    codex.database->execute(change);
    EXPECT_EQ(codex.table(titleOf)["t7"], title);
    EXPECT_EQ(codex.provider.titleFetches(), fetches);
  }
}

TEST(CodexProviderTest, HoldsRowAndRolloutAgainstTheWindow) {
  Home codex;
  const Date since = ago(1000);
  const Date early = since - std::chrono::milliseconds(1);
  const auto rollout = [&codex](const std::string& name, int secondsAgo) {
    return codex.home.write(name, item(secondsAgo));
  };
  codex.database->insert({.id = "inside", .recency = since});
  codex.database->insert({.id = "outside", .rolloutPath = rollout("a", 9), .recency = early});
  codex.database->insert({.id = "only touched", .recency = early, .updated = ago(1)});
  codex.database->insert(
      {.id = "went on", .rolloutPath = rollout("b", 9), .recency = early, .updated = ago(1)});
  codex.database->insert({.id = "behind", .rolloutPath = rollout("c", 2000), .recency = since});
  EXPECT_THAT(
      codex.table(detailOf, since),
      ElementsAre(Pair("behind", "Idle"), Pair("inside", "Idle"), Pair("went on", "Working")));
}

TEST(CodexProviderTest, ListsThreadsWhoseRolloutCannotBeRead) {
  Home codex;
  codex.home.write("good", complete(10, "Hi."));
  ASSERT_EQ(::mkfifo(codex.home.path("fifo").c_str(), 0600), 0);
  fs::create_symlink("nowhere", codex.home.path("dangling"));
  fs::create_symlink("loop", codex.home.path("loop"));
  fs::create_symlink("good", codex.home.path("link"));
  codex.home.makeDirectory("directory");
  codex.home.write("packed.jsonl.zst", std::string("\x28\xb5\x2f\xfd\0\n\"event_msg\"\n", 18));
  std::map<std::string, std::string> expected{{"good", "Done, your turn"},
                                              {"link", "Done, your turn"}};
  for (const std::string name :
       {"fifo", "dangling", "loop", "directory", "packed.jsonl.zst", "missing"})
    expected[name] = "Working";
  for (const auto& [name, detail] : expected)
    codex.database->insert({.id = name, .rolloutPath = codex.home.path(name), .recency = ago(60)});
  EXPECT_EQ(codex.table(detailOf), expected);
}

TEST(CodexProviderTest, OddValuesCostAtMostTheirRow) {
  const std::string none;
  const std::pair<std::string, std::string> cases[] = {
      // The change and the title under which the row is still listed.
      {"id = null", none},
      {"id = x'00ff'", none},
      {"archived = 'yes'", none},
      {"rollout_path = 5", "T"},
      {"rollout_path = 5, recency_at_ms = 'soon'", none},
      {"rollout_path = 5, recency_at_ms = -9223372036854775808", none},
      {"recency_at_ms = 'soon', updated_at_ms = 'soon', created_at_ms = 'once'", "T"},
      {"recency_at_ms = 9223372036854775807, updated_at_ms = 1e300", "T"},
      {"updated_at_ms = null, created_at_ms = null, created_at = 9223372036854775807", "T"},
      {"model = 5, agent_nickname = 5, thread_source = 5, originator = x'01'", "5: T"},
      {"title = x'ff', cwd = x'00', source = x'7b'", "(untitled)"},
  };
  for (const auto& [change, listed] : cases) {
    SCOPED_TRACE(change);
    Home codex;
    const std::string rollout = codex.home.write("rollout", item(5));
    codex.database->insert({.id = "good", .recency = ago(60), .title = "G"});
    codex.database->insert({.id = "odd", .rolloutPath = rollout, .recency = ago(50), .title = "T"});
    codex.database->execute("update threads set " + change + " where id = 'odd'");
    std::map<std::string, std::string> expected{{"good", "G"}};
    if (!listed.empty())
      expected["odd"] = listed;
    EXPECT_EQ(codex.table(titleOf), expected);
    EXPECT_EQ(codex.provider.lastError(), std::nullopt);
  }
}

TEST(CodexProviderTest, SaysWhyADatabaseGivesNothing) {
  using Damage = std::function<void(const TempHome& home, const std::string& path)>;
  const std::string failed = "Codex database query failed: ";
  const std::pair<Damage, std::optional<std::string>> cases[] = {
      {[](auto&, auto&) {}, std::nullopt},
      {[](auto&, auto& path) { fs::create_symlink("nowhere", path); }, std::nullopt},
      {[](auto&, auto& path) { fs::create_directory(path); }, "Codex database could not be opened"},
      {[](auto& home, auto&) { home.write(".codex/state_5.sqlite", ""); },
       failed + "no such table: threads"},
      {[](auto& home, auto&) { home.write(".codex/state_5.sqlite", std::string(9'000, 'g')); },
       failed + "file is not a database"},
      {[](auto&, auto& path) {
         CodexDatabase(path).execute("drop table threads; create table threads (other text)");
       },
       failed + "no such column: id"},
  };
  for (const auto& [damage, error] : cases) {
    SCOPED_TRACE(error.value_or("none"));
    Home codex;
    codex.database.reset();
    fs::remove(codex.path);
    damage(codex.home, codex.path);
    EXPECT_THAT(codex.list(), IsEmpty());
    EXPECT_EQ(codex.provider.lastError(), error);

    fs::remove_all(codex.path);
    codex.database = std::make_unique<CodexDatabase>(codex.path);
    codex.database->insert({.id = "back", .recency = ago(60)});
    EXPECT_THAT(codex.list(), SizeIs(1));
    EXPECT_EQ(codex.provider.lastError(), std::nullopt);
  }
}

TEST(CodexProviderTest, WaitsForALockOnlyOnce) {
  Home codex;
  codex.database->execute("pragma journal_mode = delete; begin exclusive");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(codex.list(), IsEmpty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3'500));
  EXPECT_EQ(codex.provider.lastError(), "Codex database query failed: database is locked");
}

TEST(CodexProviderTest, LeavesTheFilesOfAKilledClientAsTheyAre) {
  Home alive;
  alive.database->insert({.id = "t", .recency = ago(60)});
  Home codex;
  codex.database.reset();
  for (const std::string suffix : {"", "-wal", "-shm"})
    fs::copy_file(alive.path + suffix, codex.path + suffix, fs::copy_options::overwrite_existing);
  const std::string before = codex.home.listing();
  EXPECT_THAT(codex.list(), SizeIs(1));
  EXPECT_TRUE(codex.home.listing() == before);
}

}  // namespace
}  // namespace tessivane
