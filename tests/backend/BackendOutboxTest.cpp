#include "backend/BackendOutbox.h"

#include <gmock/gmock.h>

#include "StoreFixture.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

std::vector<std::string> titles(const BackendOutbox::Batch& batch) {
  std::vector<std::string> all;
  for (const ActivityEvent& event : batch.events)
    all.push_back(event.title);
  return all;
}

TEST(BackendOutbox, OrdersByDateAndThenByArrival) {
  BackendOutbox outbox;
  outbox.add(commitEvent("late", noon + 1s));
  outbox.add(commitEvent("first"));
  outbox.add(commitEvent("second"));
  for (const int files : {1, 2})
    outbox.add(EditBucket{.projectRoot = "/p", .start = noon + 60s, .files = files});
  outbox.add(EditBucket{.projectRoot = "/p", .start = noon, .files = 3});
  const auto batch = outbox.take();
  EXPECT_THAT(titles(batch), ElementsAre("Commit first", "Commit second", "Commit late"));
  ASSERT_EQ(batch.edits.size(), 2U);
  EXPECT_EQ(batch.edits[0].files, 3);
  EXPECT_EQ(batch.edits[1].files, 2);
  EXPECT_TRUE(outbox.isEmpty());
  outbox.add(EditBucket{.projectRoot = "/p", .start = noon + 60s, .files = 4});
  EXPECT_EQ(outbox.take().edits.size(), 1U);
}

ActivityEvent pullRequest(const std::string& root, const std::string& title) {
  return {.id = "prOpened:" + root + ":7",
          .kind = ActivityKind::prOpened,
          .date = noon,
          .projectRoot = root,
          .ref = "7",
          .title = title,
          .detail = "me/shed"};
}

TEST(BackendOutbox, ACorrectionTakesThePlaceOfWhatItCorrects) {
  BackendOutbox outbox;
  const auto tellAll = [&outbox] {
    for (const char* root : {"/p", "github:me/shed", "/q"})
      outbox.add(pullRequest(root, std::string("old ") + root));
    auto other = pullRequest("github:me/barn", "other repository");
    other.detail = "me/barn";
    outbox.add(other);
    other = pullRequest("github:me/shed", "merged");
    other.kind = ActivityKind::prMerged;
    other.id = "prMerged:github:me/shed:7";
    outbox.add(other);
  };
  tellAll();
  outbox.correct(pullRequest("/p", "new"));
  EXPECT_THAT(titles(outbox.take()), ElementsAre("old /q", "other repository", "merged", "new"));
  tellAll();
  outbox.correct(pullRequest("github:me/shed", "new"));
  EXPECT_THAT(titles(outbox.take()),
              ElementsAre("old /p", "old /q", "other repository", "merged", "new"));
}

}  // namespace
}  // namespace tessivane
