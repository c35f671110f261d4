// The activity store on a live queue, with a feed on another, while lists, settings and events come
// from several threads, files grow, and it is stopped in the middle. Meant for the thread sanitizer
// too.

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "SampleLines.h"
#include "StoreFixture.h"
#include "activity/ActivityFeed.h"
#include "backend/BackendActivitySource.h"
#include "helpers/Event.h"
#include "helpers/TempHome.h"
#include "platform/MemoryUserDefaults.h"
#include "platform/SystemClock.h"
#include "platform/linux/SerialQueue.h"

namespace tessivane {
namespace {

class BackendActivityThreadsTest : public testing::Test {
 protected:
  static constexpr int transcripts = 40;
  static constexpr int editsEach = 25;

  BackendActivityThreadsTest() {
    for (int i = 0; i < transcripts; ++i) {
      AgentSession session;
      session.nativeID = std::to_string(i);
      session.projectPath = home_.path("shed");
      session.activity = session.startedAt.emplace(systemNow());
      session.transcriptPath = home_.path(name(i));
      sessions_.push_back(session);
      home_.write(name(i), lines(i, 0));
    }
  }
  static std::string name(int i) { return fmt::format(".claude/projects/s/{}.jsonl", i); }
  static std::string lines(int i, int part) {
    std::string text;
    for (int edit = 0; edit < editsEach; ++edit) {
      json line = claude::edit(fmt::format("{}-{}-{}", i, part, edit), "/x");
      line["timestamp"] = isoTextWithMilliseconds(systemNow());
      text += line.dump() + "\n";
    }
    return text;
  }

  BackendActivityConfig config() {
    BackendActivityConfig config{.home = home_.path(),
                                 .dbPath = home_.path("data/activity.sqlite"),
                                 .claudeDir = home_.path(".claude/projects"),
                                 .codexDir = home_.path(".codex/sessions"),
                                 .t3DBPath = std::nullopt,
                                 .publishInterval = Seconds(0.02),
                                 .pollInterval = Seconds(0.01),
                                 .defaults = &defaults_,
                                 .clock = systemNow};
    config.onSourcesChanged = [this] { ++sourceChanges_; };
    return config;
  }
  std::int64_t storedEdits() const {
    const auto store = BackendEventStore::open(home_.path("data/activity.sqlite"));
    return filesOf(store->history(distantPast).edits);
  }
  /// Runs the task on the main queue and waits for it.
  void onMain(const std::function<void()>& task) {
    Event done;
    main_.async([&] {
      task();
      done.happened();
    });
    ASSERT_TRUE(done.wait());
  }

  TempHome home_;
  SerialQueue main_{"main"};
  MemoryUserDefaults defaults_{main_};
  std::vector<AgentSession> sessions_;
  std::atomic<int> sourceChanges_ = 0;
};

TEST_F(BackendActivityThreadsTest, ServesItsFeedWhileEverythingHappensAtOnce) {
  ProjectRootResolver roots(home_.path());
  SerialQueue queue("tessivane.activity");
  BackendActivityStore store(config(), queue, roots);
  std::unique_ptr<ActivityFeed> feed;
  Subscription subscription;
  Event complete;
  onMain([&] {
    feed = std::make_unique<ActivityFeed>(
        ActivityFeed::Environment{.mainQueue = &main_, .defaults = &defaults_, .now = systemNow},
        std::make_unique<BackendActivitySource>(store));
    subscription = feed->subscribe([&] {
      // Told before each change, so it is looked at in a task of its own.
      main_.async([&] {
        if (filesOf(feed->edits()) == 2 * transcripts * editsEach && feed->events().size() >= 140)
          complete.happened();
      });
    });
    feed->start();
  });
  std::thread refresher([&] {
    for (int i = 0; i < 20; ++i) {
      sessions_[0].activity += std::chrono::seconds(1);
      store.sessionsDidRefresh(sessions_);
    }
  });
  std::thread recorder([&] {
    for (int i = 0; i < 100; ++i) {
      store.record({ActivityEvent{.id = fmt::format("commit:/p:{}", i),
                                  .date = systemNow(),
                                  .projectRoot = "/p",
                                  .ref = std::to_string(i)}});
      store.settingsDidChange();
    }
  });
  std::thread writer([&] {
    for (int i = 0; i < transcripts; ++i)
      home_.append(name(i), lines(i, 1));
  });
  for (std::thread* thread : {&refresher, &recorder, &writer})
    thread->join();
  EXPECT_TRUE(complete.wait());
  onMain([&] {
    subscription.end();
    feed.reset();
  });
  EXPECT_TRUE(store.stopAndWait(Seconds(60)));
  EXPECT_EQ(storedEdits(), 2 * transcripts * editsEach);
}

// Wherever a run is cut short, the next one goes on from there.
TEST_F(BackendActivityThreadsTest, LosesAndDoublesNothingWhenItIsStopped) {
  enum class End { told, destroyed, finished };
  const auto run = [this](End end) {
    ProjectRootResolver roots(home_.path());
    SerialQueue queue("tessivane.activity");
    BackendActivityStore store(config(), queue, roots);
    Event reached;
    store.start([](const auto&, const auto&) {});
    if (end != End::finished)
      queue.async([&] { reached.happened(); });  // the scan follows
    store.sessionsDidRefresh(sessions_);
    if (end == End::finished)
      queue.async([&] { reached.happened(); });
    EXPECT_TRUE(reached.wait());
    EXPECT_TRUE(end != End::told || store.stopAndWait(Seconds(60)));
  };
  std::int64_t before = 0;
  for (int round = 0; round < 6; ++round) {
    run(End::told);
    const std::int64_t stored = storedEdits();
    EXPECT_GE(stored, before);
    before = stored;
    run(End::destroyed);
  }
  run(End::finished);
  EXPECT_EQ(storedEdits(), transcripts * editsEach);
}

}  // namespace
}  // namespace tessivane
