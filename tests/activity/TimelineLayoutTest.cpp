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
  for (const auto& [size, nowX, mid, above, below] :
       {Row{{640, 600}, 528, 294, 5, 3},
        Row{{639, 413}, 575, 201, 4, 2},  // half of 413 is rounded up
        Row{{639, 412}, 575, 200, 3, 2},  // a row at 40 is too high
        Row{{10, 10}, -54, -1, 0, 0},
        Row{{100'000, 100'000}, 99'888, 49'994, 5, 3}}) {
    const auto geometry = TimelineGeometry::make(size, ActivityRange::m15);
    EXPECT_EQ(geometry.nowX, nowX);
    EXPECT_EQ(geometry.mid, mid);
    EXPECT_EQ(geometry.aboveRows.size(), above) << size.height;
    EXPECT_EQ(geometry.belowRows.size(), below) << size.height;
    EXPECT_GT(geometry.pointsPerSecond, 0);
  }
}

TEST(TimelineLayout, gridLinesStandOnRoundTimesAndReachBeyondTheWindow) {
  using enum ActivityRange;
  struct Row {
    ActivityRange range = h1;
    std::string end = {};
    std::string first = {};
    std::string last = {};
    std::size_t count = 0;
  };
  for (const Row& row :
       {Row{m15, "2026-10-05T10:04:00", "2026-10-05T09:45:00", "2026-10-05T10:05:00", 5},
        Row{h1, "2026-10-05T10:00:00", "2026-10-05T09:00:00", "2026-10-05T10:15:00", 6},
        Row{h1, "2026-10-05T10:00:00.5", "2026-10-05T09:00:00", "2026-10-05T10:15:00", 6},
        Row{h6, "1969-12-31T23:30:00", "1969-12-31T18:00:00", "1970-01-01T00:00:00", 7}}) {
    TimelineInput input = hourOf({});
    input.range = row.range;
    input.end = *isoDate(row.end + "Z");
    const TimelineLayout layout = TimelineLayout::make(input);
    ASSERT_EQ(layout.ticks.size(), row.count) << row.end;
    EXPECT_EQ(isoText(layout.ticks.front().date), row.first + "Z");
    EXPECT_EQ(isoText(layout.ticks.back().date), row.last + "Z");
    const double width = layout.geometry.nowX - 12;
    const Seconds age = elapsed(layout.ticks.front().date, input.end);
    EXPECT_NEAR(layout.ticks.front().x, 12 + width - age / span(row.range) * width, 1e-6);
  }
}

