#include "activity/ReplayClock.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "FeedRun.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;

const Date base = ManualClock::defaultStart;

// A minute of replay at each of these: 10x, paused, 60x; from an hour ago.
ReplayClock steeredClock() {
  ReplayClock clock = ReplayClock::playing(base - 1h, ReplaySpeed::x10, base);
  clock.isPlaying = false;
  clock.anchor(base + 1min);
  clock.anchor(base + 1min + 30s);
  clock.isPlaying = true;
  clock.speed = ReplaySpeed::x60;
  clock.anchor(base + 2min);
  return clock;
}

TEST(ReplayClock, runsPieceByPiece) {
  const ReplayClock clock = steeredClock();
  ASSERT_EQ(clock.segments.size(), 3U) << "pausing twice adds nothing";
  const auto positionAfter = [&](Seconds time) {
    return elapsed(clock.position(shifted(base, time)), base);
  };
  EXPECT_EQ(positionAfter(2min), Seconds(50min));
  EXPECT_EQ(positionAfter(1min), Seconds(50min));
  EXPECT_EQ(positionAfter(2min + 1s), Seconds(49min));
  EXPECT_EQ(positionAfter(1h), Seconds(-1h)) << "it does not overtake";
}

TEST(ReplayClock, knowsWhenItPassesADate) {
  const ReplayClock clock = steeredClock();
  const Date now = base + 2min + 10s;
  struct Row {
    Seconds ago = {};  // the date, before the beginning
    std::optional<Seconds> crossed = {};
    std::optional<Seconds> popsIn = {};
  };
  for (const Row& row : {Row{.ago = 2h},
                         Row{.ago = 1h},
                         Row{.ago = 1h - 10s, .crossed = 1s, .popsIn = 1s},
                         Row{.ago = 50min, .crossed = 1min, .popsIn = 1min},  // of the pause
                         Row{.ago = 49min, .crossed = 2min + 1s, .popsIn = 2min + 1s},
                         Row{.ago = 40min, .crossed = 2min + 10s, .popsIn = 2min + 10s},
                         Row{.ago = 39min, .popsIn = 2min + 11s}}) {
    const Date date = shifted(base, -row.ago);
    const auto at = [](std::optional<Seconds> seconds) {
      return seconds ? std::optional(shifted(base, *seconds)) : std::nullopt;
    };
    EXPECT_EQ(clock.crossingTime(date, now), at(row.crossed)) << row.ago.count();
    EXPECT_EQ(clock.popInTime(date, now), at(row.popsIn)) << row.ago.count();
  }
  ReplayClock paused = clock;
  paused.isPlaying = false;
  paused.anchor(now);
  EXPECT_EQ(paused.popInTime(base - 39min, now), std::nullopt);
  EXPECT_EQ(paused.popInTime(base - 49min, now + 1h), base + 2min + 1s);
}

struct ReplayRun : FeedRun {
  ReplayRun() { feed->start(); }
  std::optional<Seconds> position() const {
    const auto end = feed->replayEnd(now());
    return end ? std::optional(elapsed(*end, now())) : std::nullopt;
  }
};

TEST(ReplayOfFeed, runsUntilItCatchesUp) {
  struct Row {
    Seconds from = {};
    ReplaySpeed speed = ReplaySpeed::x1;
    Seconds ends = {};
  };
  for (const Row& row : {Row{48h + 1s, ReplaySpeed::x360, 172800s / 359.0},
                         Row{15min, ReplaySpeed::x10, 100s},
                         Row{15min, ReplaySpeed::x60, 900s / 59.0},
                         Row{-1h, ReplaySpeed::x60, 0s}}) {
    ReplayRun run;
    run.feed->setPausedEnd(run.now());
    run.feed->startReplay(run.ago(row.from), row.speed, run.now());
    EXPECT_FALSE(run.feed->isLive());
    EXPECT_EQ(run.feed->pausedEnd(), std::nullopt);
    run.queue.advance(std::max<Seconds>(row.ends - 1ms, 0s));
    EXPECT_TRUE(run.feed->isReplaying());
    run.queue.advance(30ms);
    EXPECT_TRUE(run.feed->isLive()) << label(row.speed);
  }
  ReplayRun never;
  never.feed->startReplay(never.ago(15min), ReplaySpeed::x1, never.now());
  never.queue.advance(1h);
  EXPECT_EQ(never.position(), 15min);
  EXPECT_EQ(never.feed->replayStep(), 3600);
}

