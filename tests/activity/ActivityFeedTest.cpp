#include "activity/ActivityFeed.h"

#include <algorithm>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FeedRun.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr Seconds moment{0.000001};

TEST(ActivityFeed, keepsFortyEightHours) {
  FeedRun run;
  run.append({commitOf("new", run.ago(0s)),
              commitOf("edge", run.ago(48h)),
              commitOf("old", run.ago(48h + moment))},
             {editsOf(run.ago(48h), {"a"}), editsOf(run.ago(48h + 1s), {"b"})});
  EXPECT_EQ(ids(run.feed->events()), "edge new");
  EXPECT_EQ(run.feed->edits().size(), 1U);

  // The id of what came too late was not taken for known: this is its first appearance.
  ActivityEvent late = commitOf("old", run.ago(1h));
  run.append({late});
  EXPECT_EQ(run.feed->events()[1], late);

  run.clock.advance(moment);
  run.append({});
  EXPECT_EQ(ids(run.feed->events()), "old new");
  EXPECT_THAT(run.feed->edits(), IsEmpty());
  EXPECT_EQ(run.feed->eventsRevision(), 3);
}

TEST(ActivityFeed, knowsWhatItHasSeen) {
  FeedRun run;
  const ActivityEvent a = commitOf("a", run.ago(3min));
  const ActivityEvent b = commitOf("b", run.ago(2min));
  const ActivityEvent c = commitOf("c", run.ago(2min));
  const EditBucket edits = editsOf(run.ago(5min), {"x"});
  run.append({c, a, b}, {edits});
  EXPECT_EQ(ids(run.feed->events()), "a c b") << "of one date in the order of arrival";

  // Seen again at another time is nothing new.
  ActivityEvent again = a;
  again.firstSeen = run.now();
  EXPECT_EQ(run.announced([&] { run.append({a, again, b}, {edits}); }), 0);
  EXPECT_EQ(run.feed->eventsRevision(), 1);
  EXPECT_EQ(run.feed->events()[0], a);

  again.title = "better";
  run.append({again});
  EXPECT_EQ(run.feed->events()[0].title, "better");
  EXPECT_EQ(run.feed->events()[0].firstSeen, a.firstSeen);
  EXPECT_EQ(run.feed->eventsRevision(), 2);

  again.date = run.ago(1min);
  run.append({again});
  EXPECT_EQ(ids(run.feed->events()), "c b a");

  EditBucket more = edits;
  more.files = 9;
  const EditBucket earlier = editsOf(run.ago(6min), {});
  EXPECT_EQ(run.announced([&] { run.append({}, {more}); }), 1);
  run.append({}, {earlier});
  EXPECT_THAT(run.feed->edits(), ElementsAre(earlier, more));
  EXPECT_EQ(run.feed->eventsRevision(), 3) << "edits have no part in it";
}

TEST(ActivityFeed, findsItsEventsHoweverLongItRuns) {
  FeedRun run;
  for (int hour = 0; hour < 200; ++hour) {
    run.clock.advance(1h);
    run.append({commitOf(std::to_string(hour), run.now())}, {editsOf(run.now(), {})});
  }
  std::vector<ActivityEvent> events(run.feed->events().begin(), run.feed->events().end());
  const std::vector<EditBucket> edits(run.feed->edits().begin(), run.feed->edits().end());
  ASSERT_EQ(events.size(), 49U);
  std::ranges::reverse(events);
  EXPECT_EQ(run.announced([&] { run.append(events, edits); }), 0);
  events[20].title = "better";
  run.append(events, edits);
  std::ranges::reverse(events);
  EXPECT_TRUE(std::ranges::equal(run.feed->events(), events));
}

TEST(ActivityFeed, announcesBeforeItChanges) {
  FeedRun run;
  std::string seen;
  const auto subscription = run.feed->subscribe([&] { seen += ids(run.feed->events()) + "|"; });
  run.append({commitOf("a", run.ago(2s))}, {editsOf(run.ago(2s), {})});
  run.append({commitOf("b", run.ago(1s))});
  run.feed->setRange(ActivityRange::h1);  // as it was
  run.feed->setRange(ActivityRange::h6);
  EXPECT_EQ(seen, "|a|a b|");
}

