#include "sessions/SessionDiscovery.h"

#include <gtest/gtest.h>

#include "helpers/JSONL.h"
#include "helpers/TempHome.h"
#include "sessions/SessionDump.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;

AgentSession native(Agent agent,
                    const std::string& id,
                    Seconds activity = 0s,
                    std::set<std::string> sources = {}) {
  return {.agent = agent,
          .nativeID = id,
          .model = "m",
          .activity = *dateFromSeconds(1e9 + activity.count()),
          .detail = "Working",
          .openURL = "x://y",
          .sourceIDs = std::move(sources),
          .transcriptPath = "/t/" + id};
}

AgentSession thread(std::string id) {
  return {.agent = Agent::t3, .nativeID = std::move(id)};
}

TEST(Reconcile, aThreadStandsForTheSessionsItDrives) {
  auto fileless = native(Agent::codex, "fileless", 9s);
  fileless.transcriptPath.reset();
  const auto alone = native(Agent::codex, "alone");
  auto ownTranscript = thread("T2");
  ownTranscript.transcriptPath = "/own";
  const auto result =
      SessionDiscovery::reconcile({native(Agent::codex, "older"),
                                   native(Agent::claude, "desktop", 5s, {"claude:cli"}),
                                   native(Agent::codex, "tie", 5s),
                                   fileless,
                                   alone,
                                   native(Agent::codex, "two")},
                                  {thread("T1"), ownTranscript, thread("T3")},
                                  {{"codex:older", {"T1"}},
                                   {"claude:cli", {"T1"}},
                                   {"codex:tie", {"T1"}},
                                   {"codex:fileless", {"T1"}},
                                   {"codex:two", {"T2"}},
                                   {"codex:unknown", {"T3"}}});
  ASSERT_EQ(result.size(), 4U);
  EXPECT_EQ(result[0], alone);
  EXPECT_EQ(result[1].id(), "t3:T1");
  EXPECT_EQ(result[1].transcriptPath, "/t/desktop");
  EXPECT_EQ(result[2].transcriptPath, "/own");
  EXPECT_EQ(result[3].transcriptPath, std::nullopt);
}

TEST(Reconcile, severalOwnersAreUncertain) {
  const auto result = SessionDiscovery::reconcile(
      {native(Agent::claude, "d", 0s, {"claude:c"}), native(Agent::claude, "e", 0s, {"claude:e2"})},
      {thread("T1"), thread("T2")},
      {{"claude:c", {"T1"}}, {"claude:d", {"T2"}}, {"claude:e", {"T1"}}, {"claude:e2", {"T1"}}});
  ASSERT_EQ(result.size(), 3U);
  EXPECT_EQ(result[0].detail, "Working · T3 ownership uncertain: multiple thread mappings");
  EXPECT_EQ(result[1].transcriptPath, "/t/e");
  EXPECT_EQ(result[2].transcriptPath, std::nullopt);
}

TEST(Reconcile, whatT3StartedButDoesNotKnowIsShownAsItsOwn) {
  for (const char* launcher : {"T3 Code", "t3code_desktop"}) {
    auto session = native(Agent::claude, "c", 0s, {"claude:c"});
    session.launcher = launcher;
    session.model = "";
    auto expected = session;
    expected.agent = Agent::t3;
    expected.nativeID = "claude:c";
    expected.model = "Claude / ";
    expected.detail = "Working · T3 origin; thread mapping unavailable";
    expected.openURL.reset();
    EXPECT_EQ(SessionDiscovery::reconcile({session}, {}, {}), std::vector{expected});
    EXPECT_EQ(expected.id(), "t3:claude:c");
  }
  auto terminal = native(Agent::codex, "c");
  terminal.launcher = "codex-tui";
  EXPECT_EQ(SessionDiscovery::reconcile({terminal}, {}, {}), std::vector{terminal});
}

