#include "activity/SyntheticActivitySource.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"

namespace tessivane {
namespace {

using Batch = SyntheticActivitySource::Batch;
using enum ActivityKind;

constexpr Date noon = ManualClock::defaultStart + std::chrono::hours(3);

SyntheticActivitySource sourceOf(std::uint32_t seed) {
  return {seed, Seconds(0), {}};
}

// What a source delivers to its handler.
struct Delivery {
  ManualClock clock{noon};
  ManualQueue queue{clock};
  std::unique_ptr<SyntheticActivitySource> source;
  std::vector<Batch> batches = {};

  explicit Delivery(std::uint32_t seed, Seconds interval = Seconds(1))
      : source(std::make_unique<SyntheticActivitySource>(
            seed,
            interval,
            SyntheticActivitySource::Environment{.now = clock.clock(), .queue = &queue})) {}
  void start() {
    source->start([this](auto events, auto edits) {
      batches.push_back(Batch{.events = std::move(events), .edits = std::move(edits)});
    });
  }
};

TEST(Mulberry32, drawsThePublishedNumbers) {
  // From the published text, run elsewhere.
  Mulberry32 random(11);
  for (const double drawn : {2197249643.0, 2276102492.0, 2611849345.0, 2534707746.0})
    EXPECT_EQ(random.draw(), drawn / 4294967296);
  EXPECT_EQ(Mulberry32(0xffffffffU).draw(), 3850105811.0 / 4294967296);
}

TEST(SyntheticActivitySource, isAskedForByTheEnvironmentOrTheSettings) {
  EXPECT_TRUE(wantsSyntheticActivity("1", false));
  EXPECT_TRUE(wantsSyntheticActivity("0", true));
  EXPECT_FALSE(wantsSyntheticActivity("true", false));
  EXPECT_FALSE(wantsSyntheticActivity(std::nullopt, std::nullopt));
}

TEST(SyntheticActivitySource, deliversItsHistoryOnceAndTicksWhileItRuns) {
  Delivery run(11);
  run.start();
  run.start();
  ASSERT_EQ(run.batches.size(), 1U);
  ASSERT_EQ(run.queue.timers().size(), 1U);
  EXPECT_EQ(run.queue.timers()[0].interval, Seconds(1));
  EXPECT_EQ(run.queue.timers()[0].tolerance, Seconds(0.2));
  run.queue.advance(Seconds(3));
  EXPECT_EQ(run.batches.size(), 4U);

  run.source->stop();
  run.queue.advance(Seconds(3));
  EXPECT_EQ(run.batches.size(), 4U);
  run.start();
  EXPECT_EQ(run.batches.size(), 4U);
  run.queue.advance(Seconds(1));
  EXPECT_EQ(run.batches.size(), 5U);

  run.source.reset();
  EXPECT_TRUE(run.queue.timers().empty());

  for (const double interval : {0.0, -1.0, std::nan("")}) {
    Delivery still(11, Seconds(interval));
    still.start();
    EXPECT_EQ(still.batches.size(), 1U);
    EXPECT_TRUE(still.queue.timers().empty());
  }
}

TEST(SyntheticActivitySource, mayBeDestroyedByItsHandler) {
  for (const std::size_t calls : {1U, 2U}) {
    Delivery run(11);
    std::size_t called = 0;
    run.source->start([&](const auto&, const auto&) {
      if (++called == calls)
        run.source.reset();
    });
    run.queue.advance(Seconds(5));
    EXPECT_EQ(called, calls);
  }
}

// The first event of a source without history whose draw of the kind is near `drawn`. That draw is
// the second, the first decides that there is no edit.
ActivityEvent firstEvent(double drawn) {
  for (std::uint32_t seed = 0;; ++seed) {
    Mulberry32 random(seed);
    if (random.draw() >= 0.5 && std::abs(random.draw() - drawn) < 0.004)
      return sourceOf(seed).tick(noon).events.at(0);
  }
}

TEST(SyntheticActivitySource, drawsTheKindOfALiveEvent) {
  EXPECT_EQ(firstEvent(0.67).kind, commit);
  EXPECT_EQ(firstEvent(0.69).kind, prOpened);
  EXPECT_EQ(firstEvent(0.80).kind, needsYou) << "nothing is open that could be merged";
  EXPECT_EQ(firstEvent(0.92).kind, needsYou);
  EXPECT_EQ(firstEvent(0.94).kind, finished);

  auto source = sourceOf(11);
  std::map<ActivityKind, int> counts;
  Date now = noon;
  Date last = distantPast;
  for (int tick = 0; tick < 20'000; ++tick, now += std::chrono::milliseconds(100)) {
    for (const ActivityEvent& event : source.tick(now).events) {
      ++counts[event.kind];
      EXPECT_GE(elapsed(last, now), Seconds(1.4));
      EXPECT_TRUE(last == distantPast || elapsed(last, now) <= Seconds(3.7));
      last = now;
    }
  }
  EXPECT_NEAR(counts[commit], 0.68 * 800, 60);
  EXPECT_GT(counts[prMerged], 0);
  EXPECT_LE(counts[prMerged], counts[prOpened]);
}

// Every stream, whatever the seed, history and trickle together.
TEST(SyntheticActivitySource, whatItTellsHoldsTogether) {
  for (std::uint32_t seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE(seed);
    auto source = sourceOf(seed);
    Batch all = source.history(noon);
    EXPECT_TRUE(std::ranges::is_sorted(all.events, {}, &ActivityEvent::date));
    EXPECT_TRUE(std::ranges::is_sorted(all.edits, {}, &EditBucket::start));
    std::set<std::string> starters;
    for (const ActivityEvent& event : all.events) {
      EXPECT_GE(event.date, noon - std::chrono::hours(6));
      EXPECT_LE(event.date, noon);
      if (event.kind == started)
        starters.insert(*event.sessionID);
      EXPECT_TRUE(event.kind == branched || starters.contains(*event.sessionID))
          << "works before it started";
    }
    EXPECT_EQ(starters.size(), synthetic_work::sessions().size());
    // Enough to see, and no pause longer than a late lunch.
    EXPECT_GT(all.events.size(), 80U);
    for (std::size_t i = 1; i < all.edits.size(); ++i)
      EXPECT_LT(elapsed(all.edits[i - 1].start, all.edits[i].start), Seconds(3600));
    for (int second = 1; second <= 300; ++second) {
      Batch batch = source.tick(noon + std::chrono::seconds(second));
      std::ranges::move(batch.events, std::back_inserter(all.events));
      std::ranges::move(batch.edits, std::back_inserter(all.edits));
    }

    std::set<std::string> ids;
    std::map<std::string, int> newest;  // pull request by project
    std::set<std::string> open;
    for (const ActivityEvent& event : all.events) {
      EXPECT_TRUE(ids.insert(event.id).second) << event.id;
      EXPECT_TRUE(event.id.starts_with(std::string(rawValue(event.kind)) + ":"));
      EXPECT_EQ(event.projectRoot, "/synthetic/" + event.projectName);
      EXPECT_FALSE(event.title.empty());
      EXPECT_TRUE(event.kind != commit || event.ref->size() == 16U);
      if (event.kind == prOpened) {
        const int number = std::stoi(*event.ref);
        EXPECT_GT(number, std::exchange(newest[event.projectName], number));
        open.insert(event.projectName + *event.ref);
      }
      EXPECT_TRUE(event.kind != prMerged || open.erase(event.projectName + *event.ref) == 1)
          << "merged before it was opened";
    }
    std::map<std::string, EditBucket> buckets;
    for (const EditBucket& edit : all.edits) {
      EXPECT_EQ(edit.start.time_since_epoch() % std::chrono::minutes(1), Seconds(0));
      EXPECT_GE(edit.files, static_cast<std::int64_t>(edit.paths.size()));
      EXPECT_LE(edit.files, 7);
      EXPECT_EQ(std::set(edit.paths.begin(), edit.paths.end()).size(), edit.paths.size());
      // A minute that is told again has lost nothing.
      EXPECT_LE(buckets[edit.id()].files, edit.files);
      buckets[edit.id()] = edit;
    }
  }
}

TEST(SyntheticActivitySource, standsEveryClock) {
  for (const Date now : {Date::min(), distantPast, Date{}, Date::max()}) {
    auto source = sourceOf(11);
    EXPECT_FALSE(source.history(now).events.empty());
    EXPECT_EQ(source.tick(now).events.size(), 1U);
  }
}

}  // namespace
}  // namespace tessivane