TEST(ActivityFeed, movesAPullRequestToItsProject) {
  FeedRun setting;
  const ActivityEvent seen = with(pullRequestOf("gh", setting.ago(1h), "github:o/r"),
                                  &ActivityEvent::firstSeen,
                                  setting.ago(2h));
  ActivityEvent further = with(seen, &ActivityEvent::id, "gh2");
  further.date += 1s;
  further.firstSeen -= 3h;
  const ActivityEvent local = pullRequestOf("real", setting.ago(1h), "/r");
  struct Row {
    const char* about = "";
    std::vector<ActivityEvent> stored = {};
    ActivityEvent event = {};
    std::string expected = {};
  };
  const auto none = std::nullopt;
  const std::vector<Row> rows = {
      {"seen once", {seen}, local, "real"},
      {"seen twice: the first in the feed counts", {further, seen}, local, "real"},
      {"known already", {local, seen}, local, "real"},
      {"under one id", {seen}, with(local, &ActivityEvent::id, "gh"), "gh"},
      {"no number on either side",
       {with(seen, &ActivityEvent::ref, none)},
       with(local, &ActivityEvent::ref, none),
       "real"},
      {"merged is not opened",
       {seen},
       with(local, &ActivityEvent::kind, ActivityKind::prMerged),
       "gh real"},
      {"another number", {seen}, with(local, &ActivityEvent::ref, "8"), "gh real"},
      {"another repository", {seen}, with(local, &ActivityEvent::detail, "o/other"), "gh real"},
      {"no repository on either side",
       {with(seen, &ActivityEvent::detail, none)},
       with(local, &ActivityEvent::detail, none),
       "gh real"},
      {"a second sighting claims nothing",
       {seen},
       with(local, &ActivityEvent::projectRoot, "github:o/r"),
       "gh real"},
      {"a sighting that was corrected meanwhile",
       {seen, with(seen, &ActivityEvent::ref, "8")},
       local,
       "gh real"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.about);
    FeedRun run;
    run.append(row.stored);
    run.feed->setPausedEnd(run.now());
    run.append({row.event});
    EXPECT_EQ(ids(run.feed->events()), row.expected);
    const bool isNew = row.expected == "gh real";
    const auto& stored = *std::ranges::find(run.feed->events(), row.event.id, &ActivityEvent::id);
    EXPECT_EQ(stored.firstSeen, isNew ? local.firstSeen : seen.firstSeen);
    EXPECT_EQ(stored.projectRoot, row.event.projectRoot);
    EXPECT_EQ(run.feed->pendingCount(), isNew ? 1 : 0);
  }
}

TEST(ActivityFeed, forgetsSightingsWithTheirEvents) {
  FeedRun run;
  run.append({pullRequestOf("gh", run.ago(47h), "github:o/r")});
  run.clock.advance(2h);
  const ActivityEvent local = pullRequestOf("real", run.ago(1h), "/r");
  run.append({});
  run.append({local});
  EXPECT_EQ(run.feed->events()[0], local);
}

TEST(ActivityFeed, countsWhatAPauseHides) {
  FeedRun run;
  int number = 0;
  const auto arrive = [&](ActivityKind kind, const std::string& root) {
    ActivityEvent event = commitOf(std::to_string(++number), run.now(), root);
    event.kind = kind;
    run.append({event, event});
  };
  run.feed->setEnabledKinds({ActivityKind::commit});
  run.feed->setProjectFilter({"/p"});
  arrive(ActivityKind::commit, "/p");
  EXPECT_EQ(run.feed->pendingCount(), 0);

  run.feed->setPausedEnd(run.now());
  arrive(ActivityKind::commit, "/p");
  arrive(ActivityKind::started, "/p");
  arrive(ActivityKind::commit, "/q");
  EXPECT_EQ(run.feed->pendingCount(), 1);
  run.feed->setPausedEnd(run.ago(1min));
  EXPECT_EQ(run.feed->pendingCount(), 1) << "still paused, elsewhere";
  run.feed->setPausedEnd(std::nullopt);
  EXPECT_EQ(run.feed->pendingCount(), 0);
}

