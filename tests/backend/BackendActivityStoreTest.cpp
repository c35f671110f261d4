// The activity store over real files: what it stores and hands over, from which cursors it goes on,
// and when.

#include "backend/BackendActivityStore.h"

#include <array>
#include <chrono>

#include <gmock/gmock.h>

#include "ActivityRun.h"
#include "backend/BackendPass.h"
#include "helpers/GitRepository.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class BackendActivityStoreTest : public ActivityRun {};

TEST_F(BackendActivityStoreTest, EntersFilesAtSixHoursBackAndAnimatesNothing) {
  addSession("a");
  addSession("b");
  sayEdit("a", "code/shed/old.cpp", 7h);
  sayEdit("a", "code/shed/door.cpp", 5h);
  sayEdit("b", "elsewhere/x", 7h);
  openPullRequest("a", 7, 60s);
  start();
  EXPECT_TRUE(batches_.empty());
  refresh();
  queue_.advance(2s);
  ASSERT_EQ(batches_.size(), 1U);
  ASSERT_EQ(batches_[0].edits.size(), 1U);
  EXPECT_THAT(batches_[0].edits[0].paths, ElementsAre("door.cpp"));
  ASSERT_EQ(batches_[0].events.size(), 1U);
  const ActivityEvent& event = batches_[0].events[0];
  EXPECT_EQ(event.title, "Add a door");
  EXPECT_EQ(event.detail, "me/shed");
  EXPECT_EQ(event.id, "prOpened:" + home_.path("code/shed") + ":7");
  EXPECT_EQ(event.firstSeen, distantPast);
  EXPECT_EQ(event, stored().events.at(0));
}

TEST_F(BackendActivityStoreTest, GoesOnFromItsCursors) {
  addSession("a");
  sayEdit("a", "code/shed/door.cpp");
  startWithSessions();
  quit();
  sayEdit("a", "code/shed/roof.cpp");
  clock_.advance(20h);
  sayEdit("a", "code/shed/wall.cpp");
  start();
  ASSERT_EQ(batches_.size(), 1U);  // the history
  EXPECT_EQ(editedFiles(), 1);
  refresh();
  queue_.advance(2s);
  EXPECT_EQ(batches_.size(), 2U);
  EXPECT_EQ(editedFiles(), 3);
  quit();
  sayEdit("a", "code/shed/late.cpp");
  clock_.advance(72h);
  sayEdit("a", "code/shed/new.cpp");
  start();
  EXPECT_TRUE(batches_.empty());
  refresh();
  queue_.advance(2s);
  EXPECT_EQ(editedFiles(), 1);
}

TEST_F(BackendActivityStoreTest, HandsOverOneBatchASecond) {
  addSessionWithTranscript("a");
  startWithSessions();
  for (int number = 1; number <= 5; ++number) {
    openPullRequest("a", number);
    files_.change(home_.path(relative("a")));
    queue_.advance(100ms);
  }
  queue_.advance(2s);
  ASSERT_EQ(batches_.size(), 2U);  // the first had waited long enough
  EXPECT_EQ(batches_[0].events.size() + batches_[1].events.size(), 5U);
  EXPECT_EQ(batches_[0].events[0].firstSeen, batches_[0].events[0].date);
  // Known already, whatever tells it again.
  batches_.clear();
  openPullRequest("a", 3);
  store().record(stored().events);
  refresh();
  queue_.advance(5s);
  EXPECT_TRUE(batches_.empty());
  EXPECT_EQ(stored().events.size(), 5U);
}

// Whatever tells of a change leads to a scan of that file alone; a change from which sessions come
// asks for a refresh.
TEST_F(BackendActivityStoreTest, ScansWhatHasChanged) {
  GitRepository repository(home_, "code/shed");
  repository.commit("Begin");
  clock_.set(repository.now());
  addSessionWithTranscript("a");
  home_.makeDirectory(".t3/userdata");
  startWithSessions();
  const auto tellOf = [&](const std::string& path, std::size_t told, int refreshes) {
    SCOPED_TRACE(path);
    batches_.clear();
    sourceChanges_ = 0;
    clock_.set(std::max(clock_.now(), repository.now()));
    files_.change(path);
    EXPECT_EQ(sourceChanges_, refreshes);
    queue_.advance(0.9s);  // the stat poll is still to come
    EXPECT_EQ(events().size(), told);
  };
  const std::string git = repository.gitDir();
  const std::string tree = home_.path("code/side");
  openPullRequest("a", 1);
  tellOf(home_.path(relative("a")), 1, 1);
  repository.commit("Two");
  tellOf(git + "/logs/HEAD", 1, 0);
  repository.commit("Two and a half");
  tellOf(git + "/logs", 1, 0);
  repository.git({"branch", "x/y"});
  tellOf(git + "/logs/refs/heads/x", 1, 0);
  repository.git({"worktree", "add", "-b", "side", tree});
  tellOf(git + "/worktrees", 1, 0);
  repository.commitIn(tree, "Three");
  tellOf(git + "/worktrees/side/logs/HEAD", 1, 0);
  repository.commitIn(tree, "Four");
  tellOf(git + "/worktrees/side/index", 0, 0);
  tellOf(home_.path(".claude/projects/s/other.jsonl"), 0, 1);
  tellOf(home_.path(".t3/userdata/state.sqlite-wal"), 0, 1);
  tellOf(home_.path(".t3/userdata/server.log"), 0, 0);
  files_.rescan();
  queue_.advance(2s);
  EXPECT_THAT(titles(), ElementsAre("Four"));
}

