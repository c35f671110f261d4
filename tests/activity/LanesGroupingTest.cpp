#include "activity/LanesGrouping.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleEvents.h"
#include "activity/LanesLayout.h"
#include "activity/LanesStreamCache.h"

namespace tessivane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using enum ActivityKind;

constexpr double infinite = std::numeric_limits<double>::infinity();

std::vector<const ActivityEvent*> pointers(const std::vector<ActivityEvent>& events) {
  std::vector<const ActivityEvent*> result(events.size());
  std::ranges::transform(events, result.begin(), [](const auto& event) { return &event; });
  return result;
}

std::vector<LanesSection> grouped(const std::vector<ActivityEvent>& events, Seconds bucket) {
  return LanesGrouping::sections(pointers(events), bucket);
}

std::vector<const LanesRow*> rowsOf(const std::vector<LanesSection>& sections) {
  std::vector<const LanesRow*> rows;
  for (const LanesSection& section : sections) {
    for (const LanesRow& row : section.rows)
      rows.push_back(&row);
  }
  return rows;
}

// "h1 [ea] [gs-1 c2 c1]": what a person would see, with the ids of the rows.
std::string inWords(const std::vector<LanesSection>& sections) {
  std::string text;
  for (const LanesSection& section : sections) {
    text += (text.empty() ? "" : "; ") + section.id;
    for (const LanesRow& row : section.rows) {
      text += " [" + row.id();
      if (std::holds_alternative<LanesRow::Commits>(row.content)) {
        for (const ActivityEvent* event : row.events())
          text += " " + event->id;
      }
      text += "]";
    }
  }
  return text;
}

ActivityEvent event(std::string id, int second, ActivityKind kind, std::string session = {}) {
  ActivityEvent made = sampleEvent(std::move(id), Date(std::chrono::seconds(second)), kind);
  if (!session.empty())
    made.sessionID = std::move(session);
  return made;
}