TEST(ProjectRootResolver, findsTheNearestRepositoryBelowTheHome) {
  const TempHome home;
  home.makeDirectory(".git");
  home.makeDirectory("repo/.git");
  home.makeDirectory("repo/src/deep");
  home.write("worktree/.git", "gitdir: " + home.path("repo/.git/worktrees/w") + "\n");
  home.write("repo/.git/worktrees/w/commondir", "../..\n");
  home.makeDirectory("plain/sub");
  struct Row {
    std::string cwd, root;
    std::optional<std::string> common;
  };
  const std::string repo = home.path("repo");
  const std::string common = home.path("repo/.git");
  const Row rows[] = {{"", "", {}},
                      {repo, repo, common},
                      {home.path("repo/src/deep"), repo, common},
                      {home.path("repo/gone/too"), repo, common},
                      {home.path("repo/./src/../src/"), repo, common},
                      {home.path("worktree/x"), home.path("worktree"), common},
                      {home.path("new"), home.path("new"), {}},
                      {home.path("plain/../plain/sub/"), home.path("plain/../plain/sub/"), {}},
                      {home.path() + "/", home.path() + "/", home.path(".git")},
                      {"relative/path", "relative/path", {}},
                      {"/", "/", {}}};
  ProjectRootResolver roots(home.path());
  for (int round = 0; round < 2; ++round) {
    for (const auto& [cwd, root, dir] : rows) {
      EXPECT_EQ(roots.root(cwd), root) << cwd;
      EXPECT_EQ(roots.gitCommonDir(cwd), dir) << cwd;
    }
  }
  // "git init" when a session has begun there already.
  home.makeDirectory("new/.git");
  EXPECT_EQ(roots.gitCommonDir(home.path("new")), home.path("new/.git"));
}

TEST(SessionDiscovery, tellsTheTroubleOfEachSourceAndListsTheRest) {
  const TempHome home;
  const Date now = *isoDate("2026-10-05T12:00:00Z");
  std::vector<std::string> reports;
  SessionDiscovery discovery(
      {.home = home.path(),
       .configDirectory = home.path(".config"),
       .now = [now] { return now; },
       .report = [&reports](std::string_view line) { reports.emplace_back(line); }});
  EXPECT_TRUE(discovery.sessions(now - 24h).empty());
  EXPECT_TRUE(discovery.problems().empty() && reports.empty());

  home.write(".t3/userdata/state.sqlite", "this is no database, whatever its name says");
  home.write(".codex/state_5.sqlite", "neither is this, though it is long enough to look");
  const json line = {{"type", "user"},
                     {"message", {{"content", "hi"}}},
                     {"timestamp", "2026-10-05T11:59:00Z"},
                     {"entrypoint", "cli"},
                     {"cwd", "/x"}};
  home.write(".claude/projects/p/a.jsonl", jsonLines({line}), now);
  const Date since = now - 23h;  // a new window, since transcripts are looked for now and then only
  EXPECT_EQ(discovery.sessions(since).size(), 1U);
  EXPECT_EQ(discovery.sessions(since).size(), 1U);
  const std::string noDatabase = "T3 database is unreadable: file is not a database";
  EXPECT_EQ(reports, std::vector(2, "Tessivane: " + noDatabase));
  EXPECT_EQ(discovery.problems(),
            (std::map<Agent, std::string>{
                {Agent::t3, noDatabase},
                {Agent::codex, "Codex database query failed: file is not a database"}}));
}

TEST(SessionDump, aLineHasSevenColumnsWhateverIsInThem) {
  AgentSession session{.agent = Agent::codex,
                       .title = "first\r\nsecond",
                       .activity = *isoDate("2026-10-05T12:00:00.999Z"),
                       .status = SessionStatus::needsYou,
                       .detail = "a\tb",
                       .kind = SessionKind::automation};
  EXPECT_EQ(dumpLine(session),
            "2026-10-05T12:00:00Z\tcodex\tautomation\tNeeds you\t~\ta b\tfirst  second\n");
  session.projectPath = "/home/me/pro ject";
  session.title = "déjà";
  EXPECT_EQ(dumpLine(session),
            "2026-10-05T12:00:00Z\tcodex\tautomation\tNeeds you\tpro ject\ta b\tdéjà\n");
}

}  // namespace
}  // namespace tessivane
