// The layout of one invented hour, written as text that a person can read, against the text that is
// kept beside this file. To renew that one, run the test with TESSIVANE_RENEW_GOLDEN=1 and read
// what changed.

#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "TimelineScene.h"
#include "activity/TimelineClock.h"

namespace tessivane {
namespace {

using enum ActivityKind;

struct Session {
  const char* id = "";
  const char* project = "";
  const char* title = "";
};

const Session shed = {"claude:shed", "shed", "Tidy the shed"};
const Session pond = {"codex:pond", "pond", "Find out why the pump stops at night"};
const Session roof = {"t3:roof", "roof", "Count the tiles"};

struct Happening {
  const char* time = "";  // within the hour: "04:30"
  const Session& session = shed;
  ActivityKind kind = commit;
  const char* ref = "";
  const char* title = "";
  const char* detail = nullptr;
};

const std::vector<Happening> hour = {
    {"00:30", shed, started, "", "Tidy the shed"},
    {"01:10", shed, branched, "", "tidy-shed", "worktree"},
    {"06:00", shed, commit, "a1f0c3de99", "Sweep the floor"},
    {"06:09", shed, commit, "b2f0c3de99", "Oil the hinges"},
    {"06:18", shed, commit, "c3f0c3de99", "Sort the screws by length and by thread"},
    {"08:00", pond, started, "", "Find out why the pump stops at night"},
    {"11:40", pond, needsYou, "n1", "May I read the meter?"},
    {"14:05", shed, commit, "d4f0c3de99", "Hang up the rake"},
    {"15:30", roof, started, "", "Count the tiles"},
    {"16:00", roof, branched, "", "tiles"},
    {"19:20", pond, commit, "e5f0c3de99", "Log the voltage"},
    {"21:00", shed, prOpened, "41", "Tidy the shed"},
    {"21:30", shed, finished, "f1", "Done"},
    {"24:15", roof, commit, "f6f0c3de99", "Add a first count"},
    {"24:21", roof, commit, "0700c3de99", "Add a second count"},
    {"24:27", pond, commit, "1800c3de99", "Log the current"},
    {"24:33", roof, commit, "2900c3de99", "Explain why the counts differ"},
    {"29:00", roof, needsYou, "n2", "Which side of the roof first?"},
    {"31:45",
     pond,
     commit,
     "3a00c3de99",
     "Restart the pump after a brown-out, but not more than twice"},
    {"33:10", pond, prOpened, "7", "Keep the pump running"},
    {"34:00", pond, finished, "f2", "Done"},
    {"38:20", roof, commit, "4b00c3de99", "Count by rows"},
    {"42:00", shed, prMerged, "41", "Tidy the shed"},
    {"44:30", roof, prOpened, "12", "Count the tiles"},
    {"47:15", roof, finished, "f3", "Done"},
    {"52:00", pond, needsYou, "n3", "The tests need the valve closed"},
    {"55:40", pond, commit, "5c00c3de99", "Close the valve first"},
    {"57:05", roof, prMerged, "12", "Count the tiles"},
    {"58:50", pond, prMerged, "7", "Keep the pump running"},
    {"59:59", shed, started, "", "Paint the door"}};

Date within(const char* time) {
  return *isoDate(fmt::format("2026-10-05T09:{}Z", time));
}

TimelineInput inputOfTheHour() {
  TimelineInput input = hourOf({});
  for (const Happening& happening : hour) {
    ActivityEvent event =
        happened(happening.kind, within(happening.time), std::to_string(input.events.size() + 1));
    event.projectName = happening.session.project;
    event.projectRoot = fmt::format("/p/{}", happening.session.project);
    event.sessionID = happening.session.id;
    event.sessionTitle = happening.session.title;
    event.ref = happening.ref;
    event.title = happening.title;
    if (happening.detail != nullptr)
      event.detail = happening.detail;
    input.events.push_back(std::move(event));
  }
  const auto edit = [&](const char* time, const Session& session, std::int64_t files) {
    input.edits.push_back({.projectRoot = fmt::format("/p/{}", session.project),
                           .projectName = session.project,
                           .sessionID = session.id,
                           .start = within(time),
                           .files = files});
  };
  edit("03:00", shed, 2);
  edit("04:00", shed, 9);
  edit("12:00", pond, 1);
  edit("24:00", roof, 3);
  edit("24:00", pond, 1);
  edit("37:00", roof, 30);
  input.projectOrder = {"/p/shed", "/p/pond", "/p/roof"};
  return input;
}

std::string describedCard(const TimelineItem& item) {
  if (!item.rect)
    return "no room for a card";
  return fmt::format("{} {}, x {:.1f} to {:.1f}, y {:.1f} to {:.1f}, line {:.1f} to {:.1f}",
                     item.side == TimelineSide::above ? "above" : "below",
                     *item.row,
                     item.rect->x,
                     item.rect->maxX(),
                     item.rect->y,
                     item.rect->maxY(),
                     item.leader->top,
                     item.leader->bottom);
}

std::string described(const TimelineLayout& layout) {
  const auto clock = [](Date date) {
    return timelineClock(date, TimelineClockDigits::seconds, Calendar("UTC"));
  };
  const TimelineGeometry& geometry = layout.geometry;
  std::string text = fmt::format("{} by {}, the axis at y {}, {} at x {}\n\n",
                                 geometry.width,
                                 geometry.height,
                                 geometry.mid,
                                 clock(layout.end),
                                 geometry.nowX);
  for (const TimelineGridTick& tick : layout.ticks)
    text += fmt::format("line  {:>8}  x {:.1f}\n", clock(tick.date), tick.x);
  text += '\n';
  for (const TimelineItem& item : layout.items) {
    constexpr std::array sizes = {"large", "medium", "small"};
    text += fmt::format("{:>8}  x {:5.1f}  {:6} [{} | {}]{}\n{:10}{}\n",
                        clock(item.events.front().date),
                        item.markerX,
                        sizes.at(static_cast<std::size_t>(item.size)),
                        item.label,
                        item.title,
                        item.isFresh ? " fresh" : "",
                        "",
                        describedCard(item));
  }
  text += '\n';
  for (const TimelineEditMark& mark : layout.edits) {
    text += fmt::format("edits {:>8}  x {:.1f}, {:.1f} high, {}: {} files\n",
                        clock(mark.start),
                        mark.x,
                        mark.height,
                        mark.projectName,
                        mark.files);
  }
  return text;
}

TEST(TimelineGolden, anHourOfThreeSessions) {
  const std::string path = TESSIVANE_GOLDEN_DIRECTORY "/timeline-hour.txt";
  const std::string actual = described(TimelineLayout::make(inputOfTheHour()));
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here sets it
  if (std::getenv("TESSIVANE_RENEW_GOLDEN") != nullptr) {
    std::ofstream(path) << actual;
    FAIL() << path << " was written anew: read it, and run the test without the variable";
  }
  std::ifstream file(path);
  const std::string expected{std::istreambuf_iterator<char>(file), {}};
  EXPECT_TRUE(actual == expected) << "The layout is\n\n"
                                  << actual << "\nand " << path << " says\n\n"
                                  << expected << "\nTESSIVANE_RENEW_GOLDEN=1 writes it anew.";
}

}  // namespace
}  // namespace tessivane
