#include "activity/TimelineLayout.h"

#include <cmath>
#include <limits>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "TimelineScene.h"
#include "activity/TimelineCallout.h"
#include "activity/TimelineClock.h"
#include "activity/TimelineRollUp.h"

namespace tessivane {
namespace {

using enum ActivityKind;
using std::chrono::microseconds;
using std::chrono::seconds;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(TimelineLayout, geometryFollowsTheSize) {
  struct Row {
    TimelineSize size = {};
    double nowX = 0;
    double mid = 0;
    std::size_t above = 0;
    std::size_t below = 0;
  };
  for (const Row& row : {Row{{640, 600}, 528, 294, 5, 3},
                         Row{{639, 413}, 575, 201, 4, 2},  // half of 413 is rounded up
                         Row{{639, 412}, 575, 200, 3, 2},  // a row at 40 is too high
                         Row{{10, 10}, -54, -1, 0, 0},
                         Row{{100'000, 100'000}, 99'888, 49'994, 5, 3}}) {
    const auto geometry = TimelineGeometry::make(row.size, ActivityRange::m15);
    EXPECT_EQ(geometry.nowX, row.nowX);
    EXPECT_EQ(geometry.mid, row.mid);
    EXPECT_EQ(geometry.aboveRows.size(), row.above) << row.size.height;
    EXPECT_EQ(geometry.belowRows.size(), row.below) << row.size.height;
    EXPECT_GT(geometry.pointsPerSecond, 0);
  }
}

TEST(TimelineLayout, gridLinesStandOnRoundTimesAndReachBeyondTheWindow) {
  struct Row {
    ActivityRange range = ActivityRange::m15;
    const char* end = "";
    const char* first = "";
    const char* last = "";
    std::size_t count = 0;
  };
  for (const Row& row : {
           Row{ActivityRange::m15,
               "2026-10-05T10:04:00Z",
               "2026-10-05T09:45:00Z",
               "2026-10-05T10:05:00Z",
               5},
           Row{ActivityRange::h1,
               "2026-10-05T10:00:00Z",
               "2026-10-05T09:00:00Z",
               "2026-10-05T10:15:00Z",
               6},
           Row{ActivityRange::h1,
               "2026-10-05T10:00:00.5Z",
               "2026-10-05T09:00:00Z",
               "2026-10-05T10:15:00Z",
               6},
           Row{ActivityRange::h6,
               "1969-12-31T23:30:00Z",
               "1969-12-31T18:00:00Z",
               "1970-01-01T00:00:00Z",
               7},
       }) {
    TimelineInput input = hourOf({});
    input.range = row.range;
    input.end = *isoDate(row.end);
    const TimelineLayout layout = TimelineLayout::make(input);
    ASSERT_EQ(layout.ticks.size(), row.count) << row.end;
    EXPECT_EQ(isoText(layout.ticks.front().date), row.first);
    EXPECT_EQ(isoText(layout.ticks.back().date), row.last);
    const double width = layout.geometry.nowX - 12;
    const Seconds age = elapsed(layout.ticks.front().date, input.end);
    EXPECT_NEAR(layout.ticks.front().x, 12 + width - age / span(row.range) * width, 1e-6);
  }
}

TEST(TimelineLayout, commitsOfOneBinAreOneGroup) {
  ActivityEvent other = happened(commit, ten + seconds(1), "other session");
  other.sessionID = "claude:2";
  ActivityEvent nobodys = happened(commit, ten, "no session");
  nobodys.sessionID = std::nullopt;
  const std::vector<ActivityEvent> events = {
      happened(commit, ten, "a"),
      happened(started, ten, "start"),
      happened(commit, ten + seconds(9) + microseconds(999'999), "b"),
      other,
      happened(commit, ten - microseconds(1), "before"),
      nobodys,
      happened(commit, ten + seconds(10), "after"),
      happened(started, ten, "start again")};
  const auto texts = [](const std::vector<std::vector<ActivityEvent>>& groups) {
    std::string result;
    for (const auto& group : groups) {
      for (const ActivityEvent& event : group)
        result += event.id + (&event == &group.back() ? "; " : ", ");
    }
    return result;
  };
  EXPECT_EQ(texts(rollUp(events, 0.8)),
            "start; start again; b, a; other session; before; no session; after; ");
  // However wide the view is, a second is not divided.
  EXPECT_EQ(texts(rollUp({happened(commit, ten, "a"),
                          happened(commit, ten + microseconds(999'999), "b"),
                          happened(commit, ten + seconds(1), "c")},
                         1000)),
            "b, a; c; ");
}

TEST(TimelineLayout, aGroupIsKnownByItsOldestCommit) {
  const TimelineLayout layout = TimelineLayout::make(
      hourOf({happened(commit, ten - seconds(2), "old"), happened(commit, ten, "new")}));
  // 9:59:58 and 10:00:00 lie in two bins.
  EXPECT_EQ(layout.items.size(), 2U);
  const TimelineLayout other = TimelineLayout::make(hourOf(
      {happened(commit, ten - seconds(9), "new"), happened(commit, ten - seconds(11), "old")}));
  ASSERT_EQ(other.items.size(), 1U);
  EXPECT_EQ(other.items[0].id, "group:claude:1:old");
  EXPECT_EQ(other.items[0].events.front().id, "new");
  EXPECT_EQ(other.item("group:claude:1:old"), other.items.data());
  EXPECT_EQ(other.item("old"), nullptr);
  EXPECT_EQ(other.item(std::nullopt), nullptr);
}

TEST(TimelineLayout, cardsSayWhatHappened) {
  struct Row {
    ActivityKind kind = commit;
    TimelineSizeClass size = TimelineSizeClass::small;
    std::size_t count = 1;
    const char* title = "";
    const char* label = "";
    double width = 0;
  };
  using enum TimelineSizeClass;
  for (const Row& row : {Row{commit, small, 1, "Sweep", "0123456", 30 + 45 + 33},
                         Row{commit, small, 12, "12 commits", "0123456", 60 + 45 + 33},
                         Row{commit, medium, 1, "shed", "0123456", 47 + 24 + 58},
                         Row{commit, medium, 12, "shed", "12 commits", 66 + 24 + 58},
                         Row{commit, large, 12, "12 commits", "0123456", 45 + 24 + 19 + 49},
                         Row{prOpened, medium, 1, "shed", "Opened #0123456789", 119 + 24 + 58},
                         Row{prMerged, large, 1, "Sweep", "Merged #0123456789", 116 + 24 + 19 + 49},
                         Row{needsYou, large, 1, "Tidy the shed", "Needs you", 58 + 24 + 19 + 49},
                         Row{needsYou, small, 1, "Sweep", "Needs you", 30 + 57 + 33},
                         Row{finished, large, 1, "Tidy the shed", "Finished", 94 + 1 + 49},
                         Row{started, small, 1, "Sweep", "Started", 30 + 45 + 33},
                         Row{branched, small, 1, "Sweep", "branch", 30 + 38 + 33}}) {
    const std::vector<ActivityEvent> group(row.count, happened(row.kind, ten, "e"));
    const auto callout = timelineCallout(group, row.size, {.width = tableWidth});
    EXPECT_EQ(callout.title, row.title) << rawValue(row.kind);
    EXPECT_EQ(callout.label, row.label);
    EXPECT_EQ(callout.width, row.width) << row.title << row.label;
  }
  ActivityEvent bare{.kind = prOpened, .title = std::string(60, 'W')};
  const auto opened = timelineCallout({&bare, 1}, large, {.width = tableWidth});
  EXPECT_EQ(opened, (TimelineCallout{201 + 49, std::string(26, 'W') + "…", "Opened #"}));
  bare.kind = branched;
  bare.detail = "worktree";
  const auto branch = timelineCallout({&bare, 1}, small, {.width = tableWidth});
  EXPECT_EQ(branch, (TimelineCallout{132 + 51 + 33, std::string(21, 'W') + "…", "worktree"}));
}

TEST(TimelineLayout, textsAreCutToTheirWidth) {
  struct Row {
    const char* text = "";
    double limit = 0;
    const char* expected = "";
  };
  int asked = 0;
  const TimelineTextMeasure measure = {
      .width = [&](std::string_view text, TimelineTextStyle style) {
        ++asked;
        return tableWidth(text, style);
      }};
  const TimelineTextMeasure remembering = cached(measure);
  for (const Row& row : {Row{"Sweep the floor", 90, "Sweep the floor"},
                         Row{"Sweep the floor", 89, "Sweep the flo…"},
                         Row{"Sweep the floor", 66, "Sweep the…"},
                         Row{"Sweep the floor", 42, "Sweep…"},
                         Row{"Sweep the floor", 1, "Swee…"},
                         Row{"Sweep the floor", notANumber, "Swee…"},
                         Row{"äöüßÄÖÜ", 36, "äöüßÄ…"},
                         Row{"Two\nlines\x7F", 60, "Two lines "},
                         Row{"     ", 1, "…"},
                         Row{"", 1, ""},
                         Row{"Wi", 1, "Wi…"}}) {
    asked = 0;
    const auto fitted = measure.fit(row.text, TimelineTextStyle::tag, row.limit);
    EXPECT_EQ(fitted.text, row.expected) << row.limit;
    EXPECT_EQ(fitted.width, tableWidth(row.expected, TimelineTextStyle::tag));
    EXPECT_LE(asked, 12);
    EXPECT_EQ(remembering.fit(row.text, TimelineTextStyle::tag, row.limit), fitted);
    asked = 0;
    EXPECT_EQ(remembering.fit(row.text, TimelineTextStyle::tag, row.limit), fitted);
    EXPECT_EQ(asked > 0, std::isnan(row.limit));
  }
}

TEST(TimelineLayout, aMeasureForgetsEverythingRatherThanGrowWithoutEnd) {
  int asked = 0;
  const TimelineTextMeasure measure =
      cached({.width = [&](std::string_view, TimelineTextStyle) { return ++asked; }});
  const auto ask = [&](int first, int count) {
    asked = 0;
    for (int i = first; i < first + count; ++i)
      measure.width(std::to_string(i), TimelineTextStyle::tag);
    return asked;
  };
  EXPECT_EQ(ask(0, 4001), 4001);
  EXPECT_EQ(ask(0, 4001), 0);
  measure.width("0", TimelineTextStyle::tagRef);
  EXPECT_EQ(ask(0, 1), 1);
}

TEST(TimelineLayout, whatIsOneAndAHalfSecondsOldIsNotFresh) {
  struct Row {
    Date seen = distantPast;
    bool isFresh = false;
  };
  for (const Row& row : {Row{ten - microseconds(1'499'999), true},
                         Row{ten - microseconds(1'500'000), false},
                         Row{ten + seconds(5), true},
                         Row{Date::min(), false},
                         Row{Date::max(), true}}) {
    std::vector<ActivityEvent> run = {happened(commit, beforeTen(9), "a"),
                                      happened(commit, beforeTen(10), "b")};
    run[1].firstSeen = row.seen;
    EXPECT_EQ(TimelineLayout::make(hourOf(run)).items.at(0).isFresh, row.isFresh);
  }
}

TEST(TimelineLayout, editsOfAProjectAndAMinuteAreOneMark) {
  TimelineInput input = hourOf({});
  input.edits = {
      {.projectRoot = "/b", .sessionID = "s", .start = beforeTen(60), .files = 2, .paths = {"z"}},
      {.projectRoot = "/a", .sessionID = "s", .start = beforeTen(60), .files = -7},
      {.projectRoot = "/b",
       .sessionID = "s",
       .start = beforeTen(1),
       .files = 1,
       .paths = {"y", "z", "y"}},
      {.projectRoot = "/b", .sessionID = "t", .start = ten, .files = 50},
      {.projectRoot = "/b", .sessionID = "u", .start = ten, .files = 50},
      {.projectRoot = "/b", .start = ten + microseconds(1), .files = 1}};
  input.projectOrder = {"1", "2", "3", "4", "5", "/b"};
  const TimelineLayout layout = TimelineLayout::make(input);
  ASSERT_EQ(layout.edits.size(), 3U);
  const std::int64_t minute = 1791194400 / 60;
  const TimelineEditMark& first = layout.edits[0];
  EXPECT_EQ(first.id, fmt::format("edit:/b|{}", minute - 1));
  EXPECT_EQ(first.start, beforeTen(60));
  EXPECT_EQ(first.length, Seconds(60));
  EXPECT_EQ(first.files, 3);
  EXPECT_EQ(first.sessionID, "s");
  EXPECT_EQ(first.paths, (std::vector<std::string>{"z", "y"}));
  EXPECT_NEAR(first.height, 5 + 3 * 2.2, 1e-9);
  EXPECT_NEAR(first.x, 888 - 30 * 876 / 3600.0 - 7, 1e-9);
  EXPECT_EQ(layout.edits[1].height, 5);
  EXPECT_NEAR(layout.edits[1].x, first.x, 1e-9);  // unknown projects share the first one's lane
  EXPECT_EQ(layout.edits[2].sessionID, std::nullopt);
  EXPECT_EQ(layout.edits[2].height, 30);
  EXPECT_EQ(layout.edit(first.id), &first);

  input.projectOrder = {"/a", "/b"};
  EXPECT_NEAR(TimelineLayout::make(input).edits[0].x, first.x + 3.5, 1e-9);
  input.range = ActivityRange::h6;
  EXPECT_EQ(TimelineLayout::make(input).edits[0].start, beforeTen(600));
}

TEST(TimelineLayout, pointsFindCardsThenMarkersThenEdits) {
  TimelineInput input = hourOf({});
  for (int i = 0; i < 6; ++i)  // more than the rows take
    input.events.push_back(happened(finished, beforeTen(600 + i), "f" + std::to_string(i)));
  input.edits = {{.projectRoot = "/p", .start = beforeTen(630), .files = 1}};
  const TimelineLayout layout = TimelineLayout::make(input);
  const double axis = layout.geometry.mid;
  const TimelineItem& card = *layout.item("f0");
  const TimelineItem& bare = *layout.item("f5");
  ASSERT_TRUE(card.rect && !bare.rect);
  const TimelineEditMark& edit = layout.edits.at(0);
  struct Row {
    TimelinePoint point = {};
    std::string expected = {};
  };
  for (const Row& row : {
           Row{{card.rect->x - 2, card.rect->y - 2}, "f0"},
           Row{{card.rect->x - 2.1, card.rect->y}, ""},
           Row{{card.rect->maxX() + 2, card.rect->maxY() + 2}, "f0"},
           Row{{bare.markerX - 8.9, axis}, "f5"},
           Row{{bare.markerX - 9.1, axis}, ""},
           Row{{(card.markerX + layout.item("f1")->markerX) / 2, axis}, "f1"},
           Row{{edit.x + 1.5, axis + edit.height + 9.9}, edit.id},
           Row{{edit.x + 1.5, axis + edit.height + 10.1}, ""},
           Row{{edit.x + 5.1, axis + 15}, ""},
           Row{{edit.x - 1.9, axis + 15}, edit.id},
           Row{{notANumber, axis}, ""},
       }) {
    const auto hit = layout.hitTest(row.point);
    EXPECT_EQ(hit ? hit->id : "", row.expected) << row.point.x << " " << row.point.y;
    EXPECT_EQ(hit && hit->kind == TimelineHit::Kind::edit, row.expected == edit.id);
  }
}

TEST(TimelineLayout, theKeyboardStepsFromOldToNew) {
  const TimelineLayout layout =
      TimelineLayout::make(hourOf({happened(started, ten, "a"),
                                   happened(finished, ten, "b"),
                                   happened(needsYou, beforeTen(9), "z")}));
  using enum TimelineStep;
  const auto step = [&](std::optional<std::string_view> from, TimelineStep direction) {
    return layout.step(from, direction)->id;
  };
  EXPECT_EQ(step("z", newer), "a");
  EXPECT_EQ(step("a", newer), "b");
  EXPECT_EQ(step("b", newer), "b");
  EXPECT_EQ(step("b", older), "a");
  EXPECT_EQ(step("z", older), "z");
  EXPECT_EQ(step("?", older), "b");
  EXPECT_EQ(step(std::nullopt, newer), "b");
  EXPECT_EQ(TimelineLayout::empty().step("a", newer), nullptr);
}

TEST(TimelineLayout, aLowViewKeepsTheMarkersOfLargeEvents) {
  TimelineInput input =
      hourOf({happened(prMerged, beforeTen(60), "pr"), happened(commit, beforeTen(900), "c")});
  input.size.height = 400;
  const TimelineLayout layout = TimelineLayout::make(input);
  const TimelineItem& merged = *layout.item("pr");
  EXPECT_FALSE(merged.row || merged.rect || merged.leader);
  EXPECT_EQ(layout.hitTest({merged.markerX, layout.geometry.mid})->id, "pr");
  EXPECT_EQ(layout.item("c")->row, 0);
}

void expectSound(const TimelineLayout& layout) {
  expectCardsApart(layout);
  for (const TimelineItem& item : layout.items) {
    ASSERT_TRUE(std::isfinite(item.markerX));
    ASSERT_LE(item.title.size() + item.label.size(), 2100U);
    if (item.rect) {
      ASSERT_TRUE(std::isfinite(item.rect->x) && std::isfinite(item.rect->y));
      ASSERT_GT(item.rect->width, 0);
      ASSERT_LE(item.leader->top, item.leader->bottom);
    }
  }
  for (const TimelineEditMark& mark : layout.edits) {
    ASSERT_TRUE(std::isfinite(mark.x));
    ASSERT_TRUE(mark.height >= 5 && mark.height <= 30);
  }
  ASSERT_LE(layout.ticks.size(), 8U);
}

std::vector<ActivityEvent> oddEvents() {
  const std::string megabyte(1'000'000, 'm');
  std::vector<ActivityEvent> events;
  for (const ActivityKind kind : allActivityKinds) {
    for (const Date date :
         {Date::min(), distantPast, Date{}, ten, *isoDate("9999-12-31T00:00:00Z"), Date::max()}) {
      events.push_back(happened(kind, date, std::to_string(events.size())));
      events.push_back({.kind = kind, .date = date, .firstSeen = date});  // without texts, one id
    }
    ActivityEvent loud = happened(kind, ten, "loud" + std::to_string(events.size()));
    loud.title = megabyte;
    loud.projectName = megabyte;
    loud.ref = megabyte;
    loud.sessionTitle = "a\xCC\x81" + std::string(1'000'000, '\0');
    events.push_back(loud);
    loud.id += "!";
    loud.title = "\xF0\x9F" + std::string(3000, '\x80');  // no text at all
    events.push_back(loud);
  }
  return events;
}

TEST(TimelineLayout, whateverComesGivesASoundLayout) {
  TimelineInput odd = hourOf(oddEvents());
  for (const Date date : {Date::min(), distantPast, ten, Date::max()}) {
    odd.edits.push_back({.start = date, .files = std::numeric_limits<std::int64_t>::min()});
    odd.edits.push_back({.start = date, .files = std::numeric_limits<std::int64_t>::max()});
    odd.edits.push_back({.start = date, .files = std::numeric_limits<std::int64_t>::max()});
  }
  for (const double length :
       {notANumber, -infinity, -1.0, 0.0, 1e-300, 1.0, 64.0, 77.0, 100'000.0, 1e300, infinity}) {
    for (const TimelineSize size : {TimelineSize{length, 600}, TimelineSize{1000, length}}) {
      SCOPED_TRACE(fmt::format("{} by {}", size.width, size.height));
      TimelineInput input = odd;
      input.size = size;
      const TimelineLayout layout = TimelineLayout::make(std::move(input));
      EXPECT_EQ(layout.items.empty(), !(length > 0));
      EXPECT_EQ(layout.ticks.empty() && layout.edits.empty(), layout.items.empty());
      expectSound(layout);
    }
  }
  for (const double answer : {notANumber, -infinity, -5.0, 0.0, 1e-300, 33.3, 1e300, infinity}) {
    SCOPED_TRACE(answer);
    TimelineInput input = odd;
    input.measure = cached({.width = [answer](auto, auto) { return answer; }});
    expectSound(TimelineLayout::make(std::move(input)));
  }
  odd.measure = {};
  for (const Date date : {Date::min(), Date::max()}) {
    for (const ActivityRange range : allActivityRanges) {
      odd.end = date;
      odd.now = date;
      odd.range = range;
      expectSound(TimelineLayout::make(odd));
    }
  }
}

TEST(TimelineLayout, aHundredThousandEventsInOneSecond) {
  std::vector<ActivityEvent> commits;
  std::vector<ActivityEvent> others;
  for (std::size_t i = 0; i < 100'000; ++i) {
    const Date date = ten - microseconds(9 * static_cast<int>(i));
    commits.push_back({.id = std::to_string(i), .date = date, .title = "c"});
    others.push_back(
        {.id = std::to_string(i), .kind = allActivityKinds.at(1 + i % 6), .date = date});
  }
  const TimelineLayout run = TimelineLayout::make(hourOf(std::move(commits)));
  ASSERT_EQ(run.items.size(), 2U);  // ten o'clock itself begins a bin
  EXPECT_EQ(run.items[0].title, "99999 commits");
  const TimelineLayout crowd = TimelineLayout::make(hourOf(std::move(others)));
  EXPECT_EQ(crowd.items.size(), 100'000U);
  EXPECT_EQ(crowd.rows.size(), 8U);  // one card for each row
  expectSound(crowd);
}

TEST(TimelineLayout, clockTextsHaveTwelveHours) {
  struct Row {
    const char* zone = "";
    const char* date = "";
    const char* minutes = "";
    const char* seconds = "";
  };
  for (const Row& row : {Row{"UTC", "2026-10-05T00:05:09Z", "12:05", "12:05:09"},
                         Row{"UTC", "2026-10-05T12:00:00Z", "12:00", "12:00:00"},
                         Row{"UTC", "1969-12-31T23:59:59.9Z", "11:59", "11:59:59"},
                         Row{"Asia/Kathmandu", "2026-10-05T03:15:00Z", "9:00", "9:00:00"},
                         // An hour after the clocks went on.
                         Row{"Europe/Berlin", "2026-03-29T02:00:00Z", "4:00", "4:00:00"}}) {
    const Calendar calendar(row.zone);
    const Date date = *isoDate(row.date);
    EXPECT_EQ(timelineClock(date, TimelineClockDigits::minutes, calendar), row.minutes);
    EXPECT_EQ(timelineClock(date, TimelineClockDigits::seconds, calendar), row.seconds);
  }
}

}  // namespace
}  // namespace tessivane
