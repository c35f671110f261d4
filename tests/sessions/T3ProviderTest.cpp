#include "sessions/T3Provider.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include <gmock/gmock.h>

#include "helpers/T3Database.h"
#include "helpers/TempHome.h"
#include "sessions/ProjectRootResolver.h"
#include "sessions/T3Schema.h"
#include "sessions/T3ThreadState.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

const Date now = *isoDate("2026-10-10T12:00:00Z");
const Date since = now - 36h;

Date minutesAgo(int minutes) {
  return now - std::chrono::minutes(minutes);
}

std::string at(int minutes) {
  return isoTextWithMilliseconds(minutesAgo(minutes));
}

constexpr int lastWeek = 7 * 24 * 60;

std::string described(const StatusAndDetail& status) {
  return std::string(label(status.status)) + ": " + status.detail;
}

const std::string needsAnswer = "Needs you: Waiting for approval/input";
const std::string working = "Working: Working";
const std::string errored = "Needs you: Errored";
const std::string done = "Your turn: Done, your turn";
const std::string settled = "Idle: Settled";
const std::string snoozed = "Idle: Snoozed in T3";

// Rows of the newer schema, as short as tests need them.
struct Orchestration {
  explicit Orchestration(const std::string& path) : db(path, T3Generation::orchestration) {}

  void thread(const std::string& id, int updated, const json& payload = json::object()) const {
    add("threads", id, {{"updated_at", at(updated)}, {"title", id}, {"payload_json", payload}});
  }
  // The run's id is "{thread}#{ordinal}".
  void run(const std::string& thread,
           int ordinal,
           const std::string& status,
           int requested = 30,
           const json& completed = {}) const {
    const std::string id = thread + "#" + std::to_string(ordinal);
    json row{{"run_id", id}, {"ordinal", ordinal}, {"status", status}, {"completed_at", completed}};
    row["requested_at"] = at(requested);
    add("runs", thread, row);
  }
  void message(const std::string& thread,
               const std::string& role,
               int minutes,
               const json& text = "") const {
    json row{{"role", role}, {"created_at", at(minutes)}, {"payload_json", {{"text", text}}}};
    row["message_id"] = thread + role + std::to_string(minutes);
    row["updated_at"] = row["created_at"];
    add("messages", thread, row);
  }
  void request(const std::string& thread,
               const std::string& kind,
               const std::string& status) const {
    add("runtime_requests",
        thread,
        {{"runtime_request_id", thread}, {"kind", kind}, {"status", status}});
  }
  void secret(const std::string& run, const std::string& status) const {
    json row{{"run_id", run}, {"type", "secret_request"}, {"status", status}};
    row["turn_item_id"] = run;
    db.insert("v2_turn_items", row);
  }
  void providerThread(const std::string& thread,
                      const std::string& driver,
                      const json& native) const {
    add("provider_threads",
        thread,
        {{"provider_thread_id", thread + "/" + driver},
         {"payload_json", {{"driver", driver}, {"nativeThreadRef", {{"nativeId", native}}}}}});
  }
  // A row of the thread's, in the table "v2_{table}".
  void add(const std::string& table, const std::string& thread, json row) const {
    row["thread_id"] = thread;
    db.insert("v2_" + table, row);
  }
  // Sets columns of the rows whose "thread_id" is that one.
  void set(const std::string& table,
           const std::string& thread,
           const std::string& assignments) const {
    db.execute("update " + table + " set " + assignments + " where thread_id = '" + thread + "'");
  }

  T3Database db;
};

class T3ProviderTest : public ::testing::Test {
 protected:
  std::vector<AgentSession> pass() { return provider.sessions(since, roots); }

  std::map<std::string, std::string> statuses() {
    std::map<std::string, std::string> found;
    for (const AgentSession& session : pass())
      found[session.nativeID] = described({session.status, session.detail});
    return found;
  }

  TempHome home;
  std::string current = home.path("statev2.sqlite");
  std::string old = home.path("state.sqlite");
  T3Provider provider{{current, old}, [] { return now; }};
  ProjectRootResolver roots{home.path()};
};

