#include "backend/BackendOutbox.h"

#include <gmock/gmock.h>

#include "StoreFixture.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(BackendOutbox, OrdersByDateAndThenByArrival) {
  BackendOutbox outbox;
  outbox.add(commitEvent("late", noon + 1s));
  outbox.add(commitEvent("first"));
  outbox.add(commitEvent("second"));
  for (const int files : {1, 2})
    outbox.add(EditBucket{.projectRoot = "/p", .start = noon + 60s, .files = files});
  outbox.add(EditBucket{.projectRoot = "/p", .start = noon, .files = 3});
  const auto batch = outbox.take();
  EXPECT_THAT(titlesOf(batch.events), ElementsAre("Commit first", "Commit second", "Commit late"));
  ASSERT_EQ(batch.edits.size(), 2U);
  EXPECT_EQ(batch.edits[0].files, 3);
  EXPECT_EQ(batch.edits[1].files, 2);
  EXPECT_TRUE(outbox.isEmpty());
  outbox.add(EditBucket{.projectRoot = "/p", .start = noon + 60s, .files = 4});
  EXPECT_EQ(outbox.take().edits.size(), 1U);
}

ActivityEvent pullRequest(const std::string& root,
                          const std::string& title,
                          ActivityKind kind = ActivityKind::prOpened,
                          const char* slug = "me/shed") {
  return {.id = std::string(rawValue(kind)) + ":" + root + ":7",
          .kind = kind,
          .date = noon,
          .projectRoot = root,
          .ref = "7",
          .title = title,
          .detail = slug};
}

TEST(BackendOutbox, ACorrectionTakesThePlaceOfWhatItCorrects) {
  BackendOutbox outbox;
  const auto tellAll = [&] {
    for (const char* root : {"/p", "github:me/shed", "/q"})
      outbox.add(pullRequest(root, std::string("old ") + root));
    outbox.add(
        pullRequest("github:me/barn", "other repository", ActivityKind::prOpened, "me/barn"));
    outbox.add(pullRequest("github:me/shed", "merged", ActivityKind::prMerged));
  };
  tellAll();
  outbox.correct(pullRequest("/p", "new"));
  EXPECT_THAT(titlesOf(outbox.take().events),
              ElementsAre("old /q", "other repository", "merged", "new"));
  tellAll();
  outbox.correct(pullRequest("github:me/shed", "new"));
  EXPECT_THAT(titlesOf(outbox.take().events),
              ElementsAre("old /p", "old /q", "other repository", "merged", "new"));
}

}  // namespace
}  // namespace tessivane
