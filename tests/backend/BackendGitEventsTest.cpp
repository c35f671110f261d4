// Which session made a commit or a branch, and the event that comes of it.

#include "backend/BackendGitEvents.h"

#include <gtest/gtest.h>

#include "StoreFixture.h"

namespace tessivane {
namespace {

BackendGitSession sessionAt(const std::string& id,
                            std::chrono::seconds activity,
                            SessionKind kind = SessionKind::session) {
  return {.session = {.agent = Agent::codex,
                      .nativeID = id,
                      .title = "Title " + id,
                      .projectPath = "/p",
                      .activity = noon + activity,
                      .kind = kind},
          .tree = "/p"};
}

BackendGitSession on(const std::string& branch, BackendGitSession session) {
  session.ownBranch = branch;
  return session;
}

BackendGitSession in(const std::string& tree, BackendGitSession session) {
  session.tree = tree;
  session.treesBranch = "of-" + tree;
  return session;
}

std::string idOf(const BackendGitSession* session) {
  return session == nullptr ? "none" : session->session.nativeID;
}

TEST(BackendGitEventsTest, FindsTheSessionOfACommit) {
  using std::chrono::seconds;
  struct Row {
    std::string name = {};
    std::vector<BackendGitSession> sessions = {};
    std::string winner = {};
  };
  const auto automation = SessionKind::automation;
  for (const Row& row : {
           Row{"nobody", {}, "none"},
           Row{"moved last just in time", {sessionAt("a", seconds(-120))}, "a"},
           Row{"moved last too long before", {sessionAt("a", seconds(-121))}, "none"},
           Row{"moves long afterwards", {sessionAt("a", seconds(9000))}, "a"},
           Row{"another tree", {in("/q", sessionAt("a", seconds(0)))}, "none"},
           Row{"says it is elsewhere", {on("x", sessionAt("a", seconds(0)))}, "none"},
           Row{"says it is here", {on("main", sessionAt("a", seconds(0)))}, "a"},
           Row{"nearest", {sessionAt("a", seconds(90)), sessionAt("b", seconds(-80))}, "b"},
           Row{"person before automation",
               {sessionAt("a", seconds(1), automation), sessionAt("b", seconds(500))},
               "b"},
           Row{"automation alone", {sessionAt("a", seconds(1), automation)}, "a"},
           Row{"tie", {sessionAt("a", seconds(-9)), sessionAt("b", seconds(9))}, "b"},
           Row{"full tie", {sessionAt("b", seconds(9)), sessionAt("a", seconds(9))}, "a"},
       }) {
    const BackendGitCommit commit{.date = noon, .tree = "/p", .branch = "main"};
    EXPECT_EQ(idOf(BackendGitEvents::sessionOf(commit, row.sessions)), row.winner) << row.name;
  }
  // A detached HEAD has no branch that could speak against a session; without a tree nobody is in
  // it.
  const std::vector<BackendGitSession> there = {on("x", sessionAt("a", seconds(0)))};
  EXPECT_EQ(idOf(BackendGitEvents::sessionOf(BackendGitCommit{.date = noon, .tree = "/p"}, there)),
            "a");
  EXPECT_EQ(idOf(BackendGitEvents::sessionOf(BackendGitCommit{.date = noon}, there)), "none");
}

TEST(BackendGitEventsTest, FindsTheSessionOfABranch) {
  using std::chrono::seconds;
  const BackendBranchCreation tree{"w", "x", "/w", noon};
  const BackendBranchCreation detached{"w", std::nullopt, "/w", noon};
  const BackendBranchCreation branch{"x", "x", std::nullopt, noon};
  BackendGitSession treeOnX = in("/t", sessionAt("t", seconds(50)));
  treeOnX.treesBranch = "x";
  struct Row {
    std::string name = {};
    BackendBranchCreation creation = {};
    std::vector<BackendGitSession> sessions = {};
    std::string winner = {};
  };
  for (const Row& row : {
           Row{"in the tree, however long ago",
               tree,
               {on("x", sessionAt("a", seconds(0))), in("/w", sessionAt("b", seconds(-999)))},
               "b"},
           Row{"on the branch", tree, {on("x", sessionAt("a", seconds(0)))}, "a"},
           Row{"on the branch too long ago",
               branch,
               {on("x", sessionAt("a", seconds(-121)))},
               "none"},
           Row{"its tree is on the branch", branch, {treeOnX}, "t"},
           Row{"what it says counts more than its tree", branch, {on("y", treeOnX)}, "none"},
           Row{"no branch to be on", detached, {sessionAt("a", seconds(0))}, "none"},
       })
    EXPECT_EQ(idOf(BackendGitEvents::sessionOf(row.creation, row.sessions)), row.winner)
        << row.name;
}

TEST(BackendGitEventsTest, MakesTheEvent) {
  BackendGitSession session = sessionAt("a", std::chrono::seconds(0));
  BackendGitCommit commit{.hash = "cafe",
                          .date = noon,
                          .message = "commit (amend): Fix: it",
                          .tree = "/w/tree",
                          .branch = "main"};
  ActivityEvent expected{.id = "commit:/p:cafe",
                         .kind = ActivityKind::commit,
                         .date = noon,
                         .projectRoot = "/p",
                         .projectName = "p",
                         .sessionID = "codex:a",
                         .sessionTitle = "Title a",
                         .owner = Agent::codex,
                         .engine = Agent::codex,
                         .ref = "cafe",
                         .title = "Fix: it",
                         .branch = "main"};
  EXPECT_EQ(BackendGitEvents::event(commit, &session), expected);
  session.session.projectPath = "";
  EXPECT_EQ(BackendGitEvents::event(commit, &session)->id, "commit:/w/tree:cafe");
  EXPECT_EQ(BackendGitEvents::event(commit, nullptr)->projectName, "tree");
  EXPECT_EQ(BackendGitEvents::event(commit, nullptr)->sessionID, std::nullopt);
  commit.tree.reset();
  EXPECT_EQ(BackendGitEvents::event(commit, nullptr), std::nullopt);

  const BackendBranchCreation tree{"w", "x", "/w", noon};
  const auto made = BackendGitEvents::event(tree, nullptr, "/home");
  EXPECT_EQ(made->id, "branched:/w:worktree:w@1791201600");
  EXPECT_EQ(made->title, "w");
  EXPECT_EQ(made->detail, "worktree");
  EXPECT_EQ(made->branch, "x");
  const BackendBranchCreation branch{"x/y", "x/y", std::nullopt, noon};
  EXPECT_EQ(BackendGitEvents::event(branch, nullptr, "/home")->id,
            "branched:/home:branch:x/y@1791201600");
  EXPECT_EQ(BackendGitEvents::event(branch, nullptr, "/home")->detail, std::nullopt);
  EXPECT_EQ(BackendGitEvents::event(branch, nullptr, std::nullopt), std::nullopt);
}

TEST(BackendGitEventsTest, ReadsTheSubjectOfACommit) {
  struct Row {
    std::string message = {};
    std::string title = {};
    bool isCommit = true;
  };
  std::string flags;
  for (int i = 0; i < 200; ++i)
    flags += "\U0001F1E9\U0001F1EA";
  for (const Row& row : {Row{"commit: Add  this\tand that", "Add this and that"},
                         Row{"commit (initial): x: y", "x: y"},
                         Row{"commit (merge): m", "m"},
                         Row{"commit:", ""},
                         Row{"commit: " + flags + "!", flags},
                         Row{"rebase (pick): x", "x", false},
                         Row{"cherry-pick: x", "x", false},
                         Row{"commits: x", "x", false}}) {
    EXPECT_EQ(BackendGitEvents::title(row.message), row.title);
    EXPECT_EQ(BackendGitEvents::isCommit({.message = row.message}), row.isCommit) << row.message;
  }
}

}  // namespace
}  // namespace tessivane