TEST(T3ThreadState, FirstRuleThatAppliesDecides) {
  using State = T3ThreadState;
  const Date time = minutesAgo(60);
  const Date earlier = minutesAgo(61);
  const Date later = minutesAgo(59);
  const std::vector<std::pair<State, std::string>> cases{
      {{.pending = 1, .sessionStatus = "running", .settledOverride = "settled"}, needsAnswer},
      {{.pending = -1, .sessionStatus = "ready"}, done},
      {{.sessionStatus = "running", .snoozedUntil = now + 1h}, working},
      {{.sessionStatus = "queued", .settledOverride = "settled"}, working},
      {{.sessionStatus = "starting"}, working},
      {{.sessionStatus = "failed", .hasActiveTurn = true}, working},
      {{.sessionStatus = "error", .settledOverride = "settled"}, errored},
      {{.sessionStatus = "failed", .snoozedUntil = now + 1h}, errored},
      {{.settledOverride = "settled", .snoozedUntil = now + 1h}, settled},
      {{.snoozedUntil = now + 1us}, snoozed},
      {{.snoozedUntil = now}, done},
      {{.sessionStatus = "stopped"}, done},
      // Settled by the person, unless brought back after it.
      {{.activity = time, .settledOverride = "settled", .settledAt = earlier}, settled},
      {{.settledOverride = "settled", .unsettledAt = time}, settled},
      {{.settledOverride = "settled", .settledAt = time, .unsettledAt = time}, settled},
      {{.settledOverride = "settled", .settledAt = time, .unsettledAt = later}, done},
      // Settled on its own, until something happens again.
      {{.activity = time, .settledAt = time}, settled},
      {{.activity = time, .settledOverride = "active", .settledAt = later}, settled},
      {{.activity = time, .settledAt = earlier}, done},
  };
  for (std::size_t i = 0; i < cases.size(); ++i)
    EXPECT_EQ(described(cases[i].first.status(now)), cases[i].second) << "case " << i;
}

TEST_F(T3ProviderTest, StatusFollowsRunsRequestsAndSubagents) {
  // The words of a thread's runs in order ("held" is a queued run that is held back) and, behind
  // the stroke, another row by kind and status.
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases{
      {working, {"failed queued", "failed preparing", "failed starting", "failed running"}},
      {working, {"failed waiting", "waiting queued", "running failed"}},
      {done, {"failed completed", "failed interrupted", "failed cancelled", "failed rolled_back"}},
      {done, {"/", "held"}},
      {errored, {"completed failed", "completed failed held"}},
      {needsAnswer, {"running / command pending", "running / user_input pending"}},
      {working, {"running / command resolved", "running / dynamic_tool_call pending"}},
      {working, {"running / auth_refresh pending", "running / secret completed"}},
      {needsAnswer, {"running / secret waiting"}},
      {done, {"interrupted / secret waiting"}},
      {working, {"/ subagent pending", "/ subagent running", "/ subagent waiting"}},
      {errored, {"/ subagent failed"}},
      {done, {"/ subagent completed", "completed / subagent running"}},
  };
  Orchestration t3(current);
  const auto insert = [&t3](const std::string& id) {
    t3.thread(id, 1);
    std::istringstream words(id);
    int ordinal = 0;
    for (std::string word; words >> word && word != "/";) {
      t3.run(id, ++ordinal, word == "held" ? "queued" : word);
      if (word == "held")
        t3.set("v2_runs", id, "payload_json = '{\"queueHeld\":true}'");
    }
    std::string kind;
    std::string status;
    if (!(words >> kind >> status))
      return;
    if (kind == "secret")
      t3.secret(id + "#1", status);
    else if (kind == "subagent")
      t3.db.insert("v2_subagents",
                   {{"subagent_id", id}, {"child_thread_id", id}, {"status", status}});
    else
      t3.request(id, kind, status);
  };
  std::map<std::string, std::string> expected;
  for (const auto& [status, threads] : cases) {
    for (const std::string& id : threads) {
      insert(id);
      expected[id] = status;
    }
  }
  EXPECT_EQ(statuses(), expected);
  EXPECT_EQ(provider.diagnostic(), std::nullopt);
}

