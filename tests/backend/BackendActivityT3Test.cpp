// Edits that T3 Code has recorded: where they are filed, which wait and for how long, and that its
// database is read no more often than it may be.

#include <chrono>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "ActivityRun.h"
#include "helpers/DatabaseOwner.h"
#include "helpers/T3Database.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class BackendActivityT3Test : public ActivityRun {
 protected:
  std::string databasePath() const { return home_.path(".t3/userdata/statev2.sqlite"); }
  T3Database& t3() {
    if (!t3_) {
      home_.makeDirectory(".t3/userdata");
      t3_ = std::make_unique<T3Database>(databasePath(), T3Generation::orchestration);
    }
    return *t3_;
  }

  void addThread(const std::string& id) {
    AgentSession& session = addSession(id);
    session.agent = Agent::t3;
    session.transcriptPath.reset();
  }
  /// An edit in the thread, `age` ago.
  void edit(const std::string& item,
            const std::string& thread,
            Seconds age = Seconds(0),
            const std::string& native = "") {
    json payload = {{"fileName", home_.path("code/shed/" + item)}};
    if (!native.empty())
      payload["nativeItemRef"] = {{"nativeId", native}};
    t3().insert("v2_turn_items",
                {{"turn_item_id", item},
                 {"thread_id", thread},
                 {"ordinal", 0},
                 {"type", "file_change"},
                 {"status", "completed"},
                 {"updated_at", isoTextWithMilliseconds(shifted(clock_.now(), -age))},
                 {"payload_json", payload}});
  }
  void tellDirectory(const std::string& thread, const json& worktree) {
    t3().insert("projection_projects",
                {{"project_id", "p" + thread}, {"workspace_root", home_.path("code/barn")}});
    t3().insert("v2_threads",
                {{"thread_id", thread},
                 {"project_id", "p" + thread},
                 {"payload_json", {{"worktreePath", worktree}}}});
  }
  /// Tells of the change and gives the store time for a scan.
  void scan() {
    files_.change(databasePath() + "-wal");
    queue_.advance(7s);
  }
  /// The files of all minutes stored so far, as "{session} {project} {files} {paths}".
  std::vector<std::string> filed() const {
    std::vector<std::string> lines;
    for (const EditBucket& bucket : stored().edits) {
      lines.push_back(fmt::format("{} {} {} {}",
                                  bucket.sessionID.value_or("-"),
                                  bucket.projectName,
                                  bucket.files,
                                  fmt::join(bucket.paths, " ")));
    }
    return lines;
  }
  std::string storedCursor() const {
    return BackendEventStore::open(dbPath_)->value("t3.cursor").value_or("");
  }

 private:
  std::unique_ptr<T3Database> t3_;
};

TEST_F(BackendActivityT3Test, FilesEditsUnderTheirThreads) {
  addThread("live");
  tellDirectory("archived", home_.path("code/tree"));
  tellDirectory("plain", nullptr);
  edit("old", "live", 7h);
  edit("a", "live", 2min);
  edit("b", "archived", 1min);
  edit("c", "plain");
  start();
  refresh();
  scan();
  EXPECT_THAT(
      filed(),
      ElementsAre(
          "t3:live shed 1 a", "t3:archived tree 1 ~/code/shed/b", "t3:plain barn 1 ~/code/shed/c"));
  EXPECT_EQ(editedFiles(), 3);
  // Read again, and told once more.
  quit();
  edit("late", "live");
  start();
  refresh();
  scan();
  EXPECT_EQ(editedFiles(), 4);
}

// The transcript of the agent and T3 tell of one edit.
TEST_F(BackendActivityT3Test, CountsAnEditOnceWhoeverTellsIt) {
  addThread("t");
  addSession("c");
  say("c", {claude::edit("toolu_1", home_.path("code/shed/a"))});
  edit("a", "t", 0s, "toolu_1");
  edit("b", "t", 0s, "toolu_2");
  startWithSessions();
  scan();
  say("c", {claude::edit("toolu_2", home_.path("code/shed/b"))});
  refresh();
  EXPECT_EQ(filesOf(stored().edits), 2);
}

