// Which session made a commit or a branch, and the event that comes of it.

#include "backend/BackendGitEvents.h"

#include <gtest/gtest.h>

#include "StoreFixture.h"

namespace tessivane {
namespace {

using std::chrono::seconds;

/// A session that moved last so long after noon.
BackendGitSession at(int activity, const std::string& id = "a", SessionKind kind = {}) {
  return {.session = {.agent = Agent::codex,
                      .nativeID = id,
                      .title = "Title " + id,
                      .projectPath = "/p",
                      .activity = noon + seconds(activity),
                      .kind = kind},
          .tree = "/p"};
}
BackendGitSession on(const std::string& branch, BackendGitSession session) {
  session.ownBranch = branch;
  return session;
}
BackendGitSession in(const std::string& tree,
                     BackendGitSession session,
                     const std::string& branch = "other") {
  session.tree = tree;
  session.treesBranch = branch;
  return session;
}

std::string idOf(const BackendGitSession* session) {
  return session == nullptr ? "none" : session->session.nativeID;
}

TEST(BackendGitEventsTest, FindsTheSessionOfACommit) {
  const auto job = SessionKind::automation;
  const BackendGitCommit commit{.date = noon, .tree = "/p", .branch = "main"};
  // A detached HEAD has no branch that could speak against a session; without a tree nobody is in
  // it.
  const BackendGitCommit detached{.date = noon, .tree = "/p"};
  const BackendGitCommit nowhere{.date = noon};
  struct Row {
    std::string name = {};
    std::vector<BackendGitSession> sessions = {};
    std::string winner = {};
    BackendGitCommit commit = {};
  };
  for (const Row& row : {
           Row{"nobody", {}, "none", commit},
           Row{"moved last just in time", {at(-120)}, "a", commit},
           Row{"moved last too long before", {at(-121)}, "none", commit},
           Row{"moves long afterwards", {at(9000)}, "a", commit},
           Row{"another tree", {in("/q", at(0))}, "none", commit},
           Row{"says it is elsewhere", {on("x", at(0))}, "none", commit},
           Row{"says it is here", {on("main", at(0))}, "a", commit},
           Row{"nearest", {at(90), at(-80, "b")}, "b", commit},
           Row{"person before automation", {at(1, "a", job), at(500, "b")}, "b", commit},
           Row{"automation alone", {at(1, "a", job)}, "a", commit},
           Row{"tie", {at(-9), at(9, "b")}, "b", commit},
           Row{"full tie", {at(9, "b"), at(9)}, "a", commit},
           Row{"detached", {on("x", at(0))}, "a", detached},
           Row{"no tree", {on("x", at(0))}, "none", nowhere},
       })
    EXPECT_EQ(idOf(BackendGitEvents::sessionOf(row.commit, row.sessions)), row.winner) << row.name;
}

TEST(BackendGitEventsTest, FindsTheSessionOfABranch) {
  const BackendBranchCreation tree{"w", "x", "/w", noon};
  const BackendBranchCreation detached{"w", std::nullopt, "/w", noon};
  const BackendBranchCreation branch{"x", "x", std::nullopt, noon};
  const BackendGitSession treeOnX = in("/t", at(50, "t"), "x");
  struct Row {
    std::string name = {};
    BackendBranchCreation creation = {};
    std::vector<BackendGitSession> sessions = {};
    std::string winner = {};
  };
  for (const Row& row : {
           Row{"in the tree, long ago", tree, {on("x", at(0)), in("/w", at(-999, "b"))}, "b"},
           Row{"on the branch", tree, {on("x", at(0))}, "a"},
           Row{"on the branch too long ago", branch, {on("x", at(-121))}, "none"},
           Row{"its tree is on the branch", branch, {treeOnX}, "t"},
           Row{"what it says counts more than its tree", branch, {on("y", treeOnX)}, "none"},
           Row{"no branch to be on", detached, {at(0)}, "none"},
       })
    EXPECT_EQ(idOf(BackendGitEvents::sessionOf(row.creation, row.sessions)), row.winner)
        << row.name;
}

TEST(BackendGitEventsTest, MakesTheEvent) {
  BackendGitSession session = at(0);
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
  EXPECT_EQ(BackendGitEvents::event(tree, nullptr, "/home")->id,
            "branched:/w:worktree:w@1791201600");
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