TEST_F(T3ProviderTest, ThreadIsDatedByMessagesAndRuns) {
  Orchestration t3(current);
  // The number is that of the minutes.
  t3.thread("10, message last", 1);
  t3.run("10, message last", 1, "completed", 30, at(20));
  t3.message("10, message last", "assistant", 10);
  t3.message("10, message last", "system", 5);
  t3.thread("8, end of run last", 1);
  t3.run("8, end of run last", 1, "completed", 30, at(8));
  t3.message("8, end of run last", "user", 9);
  t3.thread("7, request last", 1);
  t3.run("7, request last", 1, "completed", 40, at(35));
  t3.run("7, request last", 2, "running", 7);
  t3.message("7, request last", "user", 9);
  t3.thread("6, nothing but itself", 6);
  t3.thread("5, unreadable run", 5);
  t3.run("5, unreadable run", 1, "completed", 30, at(20));
  t3.set("v2_runs", "5, unreadable run", "requested_at = 'noon', completed_at = ''");
  t3.thread("4, calls tools for days", 4);
  t3.run("4, calls tools for days", 1, "running", lastWeek);
  t3.message("4, calls tools for days", "assistant", lastWeek);
  t3.thread("3, first request", 1);
  t3.run("3, first request", 1, "running", 3);
  t3.thread("2, works for days", 1);
  t3.run("2, works for days", 1, "running", lastWeek);
  t3.message("2, works for days", "assistant", 2);

  const auto sessions = pass();
  EXPECT_EQ(sessions.size(), 8U);
  for (const AgentSession& session : sessions)
    EXPECT_EQ(session.activity, minutesAgo(std::stoi(session.nativeID))) << session.nativeID;
}

TEST_F(T3ProviderTest, WindowSparesWhatIsOpenForThePerson) {
  Orchestration t3(current);
  const int edge = 36 * 60;
  t3.thread("at the edge", edge);
  t3.thread("past the edge", edge);
  t3.set("v2_threads", "past the edge", "updated_at = '2026-10-08T23:59:59.999Z'");
  t3.thread("renamed today", 1);
  t3.run("renamed today", 1, "completed", lastWeek, at(lastWeek - 1));
  t3.thread("server died", lastWeek);
  t3.run("server died", 1, "running", lastWeek);
  for (const char* thread : {"asked last week", "archived", "deleted"}) {
    t3.thread(thread, lastWeek);
    t3.run(thread, 1, "running", lastWeek);
    t3.request(thread, "command", "pending");
  }
  t3.thread("secret last week", lastWeek);
  t3.run("secret last week", 1, "running", lastWeek);
  t3.secret("secret last week#1", "waiting");
  const std::string today = "updated_at = '" + at(1) + "'";
  t3.set("v2_threads", "archived", today + ", archived_at = updated_at");
  t3.set("v2_threads", "deleted", today + ", deleted_at = updated_at");

  EXPECT_THAT(statuses(),
              ElementsAre(Pair("asked last week", needsAnswer),
                          Pair("at the edge", done),
                          Pair("secret last week", needsAnswer)));
}

