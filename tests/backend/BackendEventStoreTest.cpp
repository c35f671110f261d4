#include "backend/BackendEventStore.h"

#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "StoreFixture.h"
#include "backend/BackendEventRow.h"

namespace tessivane {
namespace {

using Kind = BackendEventStore::PRReconcile::Kind;
using namespace std::chrono_literals;

TEST_F(StoreTest, GivesBackWhatItWasTold) {
  const ActivityEvent full{.id = "prOpened:/home/me/shed:12",
                           .kind = ActivityKind::prOpened,
                           .date = noon + 250ms,
                           .projectRoot = "/home/me/shed",
                           .projectName = "shed",
                           .sessionID = "claude:1",
                           .sessionTitle = "Garden",
                           .owner = Agent::t3,
                           .engine = Agent::codex,
                           .ref = "12",
                           .title = "Tidy the shed",
                           .detail = "me/shed",
                           .branch = "tidy"};
  // Truncated, not rounded down: one second before 1970 and a half is second -1.
  const ActivityEvent bare{.id = "needsYou::-@-1",
                           .kind = ActivityKind::needsYou,
                           .date = Date(-1500ms),
                           .projectName = "~"};
  const ActivityEvent moment{.id = "finished:github:a/b:codex:2@1791201600",
                             .kind = ActivityKind::finished,
                             .date = noon + 999ms,
                             .projectRoot = "github:a/b",
                             .projectName = "b",
                             .sessionID = "codex:2"};
  for (const ActivityEvent& event : {full, bare, moment}) {
    EXPECT_TRUE(store().insert(event)) << event.id;
    EXPECT_FALSE(store().insert(event)) << event.id;
  }
  close();
  const auto history = store().history(distantPast);
  EXPECT_EQ(history.events, (std::vector<ActivityEvent>{bare, full, moment}));
  EXPECT_EQ(store().history(noon + 999ms).events.size(), 1U);
  EXPECT_EQ(store().localRoots().size(), 2U);
  EXPECT_EQ(store().db().failures(), 0U) << store().db().lastError().value_or("");
}

TEST_F(StoreTest, LeavesOutRowsThatItCannotRead) {
  store().db().exec(R"(
    insert into events(ts, root, kind, ref, title, owner) values
      (1e9, '/p', 'commit', 'good', 'title', 'somebody'), (1e9, '/p', 'invented', 'a', 't', null),
      (9e999, '/p', 'commit', 'endless', 't', null), ('soon', '/p', 'commit', 'b', 't', null),
      (1e9, x'00', 'commit', 'c', 't', null), (1e9, '/p', 'commit', x'00', 't', null);
    insert into edit_minutes(root, session_id, minute, files, paths) values
      ('/p', '', 20000000, 7, char(10) || 'a' || char(10, 10) || 'b' || char(10) || 'c' || char(10) || 'd'),
      ('/p', '', 9223372036854775807, 1, ''), ('/p', '', 20000001, 'many', 'a'),
      (x'00', '', 20000002, 1, 'a');
    insert into cursors values('/f', 'text', 1, 1, 1);)");
  const auto history = store().history(distantPast);
  ASSERT_EQ(history.events.size(), 1U);
  EXPECT_EQ(history.events[0].ref, "good");
  EXPECT_EQ(history.events[0].owner, std::nullopt);
  const std::vector<EditBucket> edits = {{.projectRoot = "/p",
                                          .projectName = "p",
                                          .start = Date(20000000min),
                                          .files = 7,
                                          .paths = {"a", "b", "c"}}};
  EXPECT_EQ(history.edits, edits);
  EXPECT_EQ(store().cursor("/f"), std::nullopt);
}

TEST_F(StoreTest, CountsEditsByTheMinute) {
  const auto add = [this](const char* key, Date date, std::vector<std::string> paths) {
    return store().addEdit({.key = key, .root = "/p", .date = date, .paths = std::move(paths)});
  };
  EditBucket bucket{
      .projectRoot = "/p", .projectName = "p", .start = noon, .files = 5, .paths = {"a", "b", "c"}};
  EXPECT_EQ(add("native:1", noon + 59s, {"a", "b", "a", "c", "d"}), bucket);
  EXPECT_EQ(add("native:1", noon + 59s, {"a"}), std::nullopt);
  bucket.files = 6;
  EXPECT_EQ(add("native:2", noon, {"e"}), bucket);
  const auto theirs = store().addEdit(
      {.key = "native:3", .root = "/p", .sessionID = "t3:1", .date = noon, .paths = {"f"}});
  ASSERT_TRUE(theirs);
  EXPECT_EQ(theirs->files, 1);
  EXPECT_EQ(theirs->sessionID, "t3:1");
  const auto late = add("4", noon + 60s, {"g"});
  ASSERT_TRUE(late);
  EXPECT_EQ(store().history(noon).edits, (std::vector<EditBucket>{bucket, *theirs, *late}));
  EXPECT_EQ(store().history(noon + 59s).edits.size(), 3U);
  // Before 1970 a minute is rounded down too. A count that cannot grow stays.
  EXPECT_EQ(add("5", Date(-1s), {"h"})->start, Date(-1min));
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  store().db().run("update edit_minutes set files = ?", {most});
  EXPECT_EQ(add("6", noon, {"i"})->files, most);
}

// A stored pull request as "root title repository branch" with "-" for what is not known, and by
// how many microseconds it is dated after noon.
ActivityEvent mergedEvent(const std::string& text) {
  std::istringstream words(text);
  std::int64_t late = 0;
  ActivityEvent event = commitEvent("12");
  words >> event.projectRoot >> event.title >> event.detail.emplace() >> event.branch.emplace() >>
      late;
  for (auto* field : {&event.detail, &event.branch})
    *field = *field == "-" ? std::nullopt : *field;
  event.kind = ActivityKind::prMerged;
  event.date += std::chrono::microseconds(late);
  event.sessionTitle = "kept";
  return event;
}

std::string described(const ActivityEvent& event) {
  return fmt::format("{} {} {} {} {}",
                     event.projectRoot,
                     event.title,
                     event.detail.value_or("-"),
                     event.branch.value_or("-"),
                     (event.date - noon) / 1us);
}

TEST_F(StoreTest, BringsPullRequestsInLineWithGitHub) {
  using Rows = std::vector<std::string>;
  const std::string real = "/p New me/p b 0";
  const std::string second = "/q New me/p b 0";
  const std::string stale = "/p Old me/p b -3600000000";
  const std::string bare = "/p New - - 0";
  const std::string synthetic = "github:me/p New me/p b 0";
  const std::string others = "/p New me/q b 0";
  const std::optional<std::string> untold;
  struct Case {
    std::string name = {};
    Rows before = {};
    Kind kind = Kind::unchanged;
    Rows after = {};  // as before when it is not updated
    std::string root = "/p";
    std::optional<std::string> branch = "b";
  };
  const std::vector<Case> cases = {
      {"nothing stored", {}, Kind::missing},
      {"another repository", {others}, Kind::missing},
      {"another project, repository unknown", {"/q New - b 0"}, Kind::missing},
      {"up to date", {real}},
      {"up to date, seen from GitHub", {real}, Kind::unchanged, {}, "github:me/p"},
      {"branch not told", {real}, Kind::unchanged, {}, "/p", untold},
      {"branch new", {bare}, Kind::updated, {real}},
      {"detail new", {bare}, Kind::updated, {"/p New me/p - 0"}, "/p", untold},
      {"title and date", {stale}, Kind::updated, {real}},
      {"date to the microsecond", {"/p New me/p b 1"}, Kind::updated, {real}},
      {"told under a synthetic root", {stale}, Kind::updated, {real}, "github:me/p"},
      {"promoted", {synthetic}, Kind::updated, {real}},
      {"still synthetic", {synthetic}, Kind::unchanged, {}, "github:me/p"},
      {"another repository's holds the place", {others, synthetic}},
      {"twin goes", {synthetic, real}, Kind::updated, {real}},
      {"second real root stays", {real, second, synthetic}, Kind::updated, {real, second}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    store().db().run("delete from events");
    for (const std::string& before : row.before)
      ASSERT_TRUE(store().insert(mergedEvent(before)));
    const auto result = store().reconcilePR({.kind = ActivityKind::prMerged,
                                             .number = "12",
                                             .slug = "me/p",
                                             .root = row.root,
                                             .date = noon,
                                             .title = "New",
                                             .branch = row.branch});
    EXPECT_EQ(result.kind, row.kind);
    EXPECT_EQ(result.event.has_value(), row.kind == Kind::updated);
    Rows after;
    for (const ActivityEvent& event : store().history(distantPast).events) {
      EXPECT_EQ(event.sessionTitle, "kept");
      after.push_back(described(event));
    }
    EXPECT_THAT(
        after,
        testing::UnorderedElementsAreArray(row.kind == Kind::updated ? row.after : row.before));
    EXPECT_EQ(store().db().failures(), 0U) << store().db().lastError().value_or("");
    if (result.event) {
      EXPECT_EQ(result.event->id, "prMerged:" + result.event->projectRoot + ":12");
      EXPECT_EQ(result.event->title, "New");
    }
  }
}

TEST_F(StoreTest, KnowsPullRequestsByRootOrRepository) {
  ActivityEvent event = commitEvent("12");
  event.kind = ActivityKind::prOpened;
  event.detail = "me/p";
  store().insert(event);
  event.date += 1h;
  event.projectRoot = "/q";
  event.title = "Later";
  event.detail = std::nullopt;
  store().insert(event);
  struct Row {
    std::string root = {};
    std::optional<std::string> slug = {};
    std::optional<std::string> title = {};
  };
  for (const Row& row : {Row{"/p", "me/q", "Commit 12"},
                         Row{"/r", "me/p", "Commit 12"},
                         Row{"/q", "me/p", "Later"},
                         Row{"/r"},
                         Row{"/r", "me/q"}}) {
    EXPECT_EQ(store().prTitle(12, row.slug, row.root), row.title) << row.root;
    EXPECT_EQ(store().hasPullRequest(ActivityKind::prOpened, "12", row.root, row.slug),
              row.title.has_value());
  }
  EXPECT_EQ(store().prTitle(13, "me/p", "/p"), std::nullopt);
  EXPECT_FALSE(store().hasPullRequest(ActivityKind::prMerged, "12", "/p", "me/p"));
}

TEST_F(StoreTest, KeepsCursorsKeysAndValues) {
  const BackendFileCursor cursor{
      .inode = 0xfedcba9876543210, .offset = 1ULL << 40, .mtime = 1759665600.123456};
  EXPECT_EQ(store().cursor("/f"), std::nullopt);
  store().setCursor({}, "/f", noon);
  store().setCursor(cursor, "/f", noon);
  EXPECT_EQ(store().cursor("/f"), cursor);
  store().setValue("t3.cursor", "a");
  store().setValue("t3.cursor", "b");
  EXPECT_EQ(store().value("t3.cursor"), "b");
  // A text ends at its first NUL in every statement alike.
  using namespace std::string_view_literals;
  EXPECT_TRUE(store().markSeen("n\0one"sv, noon));
  EXPECT_TRUE(store().isSeen("n\0two"sv));
  EXPECT_FALSE(store().markSeen("n", noon));
}

TEST_F(StoreTest, ForgetsWhatIsOlderThanTwoDays) {
  const Date cutOff = noon - 48h;
  for (const Date date : {cutOff - 1us, cutOff, noon}) {
    const std::string name = std::to_string(date.time_since_epoch().count());
    store().insert(commitEvent(name, date));
    store().addEdit({.key = name, .root = "/" + name, .date = date, .paths = {"a"}});
    store().setCursor({}, name, date);
  }
  store().setValue("kept", "for ever");
  store().prune(noon);
  for (const std::string table : {"events", "edit_minutes", "seen_items", "cursors"})
    EXPECT_EQ(store().db().query("select * from " + table).size(), 2U) << table;
  EXPECT_EQ(store().value("kept"), "for ever");
}

}  // namespace
}  // namespace tessivane
