#include "backend/BackendEventStore.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

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
  ActivityEvent elsewhere = full;
  elsewhere.id = "prOpened:/other:12";
  elsewhere.projectRoot = "/other";
  elsewhere.projectName = "other";
  elsewhere.date += 1h;
  EXPECT_TRUE(store().insert(elsewhere));
  close();
  const auto history = store().history(distantPast);
  EXPECT_EQ(history.events, (std::vector<ActivityEvent>{bare, full, moment, elsewhere}));
  EXPECT_EQ(store().history(noon + 999ms).events.size(), 2U);
  EXPECT_EQ(store().localRoots().size(), 3U);
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
  const BackendEventStore::Edit first{
      .key = "native:1", .root = "/p", .date = noon + 59s, .paths = {"a", "b", "a", "c", "d"}};
  EditBucket bucket{
      .projectRoot = "/p", .projectName = "p", .start = noon, .files = 5, .paths = {"a", "b", "c"}};
  EXPECT_EQ(store().addEdit(first), bucket);
  EXPECT_EQ(store().addEdit(first), std::nullopt);
  bucket.files = 6;
  EXPECT_EQ(store().addEdit({.key = "native:2", .root = "/p", .date = noon, .paths = {"e"}}),
            bucket);
  const BackendEventStore::Edit other{
      .key = "native:3", .root = "/p", .sessionID = "t3:1", .date = noon, .paths = {"f"}};
  const auto theirs = store().addEdit(other);
  ASSERT_TRUE(theirs);
  EXPECT_EQ(theirs->files, 1);
  EXPECT_EQ(theirs->sessionID, "t3:1");
  const auto late = store().addEdit({.key = "4", .root = "/p", .date = noon + 60s, .paths = {"g"}});
  ASSERT_TRUE(late);
  EXPECT_EQ(store().history(noon).edits, (std::vector<EditBucket>{bucket, *theirs, *late}));
  EXPECT_EQ(store().history(noon + 59s).edits.size(), 3U);
  // Before 1970 a minute is rounded down too. A count that cannot grow stays.
  const auto old = store().addEdit({.key = "5", .root = "/p", .date = Date(-1s), .paths = {"h"}});
  EXPECT_EQ(old->start, Date(-1min));
  store().db().run("update edit_minutes set files = ?", {std::numeric_limits<std::int64_t>::max()});
  EXPECT_EQ(store().addEdit({.key = "6", .root = "/p", .date = noon, .paths = {"i"}})->files,
            std::numeric_limits<std::int64_t>::max());
}

struct PRRow {
  std::string root = "/p";
  std::string title = "New";
  Date date = noon;
  std::optional<std::string> detail = "me/p";
  std::optional<std::string> branch = "b";
};

struct PRCase {
  std::string name = {};
  std::vector<PRRow> before = {};
  std::string root = "/p";
  std::optional<std::string> branch = "b";
  Kind kind = Kind::unchanged;
  std::vector<PRRow> after = {};  // as before when not given
};

void PrintTo(const PRRow& row, std::ostream* out) {
  *out << row.root << ' ' << row.title << ' ' << row.detail.value_or("null") << ' '
       << row.branch.value_or("null") << ' ' << isoText(row.date);
}
bool operator==(const PRRow& a, const PRRow& b) {
  return a.root == b.root && a.title == b.title && a.date == b.date && a.detail == b.detail &&
         a.branch == b.branch;
}