TEST_F(T3ProviderTest, EveryNativeSessionOfAThreadHasItsOwner) {
  Orchestration t3(current);
  for (const char* thread : {"a", "b", "imported", "imported too", "archived", "deleted"})
    t3.thread(thread, 1);
  t3.set("v2_threads", "archived", "archived_at = updated_at");
  t3.set("v2_threads", "deleted", "deleted_at = updated_at");
  t3.providerThread("a", "codex", "n1");
  t3.providerThread("a", "claudeAgent", "n2");
  t3.providerThread("a", "cursor", "n3");
  t3.providerThread("b", "codex", "n1");
  t3.providerThread("b", "claudeAgent", nullptr);
  t3.providerThread("archived", "codex", "n4");
  t3.providerThread("deleted", "codex", "n5");
  t3.add("run_attempts",
         "a",
         {{"provider_thread_id", "a/claudeAgent"},
          {"payload_json", {{"nativeThreadId", "before recovery"}}}});
  const auto runInV1 = [&](const char* thread, const char* driver, const json& cursor) {
    t3.db.insert(
        "provider_session_runtime",
        {{"thread_id", thread}, {"provider_name", driver}, {"resume_cursor_json", cursor}});
  };
  runInV1("imported", "codex", {{"threadId", "n6"}});
  runInV1("imported too", "claudeAgent", {{"threadId", "imported too"}, {"resume", "n7"}});
  runInV1("never imported", "codex", {{"threadId", "n8"}});

  const auto expected = UnorderedElementsAre(Pair("codex:n1", ElementsAre("a", "b")),
                                             Pair("claude:n2", ElementsAre("a")),
                                             Pair("claude:before recovery", ElementsAre("a")),
                                             Pair("codex:n4", ElementsAre("archived")),
                                             Pair("codex:n6", ElementsAre("imported")),
                                             Pair("claude:n7", ElementsAre("imported too")));
  pass();
  EXPECT_THAT(provider.owners(), expected);
  t3.db.execute("update v2_threads set deleted_at = updated_at where thread_id <> 'b'");
  pass();
  EXPECT_THAT(provider.owners(), ElementsAre(Pair("codex:n1", ElementsAre("b"))));
}

TEST_F(T3ProviderTest, SessionHasAllThatTheNewerSchemaTells) {
  Orchestration t3(current);
  home.write("environment-id", "8b0d49ed-169d-4c3d-b27d-9c2bc1676f7e\n");
  home.makeDirectory("app/.git");
  t3.db.insert("projection_projects",
               {{"project_id", "app"}, {"workspace_root", home.path("app/server")}});
  const std::string id = "thread:provider:codex:item%3A1";
  json payload{{"lineage", {{"relationshipToParent", "subagent"}}}, {"worktreePath", ""}};
  payload["modelSelection"] = {{"instanceId", "codex_work"}, {"model", "gpt-5.4"}};
  t3.thread(id, 3, payload);
  t3.set("v2_threads", id, "project_id = 'app', created_at = '" + at(90) + "'");
  const std::string letters(1999, 'x');
  t3.message(id, "assistant", 9, " \n" + letters + "e\u0301 and more");
  t3.message(id, "assistant", 8);
  t3.message(id, "user", 7, "Go on");

  const AgentSession expected{.agent = Agent::t3,
                              .nativeID = id,
                              .title = id,
                              .cwd = home.path("app/server"),
                              .projectPath = home.path("app"),
                              .model = "codex_work / gpt-5.4",
                              .activity = minutesAgo(7),
                              .status = SessionStatus::yourTurn,
                              .detail = "Done, your turn",
                              .lastMessage = letters + "e\u0301",
                              .openURL =
                                  "t3code://threads/8b0d49ed-169d-4c3d-b27d-9c2bc1676f7e/"
                                  "thread%3Aprovider%3Acodex%3Aitem%253A1",
                              .kind = SessionKind::subagent,
                              .startedAt = minutesAgo(90)};
  EXPECT_THAT(pass(), ElementsAre(expected));

  t3.db.execute("update v2_messages set payload_json = '{\"text\":\" Changed. \"}'");
  t3.db.execute("update v2_threads set title = ''");
  const auto changed = pass();
  ASSERT_EQ(changed.size(), 1U);
  EXPECT_EQ(changed[0].lastMessage, "Changed.");
  EXPECT_EQ(changed[0].title, "(untitled)");
}