TEST_F(BackendActivityT3Test, WaitsForTwoDaysToLearnWhereAnEditBelongs) {
  t3();
  startWithSessions();
  const Date begin = clock_.now();
  edit("a", "new");
  edit("lost", "never");
  scan();
  edit("b", "other");
  tellDirectory("other", nullptr);
  scan();
  EXPECT_THAT(filed(), ElementsAre("t3:other barn 1 ~/code/shed/b"));
  EXPECT_EQ(storedCursor(), isoTextWithMilliseconds(begin));
  quit();
  start();
  addThread("new");
  refresh();
  queue_.advance(7s);
  EXPECT_EQ(filed().size(), 2U);
  EXPECT_EQ(storedCursor(), isoTextWithMilliseconds(begin));
  clock_.advance(49h);
  edit("c", "new");
  scan();
  EXPECT_EQ(storedCursor(), isoTextWithMilliseconds(clock_.now() - 7s));
}

// Not even by a pass that reads other things and fails. Until another session turns up T3 is not
// asked again.
TEST_F(BackendActivityT3Test, ForgetsNoEditThatWaits) {
  home_.makeDirectory("data");
  const DatabaseOwner other(dbPath_);
  t3();
  startWithSessions();
  edit("a", "new");
  scan();
  const auto timers = queue_.timers().size();
  refresh();
  EXPECT_EQ(queue_.timers().size(), timers);
  other.run("begin immediate; create table theirs(x)");
  store().record({commitEvent("1", clock_.now())});
  queue_.advance(3s);
  other.run("commit");
  queue_.advance(61s);
  EXPECT_THAT(titles(), ElementsAre("Commit 1"));
  addThread("new");
  refresh();
  queue_.advance(7s);
  EXPECT_THAT(filed(), ElementsAre("t3:new shed 1 a"));
}

TEST_F(BackendActivityT3Test, GoesOnBehindRowsThatWouldHoldItUp) {
  addThread("t");
  t3().execute(fmt::format(
      R"(with recursive n(i) as (select 4999 union all select i - 1 from n where i > 0)
    insert into v2_turn_items(turn_item_id, thread_id, ordinal, type, status, updated_at,
                              payload_json)
    select 'i' || i, 't', 0, 'file_change', 'completed', '{}', '{{}}' from n)",
      isoTextWithMilliseconds(clock_.now() - 1h)));
  edit("future", "t", -2000h);
  edit("nonsense", "t");
  t3().execute("update v2_turn_items set updated_at = 'zzz' where turn_item_id = 'nonsense'");
  edit("a", "t");
  startWithSessions();
  clock_.advance(1min);
  edit("b", "t");
  scan();
  EXPECT_THAT(filed(), testing::Contains("t3:t shed 1 a"));
  EXPECT_THAT(filed(), testing::Contains("t3:t shed 1 b"));
  quit();
  clock_.advance(1h);
  edit("c", "t");
  clock_.advance(1h);
  start();
  refresh();
  scan();
  EXPECT_THAT(filed(), testing::Contains("t3:t shed 1 c"));
  clock_.set(clock_.now() - 12h);
  edit("d", "t");
  scan();
  EXPECT_THAT(filed(), testing::Contains("t3:t shed 1 d"));
}

// Thousands of changes are read as often as the interval allows.
TEST_F(BackendActivityT3Test, ReadsNoMoreOftenThanItMay) {
  addThread("t");
  t3();
  startWithSessions();
  queue_.advance(10s);
  batches_.clear();
  for (int i = 0; i < 3000; ++i) {
    if (i % 10 == 0)
      edit(std::to_string(i), "t");
    files_.change(databasePath() + "-wal");
    queue_.advance(10ms);
  }
  queue_.advance(7s);
  EXPECT_EQ(editedFiles(), 300);
  EXPECT_GE(batches_.size(), 6U);
  EXPECT_LE(batches_.size(), 8U);
}

TEST_F(BackendActivityT3Test, NoticesAChangeByStatCallsAlone) {
  addThread("t");
  startWithSessions();  // T3 is not there yet
  edit("a", "t");
  files_.watches.clear();
  queue_.advance(7s);
  EXPECT_EQ(editedFiles(), 1);
}

}  // namespace
}  // namespace tessivane
