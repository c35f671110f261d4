#include "activity/TimelineRows.h"

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "TimelineScene.h"
#include "activity/TimelineCallout.h"

namespace tessivane {
namespace {

using enum TimelineSide;
using enum TimelineSizeClass;

// Says the same as `placeTimelineCards`, by comparing every card with every other.
class PlainRows final {
 public:
  PlainRows(const std::vector<TimelineCandidate>& cards, const TimelineGeometry& geometry)
      : cards_(cards), geometry_(geometry), result(cards.size()) {}

  void place(std::size_t card, int row) {
    const auto rows = static_cast<int>(geometry_.rows(cards_[card].side).size());
    if (!result[card] && row < rows && isFree(card, row))
      result[card] = row;
  }

 private:
  bool isFree(std::size_t card, int row) const {
    for (std::size_t i = 0; i < cards_.size(); ++i) {
      if (result[i] == row && cards_[i].side == cards_[card].side &&
          cards_[i].right > cards_[card].left - 8 && cards_[i].left < cards_[card].right + 8) {
        return false;
      }
    }
    return true;
  }

  const std::vector<TimelineCandidate>& cards_;
  const TimelineGeometry& geometry_;

 public:
  std::vector<std::optional<int>> result;
};

bool contains(std::span<const int> rows, int row) {
  return std::ranges::find(rows, row) != rows.end();
}

TEST(TimelineRows, agreeWithComparingEveryPair) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    const auto geometry = TimelineGeometry::make(
        {.width = 1000, .height = 100.0 + static_cast<double>(random() % 500)}, ActivityRange::h1);
    std::vector<std::string> ids(40);
    for (std::size_t i = 0; i < ids.size(); ++i)
      ids[i] = std::to_string(i);
    std::vector<TimelineCandidate> cards;
    TimelineRows previous;
    for (const std::string& id : ids) {
      const auto left = static_cast<double>(random() % 900);
      cards.push_back({.id = id,
                       .side = random() % 2 == 0 ? above : below,
                       .size = static_cast<TimelineSizeClass>(random() % 3),
                       .left = left,
                       .right = left + 30 + static_cast<double>(random() % 90)});
      if (random() % 2 == 0)
        previous[id] = static_cast<int>(random() % 8) - 1;
    }
    PlainRows plain(cards, geometry);
    for (std::size_t i = 0; i < cards.size(); ++i) {
      const auto row = previous.find(ids[i]);
      if (row != previous.end() &&
          contains(allowedTimelineRows(cards[i].side, cards[i].size), row->second)) {
        plain.place(i, row->second);
      }
    }
    for (std::size_t i = 0; i < cards.size(); ++i) {
      for (const int row : allowedTimelineRows(cards[i].side, cards[i].size))
        plain.place(i, row);
    }
    ASSERT_EQ(placeTimelineCards(cards, geometry, previous), plain.result);
  }
}

TEST(TimelineRows, cardsEightPointsApartShareARow) {
  const auto geometry = TimelineGeometry::make({.width = 1000, .height = 600}, ActivityRange::h1);
  struct Row {
    double right = 0;
    std::optional<int> expected = {};
  };
  for (const Row& row : {Row{192, 0}, Row{192.001, 1}, Row{400, 1}}) {
    const std::vector<TimelineCandidate> cards = {
        {.id = "there", .side = below, .left = 200, .right = 300},
        {.id = "new", .side = below, .left = 100, .right = row.right}};
    EXPECT_EQ(placeTimelineCards(cards, geometry, {})[1], row.expected) << row.right;
  }
}

// Chance decides what happens, when it is seen, how large tags are and how the window moves.
class Story final {
 public:
  explicit Story(unsigned seed) : random_(seed) {}

  TimelineInput next(const TimelineLayout& previous) {
    for (std::size_t count = random_() % 8; count > 0; --count) {
      const auto kind = allActivityKinds.at(random_() % allActivityKinds.size());
      ActivityEvent event = happened(
          kind, beforeTen(static_cast<double>(random_() % 3600)), std::to_string(++lastID_));
      event.sessionID = "claude:" + std::to_string(random_() % 3);
      events_.push_back(event);
    }
    for (ActivityEvent& event : events_) {
      if (random_() % 4 == 0)
        event.title = std::string(random_() % 40, 't');  // the card may get too wide for its row
    }
    std::erase_if(events_, [this](const ActivityEvent&) { return random_() % 20 == 0; });
    TimelineInput input = hourOf(events_);
    input.end = ten + std::chrono::seconds(random_() % 60);
    input.size.height = 200.0 + static_cast<double>(random_() % 400);
    if (random_() % 4 == 0)
      input.sizes[ActivityKind::commit] = static_cast<TimelineSizeClass>(random_() % 3);
    input.previousRows = previous.rows;
    return input;
  }

 private:
  std::mt19937 random_;
  std::vector<ActivityEvent> events_;
  int lastID_ = 0;
};

// The row of before that an item may stand in again, if it is free.
std::optional<int> rowOfBefore(const TimelineItem& item,
                               const TimelineLayout& layout,
                               const TimelineRows& before) {
  const auto found = before.find(item.id);
  if (found == before.end() ||
      found->second >= static_cast<int>(layout.geometry.rows(item.side).size()) ||
      !contains(allowedTimelineRows(item.side, item.size), found->second)) {
    return std::nullopt;
  }
  return found->second;
}

// True when a card that stayed in the row where it was leaves no room there for the item's.
bool isTakenByAnOldCard(int row,
                        const TimelineItem& item,
                        const TimelineLayout& layout,
                        const TimelineRows& before) {
  const auto width = timelineCallout(item.events, item.size, {.width = tableWidth}).width;
  const double right = item.markerX + 12;
  return std::ranges::any_of(layout.items, [&](const TimelineItem& other) {
    return other.side == item.side && other.row == row &&
           rowOfBefore(other, layout, before) == row && other.rect->maxX() > right - width - 8 &&
           other.rect->x < right + 8;
  });
}

TEST(TimelineRows, keepTheirDistanceAndTheirCards) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Story story(seed);
  TimelineLayout previous;
  std::size_t kept = 0;
  std::size_t moved = 0;
  for (int round = 0; round < 200; ++round) {
    TimelineLayout layout = TimelineLayout::make(story.next(previous));
    expectCardsApart(layout);
    for (const TimelineItem& item : layout.items) {
      const auto before = rowOfBefore(item, layout, previous.rows);
      if (!before)
        continue;
      (item.row == before ? kept : moved) += 1;
      ASSERT_TRUE(item.row == before || isTakenByAnOldCard(*before, item, layout, previous.rows));
    }
    previous = std::move(layout);
  }
  EXPECT_GT(kept, 100U);
  EXPECT_GT(moved, 5U);
}

TEST(TimelineRows, aFreeRowOfBeforeIsKeptAndAnotherSizesIsNot) {
  struct Row {
    ActivityKind kind = ActivityKind::commit;
    int before = 0;
    std::optional<int> expected = {};
  };
  for (const Row& row : {Row{ActivityKind::commit, 2, 2},
                         Row{ActivityKind::commit, 3, 0},
                         Row{ActivityKind::commit, -1, 0},
                         Row{ActivityKind::prMerged, 4, 4},
                         Row{ActivityKind::prMerged, 0, 3},
                         Row{ActivityKind::finished, 1, 1}}) {
    TimelineInput input = hourOf({happened(row.kind, beforeTen(60), "e")});
    input.previousRows["e"] = row.before;
    EXPECT_EQ(TimelineLayout::make(input).items.at(0).row, row.expected) << row.before;
  }
}

}  // namespace
}  // namespace tessivane