TEST_F(StoreTest, BringsPullRequestsInLineWithGitHub) {
  const PRRow synthetic{.root = "github:me/p"};
  const PRRow stale{.title = "Old", .date = noon - 1h};
  const PRRow bare{.detail = std::nullopt, .branch = std::nullopt};
  const PRRow real;
  const std::vector<PRCase> cases = {
      {.name = "nothing stored", .kind = Kind::missing},
      {.name = "another repository", .before = {{.detail = "me/q"}}, .kind = Kind::missing},
      {.name = "another project, repository unknown",
       .before = {{.root = "/q", .detail = std::nullopt}},
       .kind = Kind::missing},
      {.name = "up to date", .before = {real}},
      {.name = "up to date, seen from GitHub", .before = {real}, .root = "github:me/p"},
      {.name = "branch not told", .before = {real}, .branch = std::nullopt},
      {.name = "branch new", .before = {bare}, .kind = Kind::updated, .after = {real}},
      {.name = "detail new",
       .before = {bare},
       .branch = std::nullopt,
       .kind = Kind::updated,
       .after = {{.branch = std::nullopt}}},
      {.name = "title and date", .before = {stale}, .kind = Kind::updated, .after = {real}},
      {.name = "date to the microsecond",
       .before = {{.date = noon + 1us}},
       .kind = Kind::updated,
       .after = {real}},
      {.name = "told under a synthetic root",
       .before = {stale},
       .root = "github:me/p",
       .kind = Kind::updated,
       .after = {real}},
      {.name = "promoted", .before = {synthetic}, .kind = Kind::updated, .after = {real}},
      {.name = "still synthetic", .before = {synthetic}, .root = "github:me/p"},
      {.name = "another repository's holds the place", .before = {{.detail = "me/q"}, synthetic}},
      {.name = "twin goes", .before = {synthetic, real}, .kind = Kind::updated, .after = {real}},
      {.name = "second real root stays",
       .before = {real, {.root = "/q"}, synthetic},
       .kind = Kind::updated,
       .after = {real, {.root = "/q"}}},
  };
  for (const PRCase& row : cases) {
    SCOPED_TRACE(row.name);
    store().db().run("delete from events");
    for (const PRRow& before : row.before) {
      ActivityEvent event = commitEvent("12", before.date);
      event.kind = ActivityKind::prMerged;
      event.projectRoot = before.root;
      event.title = before.title;
      event.detail = before.detail;
      event.branch = before.branch;
      event.sessionTitle = "kept";
      ASSERT_TRUE(store().insert(event));
    }
    const BackendEventStore::PullRequest pr{.kind = ActivityKind::prMerged,
                                            .number = "12",
                                            .slug = "me/p",
                                            .root = row.root,
                                            .date = noon,
                                            .title = "New",
                                            .branch = row.branch};
    const auto result = store().reconcilePR(pr);
    EXPECT_EQ(result.kind, row.kind);
    EXPECT_EQ(result.event.has_value(), row.kind == Kind::updated);
    std::vector<PRRow> after;
    for (const ActivityEvent& event : store().history(distantPast).events) {
      EXPECT_EQ(event.sessionTitle, "kept");
      after.push_back({event.projectRoot, event.title, event.date, event.detail, event.branch});
    }
    const auto byRoot = [](const PRRow& a, const PRRow& b) { return a.root < b.root; };
    std::ranges::sort(after, byRoot);
    auto expected = row.after.empty() ? row.before : row.after;
    std::ranges::sort(expected, byRoot);
    EXPECT_EQ(after, expected);
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
  const std::vector<Row> rows = {{"/p", "me/q", "Commit 12"},
                                 {"/r", "me/p", "Commit 12"},
                                 {"/q", "me/p", "Later"},
                                 {"/r", std::nullopt, std::nullopt},
                                 {"/r", "me/q", std::nullopt}};
  for (const Row& row : rows) {
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
  EXPECT_FALSE(store().isSeen("k"));
  EXPECT_TRUE(store().markSeen("k", noon));
  EXPECT_FALSE(store().markSeen("k", noon));
  EXPECT_TRUE(store().isSeen("k"));
  EXPECT_EQ(store().value("t3.cursor"), std::nullopt);
  store().setValue("t3.cursor", "a");
  store().setValue("t3.cursor", "b");
  EXPECT_EQ(store().value("t3.cursor"), "b");
  // A text ends at its first NUL in every statement alike.
  using namespace std::string_view_literals;
  EXPECT_TRUE(store().markSeen("n\0one"sv, noon));
  EXPECT_TRUE(store().isSeen("n\0two"sv));
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
  for (const char* table : {"events", "edit_minutes", "seen_items", "cursors"})
    EXPECT_EQ(count(table), 2) << table;
  EXPECT_EQ(store().value("kept"), "for ever");
}

}  // namespace
}  // namespace tessivane