TEST(ActivityFeed, showsWhatLiesInTheWindow) {
  FeedRun run;
  run.feed->setRange(ActivityRange::m15);
  run.append({commitOf("atStart", run.ago(15min)),
              commitOf("inside", run.ago(15min - moment)),
              commitOf("elsewhere", run.ago(1min), "/q"),
              commitOf("atEnd", run.ago(0s)),
              commitOf("ahead", run.ago(-moment))},
             {editsOf(run.ago(16min), {"gone"}),
              editsOf(run.ago(15min + 30s), {"a", "b", "a"}),
              editsOf(run.ago(1min), {"b"}),
              editsOf(run.ago(1min), {"b"}, "/q"),
              editsOf(run.ago(-moment), {"ahead"})});
  const ActivityFeed& feed = *run.feed;
  EXPECT_EQ(ids(feed.visibleEvents(run.now())), "inside elsewhere atEnd");
  EXPECT_TRUE(std::ranges::equal(feed.visibleEdits(run.now()), feed.edits().subspan(1, 3)));
  EXPECT_EQ(feed.editedFileCount(run.now()), 3U);
  EXPECT_THAT(feed.projectCounts(run.now()), ElementsAre(Pair("/p", 2), Pair("/q", 1)));

  run.feed->setProjectFilter({"/p"});
  run.feed->solo(ActivityKind::started);
  run.feed->setShowEdits(false);
  EXPECT_EQ(ids(feed.visibleEvents(run.now())), "");
  EXPECT_THAT(feed.visibleEdits(run.now()), IsEmpty());
  auto counts = feed.counts(run.now());
  EXPECT_EQ(counts.size(), allActivityKinds.size());
  EXPECT_EQ(counts[ActivityKind::commit], 2U) << "whatever the kinds shown";
  EXPECT_EQ(feed.editedFileCount(run.now()), 2U);
  EXPECT_THAT(feed.projectCounts(run.now()), ElementsAre(Pair("/p", 2)));

  run.feed->solo(ActivityKind::commit);
  EXPECT_EQ(ids(feed.visibleEvents(run.now())), "inside atEnd");
  run.feed->solo(ActivityKind::commit);
  EXPECT_EQ(feed.enabledKinds().size(), allActivityKinds.size());

  EXPECT_EQ(feed.viewEnd(), std::nullopt);
  run.feed->setPausedEnd(run.ago(14min));
  EXPECT_EQ(feed.viewEnd(), run.ago(14min));
  EXPECT_EQ(feed.window(run.now()), (ActivityFeed::Window{run.ago(29min), run.ago(14min)}));
  EXPECT_EQ(ids(feed.visibleEvents(run.now())), "atStart inside");
}

TEST(ActivityFeed, namesItsProjectsInOrder) {
  FeedRun run;
  const Date start = run.ago(10min);
  run.append({commitOf("1", run.now(), "/z/Beta"),
              commitOf("2", run.now(), "/a/v10"),
              commitOf("3", run.now(), "github:o/alpha"),
              commitOf("4", run.now(), ""),
              commitOf("5", run.now(), "/b/v9"),
              commitOf("6", start, "/early")},
             {editsOf(run.now(), {}, "/b/Alpha"),
              editsOf(run.now(), {}, "/y/Beta"),
              editsOf(run.ago(-1s), {}, "/late")});
  EXPECT_THAT(
      run.feed->projects(start, run.now()),
      ElementsAre("github:o/alpha", "/b/Alpha", "/y/Beta", "/z/Beta", "/b/v9", "/a/v10", ""));
}

