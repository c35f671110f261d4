#include "activity/ActivityEvent.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

using Text = std::optional<std::string>;

ActivityEvent eventOf(ActivityKind kind) {
  ActivityEvent event;
  event.kind = kind;
  event.ref = "0123456789abcdef";
  event.title = "Tidy the shed";
  event.sessionTitle = "Garden";
  event.detail = "worktree";
  event.branch = "shed";
  return event;
}

TEST(ActivityEvent, cardTextsDependOnTheKind) {
  struct Row {
    ActivityKind kind = ActivityKind::commit;
    Text shortRef = {};
    Text startedParent = {};
    Text branchedOn = {};
    Text cardDetail = {};
  };
  const Text whole = "0123456789abcdef";
  const std::vector<Row> rows = {
      {.kind = ActivityKind::commit, .shortRef = "0123456", .cardDetail = "worktree"},
      {.kind = ActivityKind::prOpened, .shortRef = whole, .cardDetail = "worktree"},
      {.kind = ActivityKind::prMerged, .shortRef = whole, .cardDetail = "worktree"},
      {.kind = ActivityKind::needsYou, .shortRef = whole, .cardDetail = "worktree"},
      {.kind = ActivityKind::finished, .shortRef = whole, .cardDetail = "worktree"},
      {.kind = ActivityKind::started, .startedParent = "Garden"},
      {.kind = ActivityKind::branched, .branchedOn = "shed", .cardDetail = "On shed"},
  };
  ASSERT_EQ(rows.size(), allActivityKinds.size());
  for (const Row& row : rows) {
    SCOPED_TRACE(rawValue(row.kind));
    const ActivityEvent event = eventOf(row.kind);
    EXPECT_EQ(event.shortRef(), row.shortRef);
    EXPECT_EQ(event.startedParent(), row.startedParent);
    EXPECT_EQ(event.branchedOn(), row.branchedOn);
    EXPECT_EQ(event.cardDetail(), row.cardDetail);
    EXPECT_EQ(activityKind(rawValue(row.kind)), row.kind);
  }
}

TEST(ActivityEvent, saysNothingTwice) {
  ActivityEvent started = eventOf(ActivityKind::started);
  started.sessionTitle = started.title;
  EXPECT_EQ(started.startedParent(), std::nullopt);

  ActivityEvent branched = eventOf(ActivityKind::branched);
  branched.branch = branched.title;
  EXPECT_EQ(branched.branchedOn(), std::nullopt);
  EXPECT_EQ(branched.cardDetail(), std::nullopt);

  branched = eventOf(ActivityKind::branched);
  branched.detail = std::nullopt;
  EXPECT_EQ(branched.cardDetail(), std::nullopt);
}

TEST(ActivityEvent, editBucketIsKnownByProjectSessionAndMinute) {
  EditBucket bucket{.projectRoot = "/p", .start = Date(std::chrono::milliseconds(120900))};
  EXPECT_EQ(bucket.id(), "/p:-:120");
  bucket.sessionID = "claude:1";
  EXPECT_EQ(bucket.id(), "/p:claude:1:120");
}

}  // namespace
}  // namespace tessivane
