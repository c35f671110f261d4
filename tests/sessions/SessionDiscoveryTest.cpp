#include "sessions/SessionDiscovery.h"

#include <gtest/gtest.h>

#include "helpers/JSONL.h"
#include "helpers/TempHome.h"
#include "sessions/SessionDump.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;

AgentSession native(Agent agent, std::string id, Seconds activity = 0s) {
  AgentSession session;
  session.agent = agent;
  session.nativeID = std::move(id);
  session.activity = *dateFromSeconds(1e9 + activity.count());
  session.detail = "Working";
  session.model = "m";
  session.openURL = "x://y";
  session.transcriptPath = "/t/" + session.nativeID;
  return session;
}

AgentSession thread(std::string id) {
  AgentSession session;
  session.agent = Agent::t3;
  session.nativeID = std::move(id);
  return session;
}

TEST(Reconcile, aThreadStandsForTheSessionsItDrives) {
  auto desktop = native(Agent::claude, "desktop", 5s);
  desktop.sourceIDs = {"claude:cli"};
  auto tie = native(Agent::codex, "tie", 5s);
  auto fileless = native(Agent::codex, "fileless", 9s);
  fileless.transcriptPath.reset();
  const auto alone = native(Agent::codex, "alone");
  auto ownTranscript = thread("T2");
  ownTranscript.transcriptPath = "/own";
  const auto result = SessionDiscovery::reconcile(
      {native(Agent::codex, "older"), desktop, tie, fileless, alone, native(Agent::codex, "two")},
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
  auto desktop = native(Agent::claude, "d");
  desktop.sourceIDs = {"claude:c"};
  auto sameTwice = native(Agent::claude, "e");
  sameTwice.sourceIDs = {"claude:e2"};
  const auto result = SessionDiscovery::reconcile(
      {desktop, sameTwice},
      {thread("T1"), thread("T2")},
      {{"claude:c", {"T1"}}, {"claude:d", {"T2"}}, {"claude:e", {"T1"}}, {"claude:e2", {"T1"}}});
  ASSERT_EQ(result.size(), 3U);
  EXPECT_EQ(result[0].detail, "Working · T3 ownership uncertain: multiple thread mappings");
  EXPECT_EQ(result[1].transcriptPath, "/t/e");
  EXPECT_EQ(result[2].transcriptPath, std::nullopt);
}

TEST(Reconcile, whatT3StartedButDoesNotKnowIsShownAsItsOwn) {
  for (const char* launcher : {"T3 Code", "t3code_desktop"}) {
    auto session = native(Agent::claude, "c");
    session.launcher = launcher;
    session.model = "";
    session.sourceIDs = {"claude:c"};
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
    std::string cwd;
    std::string root;
    std::optional<std::string> common;
  };
  ProjectRootResolver roots(home.path());
  const std::string common = home.path("repo/.git");
  for (int round = 0; round < 2; ++round) {
    for (const Row& row : std::initializer_list<Row>{
             {"", "", {}},
             {home.path("repo"), home.path("repo"), common},
             {home.path("repo/src/deep"), home.path("repo"), common},
             {home.path("repo/gone/too"), home.path("repo"), common},
             {home.path("repo/./src/../src/"), home.path("repo"), common},
             {home.path("worktree/x"), home.path("worktree"), common},
             {home.path("new"), home.path("new"), {}},
             {home.path("plain/../plain/sub/"), home.path("plain/../plain/sub/"), {}},
             {home.path() + "/", home.path() + "/", home.path(".git")},
             {"relative/path", "relative/path", {}},
             {"/", "/", {}},
         }) {
      EXPECT_EQ(roots.root(row.cwd), row.root) << row.cwd;
      EXPECT_EQ(roots.gitCommonDir(row.cwd), row.common) << row.cwd;
    }
  }
  // "git init" when a session has begun there already.
  home.makeDirectory("new/.git");
  EXPECT_EQ(roots.gitCommonDir(home.path("new")), home.path("new/.git"));
}

class DiscoveryTest : public testing::Test {
 protected:
  std::vector<AgentSession> sessions() { return discovery_.sessions(now_ - 24h); }

  TempHome home_;
  Date now_ = *isoDate("2026-10-05T12:00:00Z");
  std::vector<std::string> reports_;
  SessionDiscovery discovery_{
      {.home = home_.path(),
       .configDirectory = home_.path(".config"),
       .now = [this] { return now_; },
       .report = [this](std::string_view line) { reports_.emplace_back(line); }}};
};

TEST_F(DiscoveryTest, anEmptyHomeIsNoProblem) {
  EXPECT_TRUE(sessions().empty());
  EXPECT_TRUE(discovery_.problems().empty());
  EXPECT_TRUE(reports_.empty());
}

TEST_F(DiscoveryTest, tellsTheTroubleOfEachSourceAndListsTheRest) {
  home_.write(".t3/userdata/state.sqlite", "this is no database, whatever its name says");
  home_.write(".codex/state_5.sqlite", "neither is this, though it is long enough to look");
  const json line = {{"type", "user"},
                     {"message", {{"content", "hi"}}},
                     {"timestamp", "2026-10-05T11:59:00Z"},
                     {"entrypoint", "cli"},
                     {"cwd", "/x"}};
  home_.write(".claude/projects/p/a.jsonl", jsonLines({line}), now_);
  EXPECT_EQ(sessions().size(), 1U);
  EXPECT_EQ(sessions().size(), 1U);
  EXPECT_EQ(reports_,
            (std::vector<std::string>(
                2, "Tessivane: T3 database is unreadable: file is not a database")));
  const auto problems = discovery_.problems();
  EXPECT_EQ(problems.at(Agent::t3), "T3 database is unreadable: file is not a database");
  EXPECT_EQ(problems.at(Agent::codex), "Codex database query failed: file is not a database");
  EXPECT_FALSE(problems.contains(Agent::claude));
}

TEST(SessionDump, aLineHasSevenColumnsWhateverIsInThem) {
  AgentSession session;
  session.agent = Agent::codex;
  session.kind = SessionKind::automation;
  session.status = SessionStatus::needsYou;
  session.activity = *isoDate("2026-10-05T12:00:00.999Z");
  session.detail = "a\tb";
  session.title = "first\r\nsecond";
  EXPECT_EQ(dumpLine(session),
            "2026-10-05T12:00:00Z\tcodex\tautomation\tNeeds you\t~\ta b\tfirst  second\n");
  session.projectPath = "/home/me/pro ject";
  session.title = "déjà";
  EXPECT_EQ(dumpLine(session),
            "2026-10-05T12:00:00Z\tcodex\tautomation\tNeeds you\tpro ject\ta b\tdéjà\n");
}

}  // namespace
}  // namespace tessivane