/// What file events may be like where they cannot be relied on.
class BackendActivityPollTest : public ActivityRun, public testing::WithParamInterface<int> {};

TEST_P(BackendActivityPollTest, NoticesWhatHasChangedAllTheSame) {
  watch_ = GetParam() != 0;
  files_.isPossible = GetParam() != 1;
  GitRepository repository(home_, "code/shed");
  repository.commit("Begin");
  clock_.set(repository.now());
  addSessionWithTranscript("a");
  startWithSessions();
  if (GetParam() == 2)
    files_.problem("Too many directories");
  openPullRequest("a", 1);
  queue_.advance(2s);
  EXPECT_THAT(titles(), ElementsAre("Add a door"));
  EXPECT_EQ(sourceChanges_, 1);
  repository.commit("Two");
  queue_.advance(31s);
  EXPECT_THAT(titles(), ElementsAre("Add a door", "Two"));
}

INSTANTIATE_TEST_SUITE_P(Events, BackendActivityPollTest, testing::Values(0, 1, 2));

TEST_F(BackendActivityStoreTest, FollowsWhereSessionsWork) {
  GitRepository first(home_, "code/shed");
  const GitRepository second(home_, "code/barn");
  addSession("a");
  startWithSessions();
  std::vector<std::string> expected = {home_.path(".claude/projects"),
                                       home_.path(".codex/sessions"),
                                       home_.path(".t3/userdata"),
                                       first.gitDir() + "/logs",
                                       first.gitDir() + "/worktrees"};
  EXPECT_EQ(files_.watched(), expected);
  addSession("b", "code/barn");
  refresh();
  expected.insert(expected.begin() + 3,
                  {second.gitDir() + "/logs", second.gitDir() + "/worktrees"});
  EXPECT_EQ(files_.watched(), expected);
  EXPECT_EQ(files_.mostAtOnce, 2);
  // Where the file system knows no events, a session that goes on there tells.
  first.commit("Untold");
  clock_.set(first.now());
  const auto made = files_.watches.size();
  sessions_.front().activity += 1s;
  refresh();
  EXPECT_EQ(files_.watches.size(), made);
  EXPECT_EQ(stored().events.size(), 1U);
  // "git init" where a session has begun.
  addSession("c", "code/loft");
  refresh();
  EXPECT_EQ(files_.watched(), expected);
  const GitRepository third(home_, "code/loft");
  sessions_.back().activity += 1s;
  refresh();
  EXPECT_THAT(files_.watched(), testing::Contains(third.gitDir() + "/logs"));
  quit();
  EXPECT_THAT(files_.watched(), IsEmpty());
}

// What the old watch has gathered and not told goes with it.
TEST_F(BackendActivityStoreTest, MissesNothingWhileItsWatchesChange) {
  GitRepository shed(home_, "code/shed");
  const GitRepository barn(home_, "code/barn");
  shed.commit("Begin");
  clock_.set(shed.now());
  addSession("a");
  startWithSessions();
  shed.commit("With another session");
  addSession("b", "code/barn");
  refresh();
  shed.commit("With one less");
  sessions_.pop_back();
  refresh();
  queue_.advance(2s);
  EXPECT_THAT(titles(), ElementsAre("With another session", "With one less"));
}

TEST_F(BackendActivityStoreTest, TellsWhatTheSessionsDo) {
  addSession("a").startedAt = clock_.now();
  home_.write(".claude/projects/s/a/subagents/agent-1.jsonl", "", clock_.now());
  startWithSessions();
  sessions_[0].status = SessionStatus::working;
  refresh();
  sessions_[0].status = SessionStatus::yourTurn;
  sessions_[0].activity = clock_.now();
  refresh();
  queue_.advance(2s);
  ASSERT_EQ(events().size(), 1U);
  EXPECT_EQ(events()[0].kind, ActivityKind::finished);
  EXPECT_THAT(kindsAndTitlesOf(stored().events),
              ElementsAre("started Session a", "started Subagent", "finished Session a"));
}