TEST_F(T3ProviderTest, ModelIsWhatTheSelectionHolds) {
  const std::vector<std::pair<json, std::string>> cases{
      {{{"instanceId", "codex_work"}, {"model", "m"}}, "codex_work / m"},
      {{{"provider", "claudeAgent"}, {"model", "m"}}, "claudeAgent / m"},
      {{{"provider", "codex"}, {"model", ""}}, "codex"},
      {{{"model", "m"}}, "m"},
      {{{"instanceId", 7}, {"model", {"m"}}}, "[\"m\"]"},
      {"{not JSON", ""}};
  T3Database legacy(old, T3Generation::legacy);
  int number = 0;
  for (const auto& [selection, model] : cases) {
    const std::string id = std::to_string(++number) + model;
    legacy.insert("projection_threads",
                  {{"thread_id", id}, {"updated_at", at(1)}, {"model_selection_json", selection}});
  }
  const auto sessions = pass();
  EXPECT_EQ(sessions.size(), cases.size());
  for (const AgentSession& session : sessions)
    EXPECT_EQ(session.nativeID.substr(1), session.model);
  EXPECT_EQ(provider.diagnostic(), "T3 legacy query failed: malformed JSON");
}

TEST_F(T3ProviderTest, OlderSchemaIsReadAtEveryMigration) {
  T3Database legacy(old, T3Generation::legacy);
  const auto thread = [&](const std::string& id, int updated, json columns = json::object()) {
    columns.update({{"thread_id", id}, {"title", id}, {"updated_at", at(updated)}});
    legacy.insert("projection_threads", columns);
  };
  const auto state = [&](const char* id, const char* word, const json& turn) {
    legacy.insert("projection_thread_sessions",
                  {{"thread_id", id}, {"status", word}, {"active_turn_id", turn}});
  };
  thread("plain", 1);
  thread("approval", 2, {{"pending_approval_count", 1}});
  thread("input", 3, {{"pending_user_input_count", 2}});
  thread("settled", 4, {{"settled_at", at(4)}});
  thread("running", 5);
  thread("in a turn", 6);
  thread("broken", 7, {{"worktree_path", "/w"}});
  thread("archived", 8, {{"archived_at", at(1)}});
  thread("deleted", 9, {{"deleted_at", at(1)}});
  thread("old", lastWeek);
  state("running", "running", nullptr);
  state("in a turn", "ready", "turn");
  state("broken", "error", nullptr);
  for (const auto& [text, minutes] : {std::pair(" Later\n", 10), {"Sooner", 20}}) {
    json row{{"thread_id", "broken"}, {"role", "assistant"}, {"message_id", text}, {"text", text}};
    row["created_at"] = at(minutes);
    legacy.insert("projection_thread_messages", row);
  }

  std::map<std::string, std::string> expected{{"plain", done},
                                              {"approval", needsAnswer},
                                              {"input", needsAnswer},
                                              {"settled", settled},
                                              {"running", working},
                                              {"in a turn", working},
                                              {"broken", errored}};
  EXPECT_EQ(statuses(), expected);
  const AgentSession last = pass().back();
  EXPECT_EQ(last.nativeID + last.lastMessage + last.cwd, "brokenLater/w");

  // What each column was added for is then unknown, but the threads stay.
  const std::pair<std::string, std::string> earlier[] = {{"settled_at", "settled"},
                                                         {"pending_approval_count", "approval"},
                                                         {"pending_user_input_count", "input"},
                                                         {"archived_at", "archived"},
                                                         {"model_selection_json", "plain"}};
  for (const auto& [column, nowDone] : earlier) {
    legacy.execute("alter table projection_threads drop column " + column);
    expected[nowDone] = done;
    EXPECT_EQ(statuses(), expected) << "without " << column;
    EXPECT_EQ(provider.diagnostic(), std::nullopt) << "without " << column;
  }
}

TEST_F(T3ProviderTest, PreviewBuildsMayLackAnyTableButTheThreads) {
  Orchestration t3(current);
  t3.thread("a", 1);
  auto tables = t3TableNames(*ReadOnlyDatabase::open(current));
  EXPECT_EQ(tables.erase("orchestration_v2_projection_threads"), 1U);
  for (const std::string& table : tables) {
    t3.db.execute("drop table " + table);
    EXPECT_THAT(statuses(), ElementsAre(Pair("a", done))) << "without " << table;
    EXPECT_EQ(provider.diagnostic(), std::nullopt) << "without " << table;
  }
}

