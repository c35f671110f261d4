// The activity store over real files: what it stores and hands over, from which cursors it goes on,
// and when.

#include "backend/BackendActivityStore.h"

#include <chrono>
#include <map>

#include <gmock/gmock.h>

#include "ActivityRun.h"
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
  sayEdit("a", "work/shed/old.cpp", 7h);
  sayEdit("a", "work/shed/door.cpp", 5h);
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
  EXPECT_EQ(event.id, "prOpened:" + home_.path("work/shed") + ":7");
  EXPECT_EQ(event.firstSeen, distantPast);
  EXPECT_EQ(event, stored().events.at(0));
}

TEST_F(BackendActivityStoreTest, GoesOnFromItsCursors) {
  addSession("a");
  sayEdit("a", "work/shed/door.cpp");
  startWithSessions();
  quit();
  sayEdit("a", "work/shed/roof.cpp");
  clock_.advance(20h);
  sayEdit("a", "work/shed/wall.cpp");
  start();
  ASSERT_EQ(batches_.size(), 1U);  // the history
  EXPECT_EQ(editedFiles(), 1);
  refresh();
  queue_.advance(2s);
  EXPECT_EQ(batches_.size(), 2U);
  EXPECT_EQ(editedFiles(), 3);
  quit();
  sayEdit("a", "work/shed/late.cpp");
  clock_.advance(72h);
  sayEdit("a", "work/shed/new.cpp");
  start();
  EXPECT_TRUE(batches_.empty());
  refresh();
  queue_.advance(2s);
  EXPECT_EQ(editedFiles(), 1);
}

TEST_F(BackendActivityStoreTest, HandsOverOneBatchASecond) {
  addSession("a");
  home_.write(relative("a"), "");
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

}  // namespace
}  // namespace tessivane