TEST(TimelineLayout, commitsOfOneBinAreOneGroup) {
  const std::vector<ActivityEvent> events = {
      happened(commit, ten, "a"),
      happened(started, ten, "start"),
      happened(commit, ten + seconds(9) + microseconds(999'999), "b"),
      with(happened(commit, ten + seconds(1), "other"), &ActivityEvent::sessionID, "claude:2"),
      happened(commit, ten - microseconds(1), "before"),
      with(happened(commit, ten, "nobody's"), &ActivityEvent::sessionID, std::nullopt),
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
            "start; start again; b, a; other; before; nobody's; after; ");
  // However wide the view is, a second is not divided.
  const auto almost = happened(commit, ten + microseconds(999'999), "almost");
  EXPECT_EQ(texts(rollUp({events[0], almost, happened(commit, ten + seconds(1), "c")}, 1000)),
            "almost, a; c; ");
}

TEST(TimelineLayout, aGroupIsKnownByItsOldestCommit) {
  const TimelineLayout layout =
      TimelineLayout::make(hourOf({happened(commit, ten - seconds(9), "new"),
                                   happened(commit, ten - seconds(11), "old"),
                                   happened(commit, ten, "of the next bin")}));
  ASSERT_EQ(layout.items.size(), 2U);
  EXPECT_EQ(layout.items[0].id, "group:claude:1:old");
  EXPECT_EQ(layout.items[0].events.front().id, "new");
  EXPECT_EQ(layout.item("group:claude:1:old"), layout.items.data());
  EXPECT_EQ(layout.item("old"), nullptr);
  EXPECT_EQ(layout.item(std::nullopt), nullptr);
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
  const auto calloutOf = [](const ActivityEvent& bare, TimelineSizeClass size) {
    return timelineCallout({&bare, 1}, size, {.width = tableWidth});
  };
  const std::string wide(60, 'W');
  EXPECT_EQ(calloutOf({.kind = prOpened, .title = wide}, large),
            (TimelineCallout{201 + 49, wide.substr(0, 26) + "…", "Opened #"}));
  EXPECT_EQ(calloutOf({.kind = branched, .title = wide, .detail = "worktree"}, small),
            (TimelineCallout{132 + 51 + 33, wide.substr(0, 21) + "…", "worktree"}));
}

TEST(TimelineLayout, aCardStandsInTheFirstRowOfItsKindAndSize) {
  struct Row {
    ActivityKind kind = commit;
    int row = 0;
    TimelineRect rect = {};  // of a card that ends twelve points after the marker
    TimelineLeader leader = {};
  };
  for (const Row& row : {Row{commit, 0, {573, 253.5, 108, 21}, {274.5, 288}},
                         Row{branched, 0, {580, 253.5, 101, 21}, {274.5, 288}},
                         Row{prOpened, 2, {480, 177, 201, 26}, {203, 288}},
                         Row{prMerged, 3, {473, 111, 208, 46}, {157, 288}},
                         Row{needsYou, 0, {531, 337, 150, 46}, {334, 337}},
                         Row{finished, 0, {546, 347, 135, 26}, {334, 347}},
                         Row{started, 0, {573, 349.5, 108, 21}, {334, 349.5}}}) {
    const TimelineLayout layout =
        TimelineLayout::make(hourOf({happened(row.kind, beforeTen(900), "e")}));
    const TimelineItem& item = layout.items.at(0);
    SCOPED_TRACE(rawValue(row.kind));
    EXPECT_EQ(item.markerX, 888 - 876 / 4.0);
    EXPECT_EQ(item.row, row.row);
    EXPECT_EQ(item.rect, row.rect);
    EXPECT_EQ(item.leader, row.leader);
  }
}

TEST(TimelineLayout, textsAreCutToTheirWidth) {
  struct Row {
    const char* text = "";
    double limit = 0;
    const char* expected = "";
  };
  int asked = 0;
  const TimelineTextMeasure measure = {.width = [&](auto text, auto style) {
    ++asked;
    return tableWidth(text, style);
  }};
  const TimelineTextMeasure remembering = cached(measure);
  for (const auto& [text, limit, expected] : {Row{"Sweep the floor", 90, "Sweep the floor"},
                                              Row{"Sweep the floor", 89, "Sweep the flo…"},
                                              Row{"Sweep the floor", 66, "Sweep the…"},
                                              Row{"Sweep the floor", 1, "Swee…"},
                                              Row{"Sweep the floor", notANumber, "Swee…"},
                                              Row{"äöüßÄÖÜ", 36, "äöüßÄ…"},
                                              Row{"Two\nlines\x7F", 60, "Two lines "},
                                              Row{"     ", 1, "…"},
                                              Row{"", 1, ""},
                                              Row{"Wi", 1, "Wi…"}}) {
    asked = 0;
    const auto fitted = measure.fit(text, TimelineTextStyle::tag, limit);
    EXPECT_EQ(fitted.text, expected) << limit;
    EXPECT_EQ(fitted.width, tableWidth(expected, TimelineTextStyle::tag));
    EXPECT_LE(asked, 12);
    EXPECT_EQ(remembering.fit(text, TimelineTextStyle::tag, limit), fitted);
    asked = 0;
    EXPECT_EQ(remembering.fit(text, TimelineTextStyle::tag, limit), fitted);
    EXPECT_EQ(asked > 0, std::isnan(limit));
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
  const auto isFresh = [](Date seen) {
    const auto event = happened(commit, beforeTen(10), "b");
    return TimelineLayout::make(hourOf({happened(commit, beforeTen(9), "a"),
                                        with(event, &ActivityEvent::firstSeen, seen)}))
        .items.at(0)
        .isFresh;
  };
  EXPECT_TRUE(isFresh(ten - microseconds(1'499'999)));
  EXPECT_FALSE(isFresh(ten - microseconds(1'500'000)));
  EXPECT_TRUE(isFresh(ten + seconds(5)));
  EXPECT_FALSE(isFresh(Date::min()));
  EXPECT_TRUE(isFresh(Date::max()));
}

TEST(TimelineLayout, editsOfAProjectAndAMinuteAreOneMark) {
  TimelineInput input = hourOf({});
  const auto edit = [&](const char* root, Date start, std::int64_t files) -> EditBucket& {
    return input.edits.emplace_back(
        EditBucket{.projectRoot = root, .sessionID = "s", .start = start, .files = files});
  };
  edit("/b", beforeTen(60), 2).paths = {"z"};
  edit("/a", beforeTen(60), -7);
  edit("/b", beforeTen(1), 1).paths = {"y", "z", "y"};
  edit("/b", ten, 50).sessionID = "t";
  edit("/b", ten, 50).sessionID = "u";
  edit("/b", ten + microseconds(1), 1);
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
  const auto hit = [&](double x, double y) {
    const auto found = layout.hitTest({x, y});
    EXPECT_EQ(found && found->kind == TimelineHit::Kind::edit, found && found->id == edit.id);
    return found ? found->id : "";
  };
  EXPECT_EQ(hit(card.rect->x - 2, card.rect->y - 2), "f0");
  EXPECT_EQ(hit(card.rect->x - 2.1, card.rect->y), "");
  EXPECT_EQ(hit(card.rect->maxX() + 2, card.rect->maxY() + 2), "f0");
  EXPECT_EQ(hit(bare.markerX - 8.9, axis), "f5");
  EXPECT_EQ(hit(bare.markerX - 9.1, axis), "");
  EXPECT_EQ(hit((card.markerX + layout.item("f1")->markerX) / 2, axis), "f1");
  EXPECT_EQ(hit(edit.x + 1.5, axis + edit.height + 9.9), edit.id);
  EXPECT_EQ(hit(edit.x + 1.5, axis + edit.height + 10.1), "");
  EXPECT_EQ(hit(edit.x + 5.1, axis + 15), "");
  EXPECT_EQ(hit(edit.x - 1.9, axis + 15), edit.id);
  EXPECT_EQ(hit(notANumber, axis), "");
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
  const auto add = [&](ActivityEvent event) {
    event.id = std::to_string(events.size());
    events.push_back(std::move(event));
  };
  for (const ActivityKind kind : allActivityKinds) {
    for (const Date date :
         {Date::min(), distantPast, Date{}, ten, *isoDate("9999-12-31T00:00:00Z"), Date::max()}) {
      add(happened(kind, date, ""));
      events.push_back({.kind = kind, .date = date, .firstSeen = date});  // without texts, one id
    }
    ActivityEvent loud = happened(kind, ten, "");
    loud.title = loud.projectName = *(loud.ref = megabyte);
    loud.sessionTitle = "a\xCC\x81" + std::string(1'000'000, '\0');
    add(loud);
    add(with(loud, &ActivityEvent::title, "\xF0\x9F" + std::string(3000, '\x80')));  // no text
  }
  return events;
}

TEST(TimelineLayout, whateverComesGivesASoundLayout) {
  TimelineInput odd = hourOf(oddEvents());
  for (const Date date : {Date::min(), distantPast, ten, Date::max()}) {
    for (const std::int64_t files : {INT64_MIN, INT64_MAX, INT64_MAX})
      odd.edits.push_back({.start = date, .files = files});
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
  const auto texts = [](const char* zone, const char* date) {
    const auto with = [&](TimelineClockDigits digits) {
      return timelineClock(*isoDate(date), digits, Calendar(zone));
    };
    return with(TimelineClockDigits::minutes) + " " + with(TimelineClockDigits::seconds);
  };
  EXPECT_EQ(texts("UTC", "2026-10-05T00:05:09Z"), "12:05 12:05:09");
  EXPECT_EQ(texts("UTC", "2026-10-05T12:00:00Z"), "12:00 12:00:00");
  EXPECT_EQ(texts("UTC", "1969-12-31T23:59:59.9Z"), "11:59 11:59:59");
  EXPECT_EQ(texts("Asia/Kathmandu", "2026-10-05T03:15:00Z"), "9:00 9:00:00");
}

}  // namespace
}  // namespace tessivane
