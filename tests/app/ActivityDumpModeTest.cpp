#include "app/ActivityDumpMode.h"

#include <cstdio>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "backend/BackendEventStore.h"
#include "helpers/ManualClock.h"
#include "helpers/TempHome.h"

namespace tessivane {
namespace {

constexpr Date now = ManualClock::defaultStart;

class ActivityDumpMode : public testing::Test {
 protected:
  /// Runs the mode over the last hour; its status and what it printed.
  int run() {
    output_.clear();
    errors_.clear();
    std::FILE* output = std::tmpfile();
    std::FILE* errors = std::tmpfile();
    const int status = dumpActivity(path_, now - std::chrono::hours(1), output, errors);
    output_ = contents(output);
    errors_ = contents(errors);
    return status;
  }
  static std::string contents(std::FILE* file) {
    std::string text(10'000, '\0');
    std::rewind(file);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    return text;
  }
  static ActivityEvent event(ActivityKind kind, std::chrono::minutes age) {
    return {.kind = kind, .date = now - age, .projectRoot = "/code/shed", .title = "T"};
  }

  TempHome home_;
  std::string path_ = home_.path("data/activity.sqlite");
  std::string output_;
  std::string errors_;
};

TEST_F(ActivityDumpMode, listsWhatIsStoredAndLeavesNothingBehind) {
  using std::chrono::minutes;
  {
    const auto store = BackendEventStore::open(path_);
    auto late = event(ActivityKind::needsYou, minutes(1));
    late.sessionID = "claude:a";
    late.sessionTitle = "A\tdoor\n";
    store->insert(late);
    auto commit = event(ActivityKind::commit, minutes(60));
    commit.ref = "abc";
    commit.title = "First\x1b[1m door";
    store->insert(commit);
    commit.ref = "def";
    commit.date -= minutes(1);
    store->insert(commit);
    auto pullRequest = event(ActivityKind::prOpened, minutes(2));
    pullRequest.projectRoot = "github:me/shed";
    pullRequest.ref = "7";
    store->insert(pullRequest);
    auto unknown = event(ActivityKind::branched, minutes(3));
    unknown.ref = "x";
    store->insert(unknown);
    store->db().run("update events set kind = 'later' where ref = 'x'");
  }
  const std::string before = home_.listing();
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(output_,
            "2026-10-05T08:00:00Z\tcommit\tshed\t\tabc\tFirst [1m door\n"
            "2026-10-05T08:58:00Z\tprOpened\tshed\t\t7\tT\n"
            "2026-10-05T08:59:00Z\tneedsYou\tshed\tA door \t\tT\n");
  EXPECT_EQ(errors_, "");
  EXPECT_EQ(home_.listing(), before);
}

TEST_F(ActivityDumpMode, seesWhatARunningProgramHasStored) {
  const auto store = BackendEventStore::open(path_);
  store->insert(event(ActivityKind::finished, std::chrono::minutes(1)));
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(output_, "2026-10-05T08:59:00Z\tfinished\tshed\t\t\tT\n");
}

TEST_F(ActivityDumpMode, tellsAFaultButNotThatNothingIsThere) {
  const std::string before = home_.listing();
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(output_ + errors_, "");
  EXPECT_EQ(home_.listing(), before);
  for (const std::string contents : {"no database at all, but a text of some length", ""}) {
    home_.write("data/activity.sqlite", contents);
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(output_, "");
    EXPECT_NE(errors_.find(path_), std::string::npos);
  }
}

}  // namespace
}  // namespace tessivane
