#include "activity/ActivityEvent.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "SampleEvents.h"

namespace tessivane {
namespace {

using enum ActivityKind;

TEST(ActivityEvent, cardTextsDependOnTheKindAndSayNothingTwice) {
  using Text = std::optional<std::string>;
  const auto eventOf = [](ActivityKind kind) {
    return ActivityEvent{.kind = kind,
                         .sessionTitle = "Garden",
                         .ref = "0123456789abcdef",
                         .title = "Tidy the shed",
                         .detail = "worktree",
                         .branch = "shed"};
  };
  const Text whole = eventOf(commit).ref;
  const Text title = eventOf(commit).title;
  struct Row {
    ActivityEvent event = {};
    Text shortRef = {};
    Text startedParent = {};
    Text branchedOn = {};
    Text cardDetail = {};
  };
  const std::initializer_list<Row> rows = {
      {.event = eventOf(commit), .shortRef = "0123456", .cardDetail = "worktree"},
      {.event = eventOf(prOpened), .shortRef = whole, .cardDetail = "worktree"},
      {.event = eventOf(needsYou), .shortRef = whole, .cardDetail = "worktree"},
      {.event = eventOf(started), .startedParent = "Garden"},
      {.event = with(eventOf(started), &ActivityEvent::sessionTitle, title)},
      {.event = eventOf(branched), .branchedOn = "shed", .cardDetail = "On shed"},
      {.event = with(eventOf(branched), &ActivityEvent::branch, title)},
      {.event = with(eventOf(branched), &ActivityEvent::detail, std::nullopt)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(rawValue(row.event.kind));
    EXPECT_EQ(row.event.shortRef(), row.shortRef);
    EXPECT_EQ(row.event.startedParent(), row.startedParent);
    EXPECT_EQ(row.event.branchedOn(), row.branchedOn);
    EXPECT_EQ(row.event.cardDetail(), row.cardDetail);
  }
  for (const ActivityKind kind : allActivityKinds)
    EXPECT_EQ(activityKind(rawValue(kind)), kind);
}

TEST(ActivityEvent, editBucketIsKnownByProjectSessionAndMinute) {
  EditBucket bucket{.projectRoot = "/p", .start = Date(std::chrono::milliseconds(120900))};
  EXPECT_EQ(bucket.id(), "/p:-:120");
  bucket.sessionID = "claude:1";
  EXPECT_EQ(bucket.id(), "/p:claude:1:120");
}

}  // namespace
}  // namespace tessivane