// The pull request stands where GitHub saw it first; the transcript adds nothing.
TEST_F(BackendActivityStoreTest, KnowsAPullRequestFromElsewhere) {
  addSessionWithTranscript("a");
  startWithSessions();
  ActivityEvent known = commitEvent("7", clock_.now());
  known.kind = ActivityKind::prOpened;
  known.projectRoot = "github:me/shed";
  known.detail = "me/shed";
  known.title = "From GitHub";
  store().record({known});
  openPullRequest("a", 7);
  refresh();
  say("a", {claude::bash("m", "gh pr merge 7 -R Me/Shed"), claude::result("m", "merged")});
  refresh();
  queue_.advance(2s);
  EXPECT_THAT(titles(), ElementsAre("From GitHub", "From GitHub"));
  EXPECT_EQ(events()[1].kind, ActivityKind::prMerged);
  EXPECT_EQ(events()[1].projectRoot, home_.path("code/shed"));
}

TEST_F(BackendActivityStoreTest, NamesTheBranchThatATranscriptIsOn) {
  addSession("a");
  startWithSessions();
  int number = 0;
  for (const std::string branch : {"door", "HEAD"}) {
    openPullRequest("a", ++number);
    sayOn("a", branch);
    queue_.advance(3s);
    EXPECT_EQ(events().back().branch, branch == "HEAD" ? std::nullopt : std::optional(branch));
  }
}

TEST_F(BackendActivityStoreTest, ShowsPathsAsAPersonKnowsThem) {
  using Row = std::array<const char*, 3>;  // path, root, and what is shown
  for (const auto& [path, root, shown] :
       {Row{"/home/ann/shed/src/a.c", "/home/ann/shed", "src/a.c"},
        Row{"/home/ann/shed2/a.c", "/home/ann/shed", "~/shed2/a.c"},
        Row{"/home/ann/a.c", "", "~/a.c"},
        Row{"/home/anna/a.c", "", "/home/anna/a.c"},
        Row{"a.c", "/home/ann/shed", "a.c"},
        Row{"/srv/shed/a.c", "/srv/shed", "a.c"}})
    EXPECT_EQ(shownPath(path, root, "/home/ann"), shown);
}

TEST_F(BackendActivityStoreTest, StopsAndStartsAgain) {
  addSessionWithTranscript("a");
  for (int run = 1; run <= 10; ++run) {
    batches_.clear();
    start();
    EXPECT_EQ(batches_.size(), run == 1 ? 0U : 1U);  // the history
    refresh();
    openPullRequest("a", run);
    files_.change(home_.path(relative("a")));
    queue_.advance(2s);
    EXPECT_EQ(events().size(), static_cast<std::size_t>(2 * run - 1));
    openPullRequest("a", 100 + run);
    store().stop();
    queue_.advance(40s);
    EXPECT_TRUE(queue_.timers().empty());
    files_.change(home_.path(relative("a")));
    refresh();
    queue_.advance(40s);
    EXPECT_EQ(events().size(), static_cast<std::size_t>(2 * run - 1));
    start();
    queue_.advance(2s);
    store().stop();
    sessions_[0].activity = clock_.now();
    EXPECT_EQ(stored().events.size(), static_cast<std::size_t>(2 * run));
  }
}

TEST_F(BackendActivityStoreTest, EndsAPassEarlyWhenItIsStopped) {
  for (int i = 0; i < 5; ++i) {
    GitRepository repository(home_, "code/" + std::to_string(i));
    repository.commit("Commit " + std::to_string(i));
    clock_.set(std::max(clock_.now(), repository.now()));
    addSession(std::to_string(i), "code/" + std::to_string(i));
  }
  for (int run = 0; run <= 5; ++run) {
    start();
    store().sessionsDidRefresh(sessions_);
    stopAfter_ = 3 + run;  // the third and later looks at the clock are those at repositories
    queue_.advance(2s);
    EXPECT_EQ(stored().events.size(), static_cast<std::size_t>(std::min(run + 1, 5)));
    stopAfter_ = 0;
    quit();
  }
}

// A clock that is set must neither hold anything up nor set off a storm.
TEST_F(BackendActivityStoreTest, LivesThroughAClockThatIsSet) {
  addSessionWithTranscript("a");
  startWithSessions();
  int number = 0;
  for (const auto jump : {-26h, 3h, -1h, 40h}) {
    clock_.set(clock_.now() + jump);
    batches_.clear();
    openPullRequest("a", ++number);
    EXPECT_LT(queue_.advance(3s), 20U);
    EXPECT_THAT(titles(), ElementsAre("Add a door"));
  }
}

}  // namespace
}  // namespace tessivane