TEST(ActivityFeed, keepsItsSettings) {
  FeedRun run;
  const char* key = "activity.tagSize.commit";
  struct Row {
    DefaultsValue stored;
    TimelineSizeClass size = TimelineSizeClass::small;
  };
  using enum TimelineSizeClass;
  for (const Row& row : std::initializer_list<Row>{{0, large},
                                                   {1, medium},
                                                   {2, small},
                                                   {3, small},
                                                   {-1, small},
                                                   {0.5, small},
                                                   {"1", small}}) {
    run.defaults.set(key, row.stored);
    run.queue.runPending();
    EXPECT_EQ(run.feed->tagSizes().empty(), row.size == small) << "the default is not kept";
    EXPECT_EQ(run.feed->tagSize(ActivityKind::commit), row.size);
  }
  run.feed->setTagSize(large, ActivityKind::commit);
  run.feed->setShowEdits(false);
  EXPECT_EQ(run.defaults.value(key), DefaultsValue(0));
  EXPECT_EQ(run.defaults.value("activity.showEdits"), DefaultsValue(false));
  EXPECT_EQ(run.makeFeed()->tagSizes(), run.feed->tagSizes());
  EXPECT_FALSE(run.makeFeed()->showEdits());

  run.feed->setTagSize(small, ActivityKind::commit);
  EXPECT_THAT(run.feed->tagSizes(), IsEmpty());
  EXPECT_EQ(run.defaults.value(key), std::nullopt);

  // A change from elsewhere reaches the views, what the feed wrote itself does not come back.
  run.queue.runPending();
  run.defaults.set("activity.showEdits", "text");
  EXPECT_EQ(run.announced([&] { run.queue.runPending(); }), 1);
  EXPECT_TRUE(run.feed->showEdits());
  EXPECT_EQ(run.announced([&] {
    run.feed->setShowEdits(true);
    run.queue.runPending();
  }),
            0);
  EXPECT_EQ(run.defaults.value("activity.showEdits"), DefaultsValue(true));
}

TEST(ActivityFeed, wakesAViewWhenSomethingLeaves) {
  FeedRun run;
  run.feed->setRange(ActivityRange::m15);
  run.append({commitOf("a", run.ago(10min)), commitOf("gone", run.ago(15min))},
             {editsOf(run.ago(13min), {})});
  EXPECT_EQ(run.queue.pendingCount(), 1U) << "one search for the whole burst";
  run.queue.runPending();
  run.queue.advance(3min);
  EXPECT_EQ(run.feed->ageOutTick(), 0) << "the bucket leaves at this instant";
  run.queue.advance(50ms);
  EXPECT_EQ(run.feed->ageOutTick(), 1);
  run.queue.advance(2min);
  EXPECT_EQ(run.feed->ageOutTick(), 2) << "the event";
  EXPECT_THAT(run.queue.timers(), IsEmpty());
  EXPECT_EQ(run.feed->nextAgeOut(run.now()), std::nullopt);

  run.feed->setRange(ActivityRange::h1);
  run.queue.runPending();
  EXPECT_EQ(run.queue.timers().size(), 1U);
  run.feed->setPausedEnd(run.now());
  run.queue.runPending();
  EXPECT_THAT(run.queue.timers(), IsEmpty()) << "a window that stands still is left by nothing";
  run.feed->setPausedEnd(std::nullopt);
  run.queue.runPending();
  run.feed.reset();
  EXPECT_THAT(run.queue.timers(), IsEmpty());
}

TEST(ActivityFeed, takesOverWhatItsSourceDelivers) {
  FeedRun run;
  EXPECT_EQ(run.source.starts, 0);
  run.feed->start();
  run.feed->start();
  EXPECT_EQ(run.source.starts, 1);
  run.source.deliver({commitOf("a", run.now())}, {editsOf(run.now(), {})});
  EXPECT_EQ(ids(run.feed->events()), "");
  run.queue.runPending();
  EXPECT_EQ(ids(run.feed->events()), "a");
  EXPECT_EQ(run.feed->edits().size(), 1U);

  run.source.deliver({commitOf("b", run.now())}, {});
  run.feed.reset();
  EXPECT_EQ(run.source.stops, 1);
  run.queue.runPending();
  run.source.deliver({commitOf("c", run.now())}, {});
  run.queue.runPending();
}