TEST(ReplayOfFeed, stepsOnlyWhileItPlays) {
  ReplayRun run;
  run.feed->setReplayStepInterval(0s);
  run.feed->startReplay(run.ago(1h), ReplaySpeed::x1, run.now());
  run.queue.advance(1s);
  EXPECT_EQ(run.feed->replayStep(), 10) << "ten a second at most";
  run.feed->toggleReplay(run.now());
  run.queue.advance(1s);
  EXPECT_EQ(run.feed->replayStep(), 10);
  EXPECT_EQ(run.position(), 1h + 1s);
  run.feed->toggleReplay(run.now());
  run.feed->setReplaySpeed(ReplaySpeed::x10, run.now());
  run.queue.advance(1s);
  EXPECT_EQ(run.feed->replayStep(), 20);
  EXPECT_EQ(run.position(), 1h + 1s - 9s);
  EXPECT_EQ(run.announced([&] { run.feed->setReplaySpeed(ReplaySpeed::x10, run.now()); }), 0);

  run.feed->endReplay();
  run.queue.advance(10s);
  EXPECT_EQ(run.feed->replayStep(), 20);
  EXPECT_FALSE(run.feed->updateReplay(run.now()));
  EXPECT_EQ(run.announced([&] {
    run.feed->endReplay();
    run.feed->toggleReplay(run.now());
  }),
            0);

  FeedRun idle;  // its source was not started
  idle.feed->startReplay(idle.ago(1h), ReplaySpeed::x1, idle.now());
  idle.queue.advance(10s);
  EXPECT_EQ(idle.feed->replayStep(), 0);
  idle.feed->start();
  idle.queue.advance(10s);
  EXPECT_EQ(idle.feed->replayStep(), 10);
}

TEST(ReplayOfFeed, takesInWhatArrivesMeanwhile) {
  ReplayRun run;
  const ActivityEvent before = commitOf("before", run.ago(1h));
  run.append({before});
  run.feed->startReplay(run.ago(10min), ReplaySpeed::x60, run.now());
  run.feed->setPausedEnd(run.now());  // of no effect before the replay ends
  run.append({commitOf("within", run.ago(9min)), commitOf("ahead", run.ago(1s))});
  EXPECT_EQ(run.feed->pendingCount(), 0);
  EXPECT_EQ(ids(run.feed->visibleEvents(run.now())), "before");
  EXPECT_EQ(run.feed->events()[0], before) << "seen as before the replay";
  run.queue.advance(2s);
  EXPECT_EQ(ids(run.feed->visibleEvents(run.now())), "before within");
  EXPECT_EQ(run.feed->events()[1].firstSeen, run.ago(1s));
  EXPECT_EQ(run.feed->storedEvents()[1].firstSeen, run.ago(9min + 1s));
  run.feed->endReplay();
  EXPECT_EQ(run.feed->events()[1], run.feed->storedEvents()[1]);
}

// A person who pauses, goes on and changes the speed at will sees every event once, in order, and
// at the moment at which the replay passes it.
TEST(ReplayOfFeed, showsEachEventOnceAndInOrder) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Random random(seed);
  for (int round = 0; round < 10; ++round) {
    ReplayRun run;
    run.feed->setRange(ActivityRange::m15);
    std::vector<ActivityEvent> events;
    events.reserve(200);
    for (int i = 0; i < 200; ++i)
      events.push_back(commitOf(std::to_string(i), run.ago(1s + random.below(14400) * 1s)));
    run.append(events);
    const std::string expected = ids(run.feed->storedEvents());

    run.feed->startReplay(run.ago(14401s), ReplaySpeed::x60, run.now());
    std::vector<ActivityEvent> shown;
    std::size_t onlySince = 0;
    Date last = run.now();
    while (run.feed->isReplaying()) {
      if (random.chance(5))
        run.feed->toggleReplay(run.now());
      if (random.chance(5))
        run.feed->setReplaySpeed(allReplaySpeeds.at(1 + random.below(3)), run.now());
      run.queue.advance(random.below(1000) * 2ms);
      const auto visible = run.feed->visibleEvents(run.now());
      if (visible.empty())
        continue;
      const auto place = std::ranges::find(shown, visible.front().id, &ActivityEvent::id);
      const auto first = static_cast<std::size_t>(place - shown.begin());
      ASSERT_GE(first, onlySince) << "what has gone comes back";
      onlySince = first;
      for (std::size_t i = shown.size() - first; i < visible.size(); ++i) {
        shown.push_back(visible[i]);
        if (run.feed->isReplaying()) {
          EXPECT_GE(visible[i].firstSeen, last - 1ms);
          EXPECT_LE(visible[i].firstSeen, run.now() + 1ms);
        }
      }
      last = run.now();
    }
    EXPECT_EQ(ids(shown), expected);
  }
}

}  // namespace
}  // namespace tessivane