TEST(LanesGrouping, foldsTheCommitsOfASessionWithinABucket) {
  struct Row {
    const char* what = "";
    std::vector<ActivityEvent> events = {};
    std::string words = {};
  };
  const std::vector<Row> rows = {
      {"nothing", {}, ""},
      {"newest first, ties by id",
       {event("b", 70, started), event("c", 61, started), event("a", 70, started)},
       "h1 [ea] [eb] [ec]"},
      {"the row stands where the newest commit stands, whatever lies between",
       {event("1", 61, commit, "s"), event("x", 62, needsYou, "s"), event("2", 63, commit, "s")},
       "h1 [gs-1 2 1] [ex]"},
      {"one commit is no fold", {event("1", 61, commit, "s")}, "h1 [gs-1]"},
      {"a bucket later is another row",
       {event("1", 59, commit, "s"), event("2", 60, commit, "s"), event("3", -1, commit, "s")},
       "h1 [gs-1]; h0 [gs-0]; h-1 [gs--1]"},
      {"two sessions",
       {event("1", 61, commit, "s"), event("2", 62, commit, "t"), event("3", 63, commit, "s")},
       "h1 [gs-1 3 1] [gt-1]"},
      {"no session: by project",
       {event("1", 61, commit), event("2", 62, commit), event("3", 63, commit, "s")},
       "h1 [gs-1] [gproject:/a-1 2 1]"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(inWords(grouped(row.events, Seconds(60))), row.words) << row.what;
  EXPECT_EQ(grouped({event("1", 61, commit)}, Seconds(60))[0].start, Date(std::chrono::minutes(1)));
}

// Whatever comes, in whatever order and buckets.
TEST(LanesGrouping, sectionsHoldEachEventOnce) {
  const std::vector<double> buckets = {
      60, 0.5, 86400, 1e9, 0, -5, std::nan(""), 1e300, infinite, -infinite, 5e-324};
  for (unsigned seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    auto events = sampleEvents(random, 200);
    if (random.chance(50))
      std::ranges::stable_sort(events, {}, &ActivityEvent::date);  // as a feed has them
    const auto sections = grouped(events, Seconds(pick(buckets, random)));
    std::vector<const ActivityEvent*> held;
    std::set<std::string> sectionIDs;
    for (const LanesSection& section : sections) {
      EXPECT_TRUE(sectionIDs.insert(section.id).second);
      ASSERT_FALSE(section.rows.empty());
      std::set<std::string> rowIDs;
      const ActivityEvent* above = nullptr;
      for (const LanesRow& row : section.rows) {
        EXPECT_TRUE(rowIDs.insert(row.id()).second) << row.id();
        const ActivityEvent* first = row.events().front();
        EXPECT_TRUE(above == nullptr || first->date < above->date ||
                    (first->date == above->date && first->id > above->id));
        above = first;
        for (const ActivityEvent* each : row.events()) {
          held.push_back(each);
          EXPECT_LE(section.start, std::max(each->date, distantPast));
          EXPECT_TRUE(row.events().size() == 1 || each->kind == commit);
          EXPECT_EQ(each->sessionID, first->sessionID);
        }
      }
    }
    std::ranges::sort(held);
    EXPECT_EQ(held, pointers(events));
  }
}

TEST(LanesGrouping, standsAHundredThousandEventsOfOneSecond) {
  std::vector<ActivityEvent> events;
  for (int i = 0; i < 100'000; ++i) {
    events.push_back(event(std::to_string(i), 60, i % 2 == 0 ? commit : finished, "s"));
    if (i % 4 == 0)
      events.back().sessionID = std::to_string(i);
  }
  const auto sections = grouped(events, Seconds(60));
  ASSERT_EQ(sections.size(), 1U);
  EXPECT_EQ(sections[0].rows.size(), 50'000U + 25'000U + 1U);
  // Then every one in a section of its own, after one with many groups.
  for (int i = 0; i < 50'000; ++i)
    events[static_cast<std::size_t>(i)].date -= std::chrono::minutes(i);
  EXPECT_EQ(grouped(events, Seconds(60)).size(), 50'000U);
}

TEST(LanesGrouping, nearestRowGoesByEveryEvent) {
  const std::vector<ActivityEvent> events = {event("1", 61, commit, "s"),
                                             event("x", 70, needsYou),
                                             event("2", 90, commit, "s"),
                                             event("y", 200, started)};
  const auto sections = grouped(events, Seconds(60));
  const auto rows = rowsOf(sections);
  const auto idAt = [&](Date date) { return LanesGrouping::nearestRow(rows, date)->id(); };
  const auto second = [](int number) { return Date(std::chrono::seconds(number)); };
  EXPECT_EQ(idAt(second(62)), "gs-1");
  EXPECT_EQ(idAt(second(70)), "ex");
  EXPECT_EQ(idAt(second(80)), "gs-1") << "as near, but further up";
  EXPECT_EQ(idAt(Date::max()), "ey");
  EXPECT_EQ(idAt(Date::min()), "gs-1");
  EXPECT_EQ(LanesGrouping::nearestRow({}, Date{}), nullptr);
}

TEST(LanesLayout, ticksAreMultiplesWithinTheSpan) {
  const auto between = [](Date start, Date end, double interval) {
    return LanesLayout{.start = start, .end = end}.ticks(Seconds(interval));
  };
  const auto ticks = [&](double start, double end, double interval) {
    std::vector<double> result;
    for (const Date date : between(*dateFromSeconds(start), *dateFromSeconds(end), interval))
      result.push_back(secondsSince1970(date));
    return result;
  };
  EXPECT_THAT(ticks(60, 180, 60), ElementsAre(60, 120, 180));
  EXPECT_THAT(ticks(60.000001, 179.999999, 60), ElementsAre(120));
  EXPECT_THAT(ticks(-61, 1, 60), ElementsAre(-60, 0));
  EXPECT_THAT(ticks(61, 119, 60), IsEmpty());
  EXPECT_THAT(ticks(180, 60, 60), IsEmpty());
  EXPECT_THAT(ticks(0, 0.3, 0.1), ElementsAre(0, 0.1, 0.2, 0.3));
  EXPECT_EQ(ticks(0, 9999, 1).size(), 10'000U);
  EXPECT_THAT(ticks(0, 10'001, 1), IsEmpty());
  for (const double interval : {0.0, -1.0, std::nan(""), infinite, -infinite, 1e-300, 5e-324}) {
    EXPECT_THAT(ticks(0, 3600, interval), IsEmpty()) << interval;
    EXPECT_THAT(between(Date::min(), Date::max(), interval), IsEmpty());
  }
  EXPECT_THAT(between(Date::max(), Date::max(), 1), IsEmpty());
  EXPECT_LT(between(Date::min(), Date::max(), 1e9).size(), 400U);
  // Doubles of this size lie further apart than the ticks would.
  const auto fine = ticks(200e9, 200e9 + 0.001, 1e-6);
  EXPECT_FALSE(fine.empty());
  EXPECT_EQ(std::ranges::adjacent_find(fine, std::greater_equal{}), fine.end());
}

struct Stream {
  std::vector<ActivityEvent> events = {event("1", 100, commit, "s"),
                                       event("2", 200, commit, "s"),
                                       event("3", 300, finished, "s"),
                                       event("4", 400, commit, "t")};
  LanesStreamInput input = {.revision = 1,
                            .kinds = {commit, finished},
                            .start = Date(std::chrono::seconds(100)),
                            .end = Date(std::chrono::seconds(300)),
                            .bucket = Seconds(1000)};
  LanesStreamCache cache = {};

  // What it shows, and how often it has grouped.
  std::string update() {
    input.events = events;
    cache.update(input);
    EXPECT_EQ(cache.rows(), rowsOf(cache.sections()));
    return inWords(cache.sections()) + " / " + std::to_string(cache.groupings());
  }
};

TEST(LanesStreamCache, groupsAgainOnlyWhenItMust) {
  Stream stream;
  EXPECT_EQ(stream.update(), "h0 [e3] [gs-0] / 1") << "after the start, up to the end";
  EXPECT_EQ(stream.update(), "h0 [e3] [gs-0] / 1");
  stream.input.start += std::chrono::seconds(99);
  stream.input.end += std::chrono::seconds(99);
  EXPECT_EQ(stream.update(), "h0 [e3] [gs-0] / 1") << "the same events in it";
  stream.input.kinds.insert(started);
  EXPECT_EQ(stream.update(), "h0 [e3] [gs-0] / 1") << "nothing more passes";
  stream.input.end += std::chrono::seconds(1);
  EXPECT_EQ(stream.update(), "h0 [gt-0] [e3] [gs-0] / 2");
  stream.input.start = Date{};
  EXPECT_EQ(stream.update(), "h0 [gt-0] [e3] [gs-0 2 1] / 3");
  stream.input.bucket = Seconds(150);
  EXPECT_EQ(stream.update(), "h2 [gt-2] [e3]; h1 [gs-1]; h0 [gs-0] / 4");
  stream.input.kinds.erase(finished);
  EXPECT_EQ(stream.update(), "h2 [gt-2]; h1 [gs-1]; h0 [gs-0] / 5");
  stream.input.projects = {"/b"};
  EXPECT_EQ(stream.update(), " / 6");
  stream.input.projects = {"/b", "/a"};
  EXPECT_EQ(stream.update(), "h2 [gt-2]; h1 [gs-1]; h0 [gs-0] / 7");

  stream.events[1].sessionID = "t";
  ++stream.input.revision;
  EXPECT_EQ(stream.update(), "h2 [gt-2]; h1 [gt-1]; h0 [gs-0] / 8");
  const auto copy = std::exchange(stream.events, std::vector(stream.events));
  EXPECT_EQ(stream.update(), "h2 [gt-2]; h1 [gt-1]; h0 [gs-0] / 9") << "they lie elsewhere";
}

TEST(LanesStreamCache, standsBadSpansAndOrders) {
  Stream stream;
  std::ranges::reverse(stream.events);
  EXPECT_EQ(stream.update(), "h0 [e3] [gs-0] / 1");
  std::swap(stream.input.start, stream.input.end);
  EXPECT_EQ(stream.update(), " / 2");
  stream.input.start = Date::min();
  stream.input.end = Date::max();
  stream.input.bucket = Seconds(std::nan(""));
  EXPECT_EQ(stream.update(),
            "h400000 [gt-400000]; h300000 [e3]; h200000 [gs-200000]; "
            "h100000 [gs-100000] / 3");
  stream.update();
  EXPECT_EQ(stream.cache.groupings(), 3U);
  stream.events.clear();
  EXPECT_EQ(stream.update(), " / 4");
}

}  // namespace
}  // namespace tessivane