// Events of few ids, dates, titles and pull requests, so that all that can meet does. The sightings
// come first, as they do in life.
std::vector<ActivityEvent> randomBatch(Random& random, Date now) {
  std::vector<ActivityEvent> batch;
  for (int i = 0; i < 60; ++i) {
    const std::string name = std::to_string(random.below(15));
    const Date date = now - std::chrono::hours(random.below(50));
    if (random.chance(66)) {
      batch.push_back(commitOf("c" + name, date));
    } else {
      batch.push_back(i < 30 ? pullRequestOf("g" + name, date, "github:o/r")
                             : pullRequestOf("r" + name, date, "/r"));
      batch.back().ref = std::to_string(random.below(4));
    }
    batch.back().title = std::to_string(random.below(3));
    batch.back().firstSeen = now - std::chrono::seconds(random.below(1000));
  }
  return batch;
}

TEST(ActivityFeed, doesNotCareHowABatchIsCutAndTakesItTwiceForOne) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Random random(seed);
  for (int round = 0; round < 300; ++round) {
    FeedRun whole;
    FeedRun pieces;
    auto batch = randomBatch(random, whole.now());
    // A batch that contradicts itself is another one when it comes after itself.
    const bool comesTwice = round % 2 == 0;
    if (comesTwice) {
      std::ranges::stable_sort(batch, {}, &ActivityEvent::id);
      const auto sameID = [](const auto& a, const auto& b) { return a.id == b.id; };
      batch.erase(std::unique(batch.begin(), batch.end(), sameID), batch.end());
    }
    std::vector<EditBucket> edits;
    edits.reserve(batch.size());
    for (const ActivityEvent& event : batch)
      edits.push_back(editsOf(event.date, {event.title}));
    whole.append(batch, edits);
    for (auto from = batch.begin(); from != batch.end();) {
      const auto to = from + 1 + std::ptrdiff_t(random.below(std::size_t(batch.end() - from)));
      pieces.append({from, to},
                    {edits.begin() + (from - batch.begin()), edits.begin() + (to - batch.begin())});
      from = to;
    }
    if (comesTwice)
      pieces.append(batch);
    ASSERT_TRUE(std::ranges::equal(whole.feed->events(), pieces.feed->events()));
    ASSERT_TRUE(std::ranges::equal(whole.feed->edits(), pieces.feed->edits()));
    ASSERT_TRUE(std::ranges::is_sorted(whole.feed->events(), {}, &ActivityEvent::date));
  }
}

TEST(ActivityFeed, standsBadInput) {
  FeedRun run;
  std::vector<ActivityEvent> events = {commitOf("", run.now(), ""),
                                       commitOf("never", distantPast),
                                       commitOf("first", Date::min()),
                                       commitOf("last", Date::max()),
                                       pullRequestOf("bare", run.now(), "github:"),
                                       commitOf(std::string(1 << 20, 'i'), run.now(), "\xFF\xFE")};
  events.back().title = std::string(1 << 20, 't');
  std::vector<EditBucket> edits = {editsOf(Date::max(), {}), editsOf(run.now(), {"", "", "a"}, "")};
  edits.back().files = -5;
  // A crowd at one instant, in no order, known or not.
  for (int i = 0; i < 100'000; ++i)
    events.push_back(commitOf(std::to_string(i * 7919 % 100'000), run.ago(Seconds(i % 2))));
  run.append(events, edits);
  run.append(events, edits);
  EXPECT_EQ(run.feed->events().size(), 100'004U);
  EXPECT_EQ(run.feed->eventsRevision(), 1);
  EXPECT_EQ(run.feed->visibleEvents(run.now()).size(), 100'003U);
  EXPECT_EQ(run.feed->editedFileCount(run.now()), 2U);
  EXPECT_EQ(run.feed->projects(distantPast, Date::max()).size(), 4U);
  run.feed->startReplay(distantPast, ReplaySpeed::x1, run.now());
  run.feed->endReplay();
  run.queue.advance(50h);
  run.append({});
  EXPECT_EQ(ids(run.feed->events()), "last");
  EXPECT_EQ(run.feed->nextAgeOut(run.now()), Date::max());
}

}  // namespace
}  // namespace tessivane