TEST_F(T3ProviderTest, BadJSONCostsAtMostItsRow) {
  Orchestration t3(current);
  t3.thread("broken", 2, "{\"settledOverride\":\"settled\"");
  t3.thread("fine", 1, {{"settledOverride", "settled"}});
  for (const char* thread : {"broken", "fine"}) {
    t3.run(thread, 1, "completed");
    t3.run(thread, 2, "queued");
    t3.providerThread(thread, "codex", thread);
    t3.message(thread, "assistant", 9, "Earlier");
    t3.message(thread, "assistant", 8, "Latest");
    t3.db.insert("provider_session_runtime", {{"thread_id", thread}, {"provider_name", "codex"}});
    t3.add("run_attempts", thread, {{"attempt_id", thread}, {"provider_thread_id", "fine/codex"}});
  }
  t3.set("v2_runs", "fine", "payload_json = '{\"queueHeld\":true}'");
  t3.set("v2_runs", "broken", "payload_json = '{'");
  t3.set("v2_provider_threads", "broken", "payload_json = '['");
  t3.set("v2_run_attempts", "broken", "payload_json = ''");
  t3.set("v2_messages", "broken' and message_id like '%8", "payload_json = '{'");
  t3.set("provider_session_runtime", "broken", "resume_cursor_json = '{'");

  const auto sessions = pass();
  EXPECT_EQ(provider.diagnostic(), std::nullopt);
  ASSERT_EQ(sessions.size(), 2U);
  EXPECT_EQ(sessions[0].detail, "Settled");
  EXPECT_EQ(sessions[0].lastMessage, "Latest");
  EXPECT_EQ(sessions[1].detail, "Working");  // a queued run that is not known to be held back
  EXPECT_EQ(sessions[1].lastMessage, "Earlier");
  EXPECT_THAT(provider.owners(), ElementsAre(Pair("codex:fine", ElementsAre("fine"))));
}

TEST_F(T3ProviderTest, FirstDatabaseThatExistsIsRead) {
  EXPECT_THAT(statuses(), IsEmpty());
  EXPECT_EQ(provider.diagnostic(), std::nullopt);

  T3Database legacy(old, T3Generation::legacy);
  legacy.insert("projection_threads", {{"thread_id", "old"}, {"updated_at", at(1)}});
  EXPECT_THAT(statuses(), ElementsAre(Pair("old", done)));

  Orchestration t3(current);
  t3.thread("new", 1);
  t3.providerThread("new", "codex", "n");
  // The copy of the older schema in the same file is out of date.
  t3.db.insert("projection_threads", {{"thread_id", "copy"}, {"updated_at", at(1)}});
  EXPECT_THAT(statuses(), ElementsAre(Pair("new", done)));

  // A pass that fails says so and leaves nothing of the one before.
  t3.db.close();
  home.write("statev2.sqlite", "no database at all, but long enough to be asked");
  EXPECT_THAT(statuses(), IsEmpty());
  EXPECT_THAT(provider.owners(), IsEmpty());
  EXPECT_THAT(provider.diagnostic().value_or(""), StartsWith("T3 database is unreadable: "));
  std::filesystem::remove(current);
  EXPECT_THAT(statuses(), ElementsAre(Pair("old", done)));
  EXPECT_EQ(provider.diagnostic(), std::nullopt);
}

TEST_F(T3ProviderTest, UnusableDatabaseIsToldAndBlocksNobody) {
  const std::string cannotOpen = "T3 database is unreadable: could not open the file";
  const auto overwrite = [&](std::streamoff offset, std::size_t length) {
    const std::string bytes(length, 'x');
    std::fstream(current, std::ios::in | std::ios::out | std::ios::binary)
        .seekp(offset)
        .write(bytes.data(), static_cast<std::streamsize>(length));
  };
  const auto writeThreads = [&] {
    Orchestration t3(current);
    for (int i = 0; i < 300; ++i)
      t3.thread("thread " + std::to_string(i), 300 - i, {{"filler", std::string(800, 'x')}});
  };
  const std::string unsupported = "Unsupported T3 database schema";
  const std::string malformed = "database disk image is malformed";
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { home.makeDirectory("statev2.sqlite"); }, cannotOpen},
      {[&] { home.write("statev2.sqlite", ""); }, unsupported},
      {[&] { T3Database(current, T3Generation::legacy).execute("drop table projection_threads"); },
       unsupported},
      {[&] { writeThreads(), std::filesystem::resize_file(current, 5000); },
       "T3 database is unreadable: " + malformed},
      {[&] { writeThreads(), overwrite(200'000, 20'000); },
       "T3 thread query failed: " + malformed}};
  for (const auto& [stage, diagnostic] : cases) {
    SCOPED_TRACE(diagnostic);
    stage();
    // Of a file that is damaged further down, what comes before the damage is listed.
    EXPECT_EQ(!pass().empty(), diagnostic.starts_with("T3 thread query"));
    EXPECT_EQ(provider.diagnostic(), diagnostic);
    std::filesystem::remove_all(current);
  }
}

TEST_F(T3ProviderTest, LockedDatabaseCostsOneWait) {
  Orchestration t3(current);
  t3.thread("a", 1);
  t3.db.execute("pragma journal_mode = delete; begin exclusive");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(pass(), IsEmpty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3500ms);
  EXPECT_EQ(provider.diagnostic(), "T3 database is unreadable: database is locked");
  t3.db.execute("rollback");
  EXPECT_THAT(statuses(), ElementsAre(Pair("a", done)));
}

TEST_F(T3ProviderTest, LeavesTheFilesOfAKilledServerAsTheyAre) {
  const TempHome server;
  const std::string source = server.path("statev2.sqlite");
  const Orchestration t3(source);
  t3.thread("a", 1);
  for (const std::string suffix : {"", "-wal", "-shm"})
    std::filesystem::copy_file(source + suffix, current + suffix);
  const std::string before = home.listing();
  EXPECT_THAT(statuses(), ElementsAre(Pair("a", done)));
  EXPECT_TRUE(home.listing() == before);
}

TEST_F(T3ProviderTest, LargeTablesAreReachedThroughIndexes) {
  const Orchestration t3(current);
  const auto db = ReadOnlyDatabase::open(current);
  ASSERT_NE(db, nullptr);
  std::string plan;
  for (const DatabaseRow& row :
       db->query("explain query plan " + std::string(T3Provider::sql("t3-threads")), {at(0)}))
    plan += row.text("detail") == nullptr ? "" : *row.text("detail") + "\n";
  EXPECT_EQ(db->lastError(), std::nullopt);
  std::istringstream used(
      "threads_active runs_recovery requests_recovery runs_thread_ordinal turn_items_run_ordinal "
      "messages_thread_created subagents_child_thread");
  for (std::string index; used >> index;)
    EXPECT_THAT(plan, HasSubstr("INDEX orchestration_v2_projection_" + index + "_idx"));
  for (const char* scanned : {"SCAN item", "SCAN message", "SCAN run", "SCAN thread\n"})
    EXPECT_THAT(plan, ::testing::Not(HasSubstr(scanned)));
}

TEST_F(T3ProviderTest, LinkPartsAreEscapedOnce) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> environments{
      {" \n8b0d-49ed\r\n", "8b0d-49ed"},
      {"a/b%~._é", "a%2Fb%25~._%C3%A9"},
      {"", std::nullopt},
      {" \n", std::nullopt},
      {"\xff", std::nullopt}};
  EXPECT_EQ(T3Provider::escapedEnvironment(current), std::nullopt);
  for (const auto& [text, escaped] : environments) {
    home.write("environment-id", text);
    EXPECT_EQ(T3Provider::escapedEnvironment(current), escaped) << text;
  }
  EXPECT_EQ(T3Provider::threadURL("mcp:1%3A? é", "e%2F"),
            "t3code://threads/e%2F/mcp%3A1%253A%3F%20%C3%A9");
  EXPECT_EQ(T3Provider::threadURL("\xc3", "e"), std::nullopt);
}

}  // namespace
}  // namespace tessivane
